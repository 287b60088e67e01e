// The pulse recogniser's state machine over every transition (low 1, high 3,
// max_total 1.0).

#include <gtest/gtest.h>

#include <vector>

#include "imu/gestures.h"

namespace {

constexpr int kNo = -22;

struct Call {
    float value;
    int state;   // after the call
    int result;  // 0 only when a pulse completes within the limits
};

struct TriggerCase {
    const char* name;
    float step;
    float min_total;
    float final_total;
    std::vector<Call> calls;
};

TEST(PulseTrigger, FollowsItsTransitions) {
    // clang-format off
    const TriggerCase cases[] = {
        {"rise through the band, fall in time", 0.05F, 0.1F, 0.15F,
         {{0.5F, 0, kNo}, {2.0F, 1, kNo}, {4.0F, 2, kNo}, {4.0F, 2, kNo}, {0.5F, 0, 0}}},
        {"below low straight above high", 0.05F, 0.1F, 0.0F, {{0.5F, 0, kNo}, {4.0F, 2, kNo}}},
        {"in the band, then exactly high", 0.05F, 0.1F, 0.05F, {{2.0F, 1, kNo}, {3.0F, 0, kNo}}},
        {"above, then exactly high", 0.05F, 0.1F, 0.05F, {{4.0F, 2, kNo}, {3.0F, 0, kNo}}},
        {"above, then exactly low", 0.05F, 0.1F, 0.05F, {{4.0F, 2, kNo}, {1.0F, 0, kNo}}},
        {"back into the band stays above", 0.06F, 0.1F, 0.12F,
         {{4.0F, 2, kNo}, {2.0F, 2, kNo}, {0.0F, 0, 0}}},
        {"band and back below is no pulse", 0.05F, 0.1F, 0.1F,
         {{2.0F, 1, kNo}, {2.0F, 1, kNo}, {0.5F, 0, kNo}}},
        {"below min_total waits in 4, completes short", 0.02F, 0.1F, 0.04F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {0.5F, 0, kNo}}},
        {"waits in 4, completes in time", 0.06F, 0.1F, 0.12F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {0.5F, 0, 0}}},
        {"waits in 4, rises again", 0.04F, 0.1F, 0.12F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {4.0F, 2, kNo}, {0.5F, 0, 0}}},
        {"waits in 4, back into the band", 0.02F, 0.1F, 0.04F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {2.0F, 2, kNo}}},
        {"total equal to min_total", 0.1F, 0.1F, 0.1F, {{4.0F, 2, kNo}, {0.5F, 0, kNo}}},
        {"total beyond max_total", 0.5F, 0.1F, 1.5F,
         {{4.0F, 2, kNo}, {4.0F, 2, kNo}, {4.0F, 2, kNo}, {0.5F, 0, kNo}}},
    };
    // clang-format on
    for (const TriggerCase& c : cases) {
        sfc_gesture_trigger trigger;
        for (size_t i = 0; i < c.calls.size(); ++i) {
            const Call& call = c.calls[i];
            EXPECT_EQ(trigger.gesture_trigger(call.value, c.step, 1.0F, 3.0F, 1.0F, c.min_total),
                      call.result)
                << c.name << ", call " << i;
            EXPECT_EQ(trigger.state, call.state) << c.name << ", call " << i;
        }
        EXPECT_FLOAT_EQ(trigger.total, c.final_total) << c.name;
    }
}

// A completed pulse (state 3) and unknown states restart at 0.
TEST(PulseTrigger, CompletedAndUnknownStatesRestart) {
    for (int start : {3, 5, -1, 1000}) {
        sfc_gesture_trigger trigger;
        trigger.state = start;
        EXPECT_EQ(trigger.gesture_trigger(4.0F, 0.05F, 1.0F, 3.0F, 1.0F, 0.1F), kNo);
        EXPECT_EQ(trigger.state, 0) << "from " << start;
    }
}

}  // namespace
