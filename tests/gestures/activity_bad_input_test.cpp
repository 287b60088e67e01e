// Non-finite and huge signals: every activity detector keeps to its slot
// convention and its output values, and nothing crashes.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "imu/gestures.h"

namespace {

void set_signals(float v) {
    gyro_static_level_g = v;
    w_filtered_mag = v;
    w_filtered_mag_h = v;
    comp_acc = v;
    comp_gyro = v;
    for (int k = 0; k < 3; ++k) {
        w_filtered[k] = v;
        global_acc[k] = v;
        gravity_g_abs[k] = v;
    }
    dt_g = 0.005F;
}

struct Detector {
    const char* name;
    int (*fn)(float*);
    std::set<float> third_values;  // what out[2] may hold
};

TEST(ActivityBadInput, NonFiniteSignalsKeepTheSlotConvention) {
    const float inf = std::numeric_limits<float>::infinity();
    const Detector detectors[] = {
        {"tap", sfc_get_tap, {0.0F, 1.0F}},
        {"tap_desk", sfc_get_tap_desk, {0.0F, 1.0F}},
        {"tap_pocket", sfc_get_tap_pocket, {0.0F, 1.0F}},
        {"pedometer", sfc_get_pedometer, {0.0F, 1.0F, 5.0F}},
        {"motion_detection", sfc_get_motion_detection, {0.0F, 1.0F, 2.0F}},
    };
    for (const float v : {std::nanf(""), inf, -inf, 1e30F, -1e30F, 0.0F, 9.8066F}) {
        for (int call = 0; call < 50; ++call) {
            set_signals(v);
            for (const Detector& d : detectors) {
                float out[3] = {7.0F, 7.0F, 7.0F};
                ASSERT_EQ(d.fn(out), 0) << d.name << " v=" << v;
                EXPECT_EQ(out[0], 0.0F) << d.name << " v=" << v;
                EXPECT_EQ(d.third_values.count(out[2]), 1U) << d.name << " v=" << v;
            }
            float angles[2] = {v, -v};
            imu_motion_detect(angles);
            EXPECT_GE(motion.count, 0);
        }
    }
}

}  // namespace
