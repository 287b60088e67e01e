// The shared gesture signals on known input: copies, magnitudes, histories,
// the two 57-tap filters and the motion level.

#include "gestures/feature_pipeline.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "imu/gestures.h"

namespace {

using Kernel = std::array<double, 57>;

// The coefficients 0 to 28 of the two kernels; 29 to 56 mirror them.
constexpr double kHalfA[29] = {
    -0.00148406608, 0.00524701523,   -0.00644657208, -0.000571625231, 0.00899671203,
    -0.00590402938, -0.00312767784,  0.000179159443, 0.00911784967,   -0.00338989378,
    -0.00787924239, -0.000832597718, 0.0131191651,   0.000813817177,  -0.0142655976,
    -0.00604745089, 0.0190538471,    0.0102261498,   -0.021313546,    -0.019444375,
    0.0254022099,   0.0313817234,    -0.0275397836,  -0.0535178008,   0.0303059791,
    0.0993533719,   -0.0312189516,   -0.316319647,   0.532150423};
constexpr double kHalfB[29] = {
    3.07777334e-05, 0.000483009006, -0.00221366763, 0.00533043021,  -0.00846129761, 0.00892559243,
    -0.00480308252, -0.00246097468, 0.00778684451,  -0.00613221106, -0.00223560114, 0.0101820818,
    -0.00909368742, -0.00229568055, 0.0143349096,   -0.0138475835,  -0.00230904016, 0.0207258843,
    -0.0213379125,  -0.00228045533, 0.0313973219,   -0.0345439331,  -0.00222372776, 0.0535263434,
    -0.0656353894,  -0.00217957077, 0.137814239,    -0.274030181,   0.331172309};

Kernel full(const double (&half)[29]) {
    Kernel k{};
    for (int i = 0; i < 29; ++i) {
        k[i] = half[i];
        k[56 - i] = half[i];
    }
    return k;
}

struct Sample {
    IMU imu{};
    SFC_OUT out{};
};

void update(Sample& s, int dt_us = 5000) { sfc_update_gesture(&s.imu, &s.out, dt_us); }

void set3(float* v, float x, float y, float z) {
    v[0] = x;
    v[1] = y;
    v[2] = z;
}

TEST(FeaturePipeline, KernelsHoldTheSymmetricCoefficients) {
    const Kernel a = full(kHalfA);
    const Kernel b = full(kHalfB);
    for (int k = 0; k < 57; ++k) {
        EXPECT_EQ(imu::kKernelA[k], a[k]) << "A k=" << k;
        EXPECT_EQ(imu::kKernelB[k], b[k]) << "B k=" << k;
    }
}

// A unit impulse anywhere in the history picks out one coefficient: the
// newest value (index 56) meets coefficient 0.
TEST(FeaturePipeline, KernelOfAnImpulseIsOneCoefficient) {
    for (int p = 0; p < 57; ++p) {
        float history[57] = {};
        history[p] = 1.0F;
        EXPECT_EQ(imu::apply_kernel(imu::kKernelA, history),
                  static_cast<float>(imu::kKernelA[56 - p]));
        EXPECT_EQ(imu::apply_kernel(imu::kKernelB, history),
                  static_cast<float>(imu::kKernelB[56 - p]));
    }
}

// A rate impulse of (1, -2, 0.5) rad/s at the first update: after update k
// each filtered axis holds coefficient k-1 scaled by the impulse (powers of
// two scale exactly); after 57 updates the impulse has left the history.
TEST(FeaturePipeline, RateImpulseReproducesBothKernelsOnEveryAxis) {
    const Kernel a = full(kHalfA);
    const Kernel b = full(kHalfB);
    const float scale[3] = {1.0F, -2.0F, 0.5F};
    Sample s;
    for (int k = 1; k <= 58; ++k) {
        if (k == 1) {
            set3(s.imu.gyro, scale[0], scale[1], scale[2]);
        } else {
            set3(s.imu.gyro, 0.0F, 0.0F, 0.0F);
        }
        update(s);
        for (int axis = 0; axis < 3; ++axis) {
            const float want_a = k <= 57 ? scale[axis] * static_cast<float>(a[k - 1]) : 0.0F;
            const float want_b = k <= 57 ? scale[axis] * static_cast<float>(b[k - 1]) : 0.0F;
            EXPECT_EQ(w_filtered[axis], want_a) << "A axis " << axis << " update " << k;
            EXPECT_EQ(w_filtered_h[axis], want_b) << "B axis " << axis << " update " << k;
        }
        if (k <= 57) {
            EXPECT_NEAR(w_filtered_mag, std::fabs(a[k - 1]) * std::sqrt(5.25), 1e-6) << k;
            EXPECT_NEAR(w_filtered_mag_h, std::fabs(b[k - 1]) * std::sqrt(5.25), 1e-6) << k;
        }
    }
}

// Products in double, running sum in single precision: on this input the
// three plausible ways of summing give three different floats.
TEST(FeaturePipeline, FiltersSumDoubleProductsInSinglePrecision) {
    Sample s;
    for (int k = 0; k < 57; ++k) {
        const float v =
            9.0F * std::sin(0.3F * static_cast<float>(k * k)) + 0.001F * static_cast<float>(k);
        set3(s.imu.gyro, v, 0.0F, 0.0F);
        set3(s.imu.acc, 0.0F, v, 9.0F);
        update(s);
    }
    float float_sum = 0.0F;
    double double_sum = 0.0;
    float float_products = 0.0F;
    for (int j = 0; j < 57; ++j) {
        const double product = imu::kKernelA[j] * static_cast<double>(wx_raw[56 - j]);
        float_sum = static_cast<float>(static_cast<double>(float_sum) + product);
        double_sum += product;
        float_products += static_cast<float>(imu::kKernelA[j]) * wx_raw[56 - j];
    }
    ASSERT_NE(float_sum, static_cast<float>(double_sum));
    ASSERT_NE(float_sum, float_products);
    EXPECT_EQ(w_filtered[0], float_sum);
    // The acceleration filters run the same arithmetic on a_raw.
    EXPECT_EQ(a_filtered, imu::apply_kernel(imu::kKernelA, a_raw));
    EXPECT_EQ(a_filtered_h, imu::apply_kernel(imu::kKernelB, a_raw));
    EXPECT_NE(a_filtered, 0.0F);
}

TEST(FeaturePipeline, SignalsCopyAndMeasureTheRecords) {
    Sample s;
    set3(s.imu.acc, 3.0F, -4.0F, 12.0F);
    set3(s.imu.gyro, -2.0F, 3.0F, -6.0F);
    set3(s.imu.proximity, 5.0F, 0.0F, 0.0F);
    set3(s.out.gravity, -1.5F, 2.5F, -9.0F);
    set3(s.out.global_acc, 0.25F, -0.5F, -1.0F);
    update(s, 5000);

    const float* const copied[] = {imu_g.acc, imu_g.gyro, imu_g.proximity};
    const float* const given[] = {s.imu.acc, s.imu.gyro, s.imu.proximity};
    for (int f = 0; f < 3; ++f) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(copied[f][k], given[f][k]) << "field " << f << " axis " << k;
        }
    }
    EXPECT_EQ(comp_acc, 13.0F);
    EXPECT_EQ(comp_gyro, 7.0F);
    EXPECT_EQ(dt_g, 0.005F);
    const float want_gravity[3] = {-1.5F, 2.5F, -9.0F};
    const float want_gravity_abs[3] = {1.5F, 2.5F, 9.0F};
    const float want_gyro_abs[3] = {2.0F, 3.0F, 6.0F};
    const float want_global[3] = {0.25F, -0.5F, 0.0F};  // z + 1
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(gravity_g[k], want_gravity[k]) << k;
        EXPECT_EQ(gravity_g_abs[k], want_gravity_abs[k]) << k;
        EXPECT_EQ(gyro_g_abs[k], want_gyro_abs[k]) << k;
        EXPECT_EQ(global_acc[k], want_global[k]) << k;
    }
    EXPECT_EQ(acc_static_level_g, 0.0F);
}

