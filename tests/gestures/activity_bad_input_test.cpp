// Bad input to the activity detectors: no slot, no time, non-finite and huge
// signals, tilt flags out of range. Each gets a defined answer.

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <set>

#include "imu/gestures.h"

namespace {

const struct Detector {
    const char* name;
    int (*fn)(float*);
    std::set<float> third_values;  // what out[2] may hold
    bool keeps_slot_without_time;  // dt 0: the slot is left as it was
} kDetectors[] = {
    {"tap", sfc_get_tap, {0.0F, 1.0F}, true},
    {"tap_desk", sfc_get_tap_desk, {0.0F, 1.0F}, true},
    {"tap_pocket", sfc_get_tap_pocket, {0.0F, 1.0F}, false},
    {"pedometer", sfc_get_pedometer, {0.0F, 1.0F, 5.0F}, true},
    {"motion_detection", sfc_get_motion_detection, {0.0F, 1.0F, 2.0F}, false},
};

// No slot: -22. No time: the slot is left alone or holds a defined class.
TEST(ActivityBadInput, NullSlotAndZeroTime) {
    for (const Detector& d : kDetectors) {
        dt_g = 0.005F;
        EXPECT_EQ(d.fn(nullptr), -22) << d.name;
        dt_g = 0.0F;
        float out[3] = {1.0F, 2.0F, 3.0F};
        EXPECT_EQ(d.fn(out), 0) << d.name;
        EXPECT_TRUE(d.keeps_slot_without_time ? out[0] + out[2] == 4.0F
                                              : d.third_values.count(out[2]) == 1U)
            << d.name;
    }
}

TEST(ActivityBadInput, NonFiniteSignalsKeepTheSlotConvention) {
    for (const float v : {NAN, INFINITY, -INFINITY, 1e30F, -1e30F, 0.0F, 9.8066F}) {
        for (int call = 0; call < 50; ++call) {
            gyro_static_level_g = w_filtered_mag = w_filtered_mag_h = comp_acc = comp_gyro = v;
            for (int k = 0; k < 3; ++k) {
                w_filtered[k] = global_acc[k] = gravity_g_abs[k] = v;
            }
            dt_g = 0.005F;
            for (const Detector& d : kDetectors) {
                float out[3] = {7.0F, 7.0F, 7.0F};
                ASSERT_EQ(d.fn(out), 0) << d.name << " v=" << v;
                EXPECT_TRUE(out[0] == 0.0F && d.third_values.count(out[2]) == 1U)
                    << d.name << " v=" << v;
            }
            float angles[2] = {v, -v};
            imu_motion_detect(angles);
            EXPECT_GE(motion.count, 0);
        }
    }
}

TEST(ActivityBadInput, TiltNullAnglesAndFlagIndexOutOfRange) {
    float angles[2] = {0.0F, 20.0F};
    imu_motion_detect(angles);
    imu_motion_detect(nullptr);
    EXPECT_EQ(motion.count, 1);
    motion.flags[4] = 1;
    EXPECT_EQ(imu_motion_is_detected(4), 1);
    for (const int i : {5, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(imu_motion_is_detected(i), 0) << i;
    }
}

}  // namespace
