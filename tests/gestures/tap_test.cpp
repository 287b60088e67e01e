// Double-tap detectors: physical recordings through the gesture pipeline,
// and every state transition with the shared signals set directly.

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "gestures/taps.h"
#include "imu/gestures.h"
#include "support/activity_sequences.h"

namespace {

using imu::test::ActivityRecording;
using imu::test::kActivityDtS;

enum class Detector { kHand, kDesk, kPocket };

int call(Detector d, float* out) {
    switch (d) {
        case Detector::kHand:
            return sfc_get_tap(out);
        case Detector::kDesk:
            return sfc_get_tap_desk(out);
        case Detector::kPocket:
        default:
            return sfc_get_tap_pocket(out);
    }
}

int state_of(Detector d) {
    switch (d) {
        case Detector::kHand:
            return imu::hand_tap().tap_state;
        case Detector::kDesk:
            return imu::desk_tap().tap_desk_state;
        case Detector::kPocket:
        default:
            return imu::pocket_tap().tap_pocket_state;
    }
}

struct RunResult {
    std::vector<double> recognised_at_s;  // times of out[2] == 1.0
    std::set<int> states;                 // every state the detector passed through
};

RunResult run(Detector d, const ActivityRecording& frames) {
    RunResult r;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        imu::test::feed_pipeline(frames[i]);
        float out[3] = {9.0F, 9.0F, 9.0F};
        EXPECT_EQ(call(d, out), 0);
        EXPECT_EQ(out[0], 0.0F);
        EXPECT_EQ(out[1], 0.0F);
        if (out[2] == 1.0F) {
            r.recognised_at_s.push_back(static_cast<double>(i) * kActivityDtS);
        } else {
            EXPECT_EQ(out[2], 0.0F);
        }
        r.states.insert(state_of(d));
    }
    return r;
}

std::string describe(const RunResult& r) {
    std::string s = "states:";
    for (int st : r.states) {
        s += " " + std::to_string(st);
    }
    return s;
}

// ---- recordings: each detector sees its double tap once ----

constexpr double kGapS = 0.25;

// GIVEN two taps 0.25 s apart WHEN the detector runs THEN it reports one
// double tap, after the second tap's burst has passed the filter and the
// motion has settled (well within 0.6 s of the second tap).
TEST(TapRecording, HandDoubleTapIsRecognisedOnce) {
    const auto rec = imu::test::hand_double_tap(kGapS);
    const RunResult r = run(Detector::kHand, rec.frames);
    ASSERT_EQ(r.recognised_at_s.size(), 1U) << describe(r);
    EXPECT_GT(r.recognised_at_s[0], rec.first_tap_s + kGapS);
    EXPECT_LT(r.recognised_at_s[0], rec.first_tap_s + kGapS + 0.6);
    // The attempt opened on the rising level: the flag followed it and
    // fell back once the motion settled.
    EXPECT_EQ(gyro_static_state, 0);
}

TEST(TapRecording, DeskDoubleTapIsRecognisedOnce) {
    const auto rec = imu::test::desk_double_tap(kGapS);
    const RunResult r = run(Detector::kDesk, rec.frames);
    ASSERT_EQ(r.recognised_at_s.size(), 1U) << describe(r);
    EXPECT_GT(r.recognised_at_s[0], rec.first_tap_s + kGapS);
    EXPECT_LT(r.recognised_at_s[0], rec.first_tap_s + kGapS + 0.6);
}

TEST(TapRecording, PocketDoubleTapIsRecognisedOnce) {
    const auto rec = imu::test::pocket_double_tap(kGapS);
    const RunResult r = run(Detector::kPocket, rec.frames);
    ASSERT_EQ(r.recognised_at_s.size(), 1U) << describe(r);
    EXPECT_GT(r.recognised_at_s[0], rec.first_tap_s + kGapS);
    EXPECT_LT(r.recognised_at_s[0], rec.first_tap_s + kGapS + 0.6);
}

// ---- recordings: near misses are refused with their failure state ----

struct NearMiss {
    const char* name;
    Detector detector;
    std::function<ActivityRecording()> record;
    int failure;  // the state the attempt must end in
};

void PrintTo(const NearMiss& c, std::ostream* os) { *os << c.name; }

class TapNearMiss : public ::testing::TestWithParam<NearMiss> {};

