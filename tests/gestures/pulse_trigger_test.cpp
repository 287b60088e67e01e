// The pulse recogniser: every transition of its state machine, driven by
// short value sequences with known outcomes.

#include <gtest/gtest.h>

#include <vector>

#include "imu/gestures.h"

namespace {

constexpr int kNo = -22;

struct Call {
    float value;
    int state;   // state after the call
    int result;  // 0 only in the call that completes a pulse within the limits
};

struct TriggerCase {
    const char* name;
    float step;
    float min_total;
    std::vector<Call> calls;
    float final_total;
};

// low 1, high 3, max_total 1.0; min_total per case.
TEST(PulseTrigger, FollowsItsTransitions) {
    const TriggerCase cases[] = {
        {"rise through the band, fall below low in time",
         0.05F,
         0.1F,
         {{0.5F, 0, kNo}, {2.0F, 1, kNo}, {4.0F, 2, kNo}, {4.0F, 2, kNo}, {0.5F, 0, 0}},
         0.15F},
        {"jump from below low straight above high",
         0.05F,
         0.1F,
         {{0.5F, 0, kNo}, {4.0F, 2, kNo}},
         0.0F},
        {"inside the band, then exactly high",
         0.05F,
         0.1F,
         {{2.0F, 1, kNo}, {3.0F, 0, kNo}},
         0.05F},
        {"above the band, then exactly high", 0.05F, 0.1F, {{4.0F, 2, kNo}, {3.0F, 0, kNo}}, 0.05F},
        {"above the band, then exactly low is not below",
         0.05F,
         0.1F,
         {{4.0F, 2, kNo}, {1.0F, 0, kNo}},
         0.05F},
        {"back into the band from above stays above",
         0.06F,
         0.1F,
         {{4.0F, 2, kNo}, {2.0F, 2, kNo}, {0.0F, 0, 0}},
         0.12F},
        {"inside the band and back below low is no pulse",
         0.05F,
         0.1F,
         {{2.0F, 1, kNo}, {2.0F, 1, kNo}, {0.5F, 0, kNo}},
         0.1F},
        {"ended before min_total waits in 4, then completes too short",
         0.02F,
         0.1F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {0.5F, 0, kNo}},
         0.04F},
        {"ended early, completed by the next value below low",
         0.06F,
         0.1F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {0.5F, 0, 0}},
         0.12F},
        {"ended early, rises again and completes in time",
         0.04F,
         0.1F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {4.0F, 2, kNo}, {0.5F, 0, 0}},
         0.12F},
        {"ended early, back into the band",
         0.02F,
         0.1F,
         {{4.0F, 2, kNo}, {0.5F, 4, kNo}, {2.0F, 2, kNo}},
         0.04F},
        {"total equal to min_total falls back to idle",
         0.1F,
         0.1F,
         {{4.0F, 2, kNo}, {0.5F, 0, kNo}},
         0.1F},
        {"total beyond max_total completes without firing",
         0.5F,
         0.1F,
         {{4.0F, 2, kNo}, {4.0F, 2, kNo}, {4.0F, 2, kNo}, {0.5F, 0, kNo}},
         1.5F},
    };
    for (const TriggerCase& c : cases) {
        sfc_gesture_trigger trigger;
        for (size_t i = 0; i < c.calls.size(); ++i) {
            const Call& call = c.calls[i];
            const int result =
                trigger.gesture_trigger(call.value, c.step, 1.0F, 3.0F, 1.0F, c.min_total);
            EXPECT_EQ(trigger.state, call.state) << c.name << ", call " << i;
            EXPECT_EQ(result, call.result) << c.name << ", call " << i;
        }
        EXPECT_FLOAT_EQ(trigger.total, c.final_total) << c.name;
    }
}

// A completed pulse is never kept: state 3 and unknown states restart at 0.
TEST(PulseTrigger, CompletedAndUnknownStatesRestart) {
    for (int start : {3, 5, -1, 1000}) {
        sfc_gesture_trigger trigger;
        trigger.state = start;
        trigger.total = 0.7F;
        EXPECT_EQ(trigger.gesture_trigger(4.0F, 0.05F, 1.0F, 3.0F, 1.0F, 0.1F), kNo);
        EXPECT_EQ(trigger.state, 0) << "from " << start;
        EXPECT_FLOAT_EQ(trigger.total, 0.7F) << "from " << start;
    }
}

TEST(PulseTrigger, StartsIdleWithNothingAccumulated) {
    const sfc_gesture_trigger trigger;
    EXPECT_EQ(trigger.state, 0);
    EXPECT_EQ(trigger.total, 0.0F);
}

}  // namespace