// Newest at 56, oldest at 0; the first updates leave zeros in front.
TEST(FeaturePipeline, HistoriesShiftTowardIndexZero) {
    Sample s;
    for (int k = 1; k <= 60; ++k) {
        const auto v = static_cast<float>(k);
        set3(s.imu.acc, v, 2.0F * v, 0.0F);
        set3(s.imu.gyro, 0.0F, -v, 0.0F);
        update(s);
        if (k == 3) {
            for (int i = 0; i < 54; ++i) {
                ASSERT_EQ(ax_raw[i], 0.0F) << i;
                ASSERT_EQ(wy_raw[i], 0.0F) << i;
            }
            EXPECT_EQ(ax_raw[54], 1.0F);
            EXPECT_EQ(ax_raw[56], 3.0F);
            EXPECT_EQ(ay_raw[55], 4.0F);
            EXPECT_EQ(wy_raw[56], -3.0F);
        }
    }
    EXPECT_EQ(ax_raw[0], 4.0F);  // update 4 is the oldest after 60
    EXPECT_EQ(ax_raw[56], 60.0F);
    EXPECT_EQ(az_raw[30], 0.0F);
    EXPECT_EQ(wx_raw[56], 0.0F);
    EXPECT_EQ(wz_raw[56], 0.0F);
    EXPECT_EQ(w_raw[56], 60.0F);
    EXPECT_EQ(w_raw[0], 4.0F);
    // a_raw is |acc| - 9.8066, the subtraction in double.
    const double acc60 = std::sqrt(60.0 * 60.0 + 120.0 * 120.0);
    EXPECT_EQ(a_raw[56],
              static_cast<float>(static_cast<double>(static_cast<float>(acc60)) - 9.8066));
}

