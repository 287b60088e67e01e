// The double-tap detectors on recordings through the gesture pipeline: each
// recognises its double tap once and refuses the near misses.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "gestures/taps.h"
#include "imu/gestures.h"
#include "sim/activity_sequences.h"

namespace {

using imu::test::TapRecording;

enum Det { kHand, kDesk, kPocket };

struct Row {
    const char* name;
    Det d;
    TapRecording (*record)();
    int failure;  // the state the attempt must pass through; 1: recognised
};

class TapRecordingTest : public ::testing::TestWithParam<Row> {};

TEST_P(TapRecordingTest, RecognisesOnceOrFailsInItsState) {
    const Row& c = GetParam();
    const TapRecording rec = c.record();
    std::set<int> states;
    std::vector<double> hits_s;
    for (std::size_t i = 0; i < rec.frames.size(); ++i) {
        imu::test::feed_pipeline(rec.frames[i]);
        float out[3] = {9.0F, 9.0F, 9.0F};
        ASSERT_EQ(c.d == kHand ? sfc_get_tap(out) : c.d == kDesk ? sfc_get_tap_desk(out)
                                                                 : sfc_get_tap_pocket(out), 0);
        ASSERT_TRUE(out[0] + out[1] == 0.0F && (out[2] == 0.0F || out[2] == 1.0F)) << out[2];
        if (out[2] == 1.0F) {
            hits_s.push_back(static_cast<double>(i) * imu::test::kActivityDtS);
        }
        states.insert(c.d == kHand   ? imu::hand_tap().tap_state
                      : c.d == kDesk ? imu::desk_tap().tap_desk_state
                                     : imu::pocket_tap().tap_pocket_state);
    }
    if (c.failure != 1) {
        EXPECT_TRUE(hits_s.empty());
        EXPECT_EQ(states.count(c.failure), 1U);
        return;
    }
    // After the second tap (0.25 s on) has settled, well within 0.6 s of it.
    ASSERT_EQ(hits_s.size(), 1U);
    EXPECT_GT(hits_s[0], rec.first_tap_s + 0.25);
    EXPECT_LT(hits_s[0], rec.first_tap_s + 0.85);
    EXPECT_EQ(gyro_static_state, 0);  // followed the level down again
}

using imu::test::desk_double_tap;
using imu::test::hand_double_tap;
using imu::test::pocket_double_tap;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Recordings, TapRecordingTest, ::testing::Values(
    Row{"hand", kHand, [] { return hand_double_tap(0.25); }, 1},
    Row{"desk", kDesk, [] { return desk_double_tap(0.25); }, 1},
    Row{"pocket", kPocket, [] { return pocket_double_tap(0.25); }, 1},
    // The second-tap window (0.5 s in the hand) closes before the tap.
    Row{"hand_far_apart", kHand, [] { return hand_double_tap(0.8); }, imu::kHandSecondLate},
    // Twists about z are no taps.
    Row{"hand_z_dominant", kHand, [] { return hand_double_tap(0.25, true); }, imu::kHandFirstZAxis},
    Row{"desk_far_apart", kDesk, [] { return desk_double_tap(0.7); }, imu::kDeskSecondLate},
    // The hand's strong taps lift the level far above what a desk allows.
    Row{"desk_strong_taps", kDesk, [] {
            imu::test::ActivityScript s(imu::test::Carry::kFlat);
            return TapRecording{
                s.hold(1.0).tap(2.0, 0, 3.0).hold(0.2).tap(2.0, 0, 3.0).hold(1.0).frames(), 1.0};
        }, imu::kDeskSecondTooStrong},
    Row{"pocket_far_apart", kPocket, [] { return pocket_double_tap(0.6); }, imu::kPocketLate},
    Row{"pocket_out_of_range", kPocket, [] { return pocket_double_tap(0.25, true); },
        imu::kPocketOutOfRange},
    Row{"pocket_z_dominant", kPocket, [] { return pocket_double_tap(0.25, false, true); },
        imu::kPocketZAxis}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