TEST_P(TapNearMiss, IsRefusedWithItsFailureState) {
    const NearMiss& c = GetParam();
    const RunResult r = run(c.detector, c.record());
    EXPECT_TRUE(r.recognised_at_s.empty()) << c.name;
    EXPECT_EQ(r.states.count(c.failure), 1U) << c.name << ", " << describe(r);
}

INSTANTIATE_TEST_SUITE_P(
    Recordings, TapNearMiss,
    ::testing::Values(
        // Second tap 0.8 s after the first: the second-tap window (0.5 s) closes.
        NearMiss{"hand_far_apart", Detector::kHand,
                 [] { return imu::test::hand_double_tap(0.8).frames; }, imu::kHandSecondLate},
        // Twists about z are no taps: the z peak exceeds the x peak.
        NearMiss{"hand_z_dominant", Detector::kHand,
                 [] { return imu::test::hand_double_tap(kGapS, true).frames; },
                 imu::kHandFirstZAxis},
        NearMiss{"desk_far_apart", Detector::kDesk,
                 [] { return imu::test::desk_double_tap(0.7).frames; }, imu::kDeskSecondLate},
        // The hand's strong taps lift the level far above what a desk allows.
        NearMiss{
            "desk_strong_taps", Detector::kDesk,
            [] {
                imu::test::ActivityScript s(imu::test::Carry::kFlat);
                return s.hold(1.0).tap(2.0, 0, 3.0).hold(0.2).tap(2.0, 0, 3.0).hold(1.0).frames();
            },
            imu::kDeskSecondTooStrong},
        NearMiss{"pocket_far_apart", Detector::kPocket,
                 [] { return imu::test::pocket_double_tap(0.6).frames; }, imu::kPocketLate},
        NearMiss{"pocket_out_of_range", Detector::kPocket,
                 [] { return imu::test::pocket_double_tap(kGapS, true).frames; },
                 imu::kPocketOutOfRange},
        NearMiss{"pocket_z_dominant", Detector::kPocket,
                 [] { return imu::test::pocket_double_tap(kGapS, false, true).frames; },
                 imu::kPocketZAxis}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- the slot convention ----

TEST(TapSlot, NullSlotIsRefusedByEveryDetector) {
    dt_g = 0.005F;
    for (Detector d : {Detector::kHand, Detector::kDesk, Detector::kPocket}) {
        EXPECT_EQ(call(d, nullptr), -22);
    }
}

// With no time passed the hand and desk detectors leave the slot as it was;
// the pocket detector has no such rule and clears it.
TEST(TapSlot, ZeroCycleTimeLeavesHandAndDeskSlotsUntouched) {
    dt_g = 0.0F;
    float hand[3] = {1.0F, 2.0F, 3.0F};
    float desk[3] = {1.0F, 2.0F, 3.0F};
    float pocket[3] = {1.0F, 2.0F, 3.0F};
    EXPECT_EQ(sfc_get_tap(hand), 0);
    EXPECT_EQ(sfc_get_tap_desk(desk), 0);
    EXPECT_EQ(sfc_get_tap_pocket(pocket), 0);
    EXPECT_EQ(hand[2], 3.0F);
    EXPECT_EQ(desk[2], 3.0F);
    EXPECT_EQ(imu::hand_tap().tap_timer, 0.0F);
    EXPECT_EQ(pocket[0], 0.0F);
    EXPECT_EQ(pocket[2], 0.0F);
}

// ---- the peak tracker ----

// P' = P (0.005 + k dt - dt) / 0.005: at dt = 5 ms the peak keeps k of itself.
TEST(TapPeak, DecaysByItsFactorAndJumpsToAHigherInput) {
    EXPECT_NEAR(imu::decayed_peak(1.0F, 0.5F, 0.85, 0.005F), 0.85F, 1e-6F);
    EXPECT_NEAR(imu::decayed_peak(1.0F, 0.5F, 0.9, 0.005F), 0.9F, 1e-6F);
    EXPECT_NEAR(imu::decayed_peak(1.0F, 0.0F, 0.85, 0.01F), 0.7F, 1e-6F);  // 30 dt
    EXPECT_EQ(imu::decayed_peak(1.0F, 1.5F, 0.85, 0.005F), 1.5F);
    EXPECT_EQ(imu::decayed_peak(1.0F, 1.0F, 0.85, 0.0F), 1.0F);  // no time, no decay
}

}  // namespace