// s = 1 / 0.00002 / 1.096622 / 3 = 15198.19 for 1 rad/s; the level is the
// mean over 30 of the mean over 35, so it reaches s on update 64 exactly.
TEST(FeaturePipeline, MotionLevelOfASteadyTurnReachesItsStatisticAfter64Updates) {
    const double s_steady = 1.0 / 0.00002 / 1.096622 / 3.0;
    Sample s;
    set3(s.imu.gyro, 0.0F, 0.0F, 1.0F);
    for (int k = 1; k <= 63; ++k) {
        update(s);
    }
    // One mean of 30 still holds m35 of update 34: 34/35 s.
    EXPECT_NEAR(gyro_static_level_g, s_steady * (1.0 - 1.0 / 1050.0), 0.5);
    update(s);
    EXPECT_NEAR(gyro_static_level_g, 15198.19, 0.5);
    update(s);
    EXPECT_NEAR(gyro_static_level_g, 15198.19, 0.5);

    set3(s.imu.gyro, 0.0F, 0.0F, 0.0F);
    for (int k = 1; k <= 64; ++k) {
        update(s);
    }
    EXPECT_NEAR(gyro_static_level_g, 0.0, 0.05) << "a still phone decays to 0";
}

TEST(FeaturePipeline, MotionLevelRampsAsTheMeansFill) {
    imu::MotionLevel level;
    const float gyro[3] = {1.0F, 0.0F, 0.0F};
    const double s_steady = 1.0 / 0.00002 / 1.096622 / 3.0;
    float after35 = 0.0F;
    for (int k = 1; k <= 35; ++k) {
        after35 = level.update(gyro);
    }
    // m35 rises by s/35 per update; from update 31 on, the means of updates
    // 1, 2, ... leave the 30-wide window: level = sum of k s/35 for k = 6..35, / 30.
    EXPECT_NEAR(after35, s_steady * 615.0 / 35.0 / 30.0, 0.1);
}

TEST(FeaturePipeline, NullRecordsLeaveTheSignalsAsTheyWere) {
    Sample s;
    set3(s.imu.acc, 0.0F, 0.0F, 9.0F);
    update(s);
    IMU imu{};
    SFC_OUT out{};
    sfc_update_gesture(nullptr, &out, 5000);
    sfc_update_gesture(&imu, nullptr, 5000);
    EXPECT_EQ(comp_acc, 9.0F);
    EXPECT_EQ(az_raw[56], 9.0F);
    EXPECT_EQ(az_raw[55], 0.0F);
    EXPECT_EQ(dt_g, 0.005F);
}

}  // namespace
