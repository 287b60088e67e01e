// The shared gesture signals on known input: copies, histories, the two
// 57-tap filters and the motion level.

#include "gestures/feature_pipeline.h"

#include <gtest/gtest.h>

#include <cmath>

#include "imu/gestures.h"

namespace {

// Coefficients 0 to 28 of the two kernels; 29 to 56 mirror them.
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

double coefficient(const double (&half)[29], int k) { return half[k < 29 ? k : 56 - k]; }

struct Sample {
    IMU imu{};
    SFC_OUT out{};
    static void set(float* v, float x, float y, float z) {
        v[0] = x;
        v[1] = y;
        v[2] = z;
    }
    void update() { sfc_update_gesture(&imu, &out, 5000); }
};

// A rate impulse of (1, -2, 0.5) rad/s: after update k each filtered axis
// holds coefficient k-1 scaled exactly (powers of two); after 57 it is gone.
TEST(FeaturePipeline, RateImpulseReproducesBothKernelsOnEveryAxis) {
    const float scale[3] = {1.0F, -2.0F, 0.5F};
    Sample s;
    for (int k = 1; k <= 58; ++k) {
        const float on = k == 1 ? 1.0F : 0.0F;
        Sample::set(s.imu.gyro, on * scale[0], on * scale[1], on * scale[2]);
        s.update();
        const double a = k <= 57 ? coefficient(kHalfA, k - 1) : 0.0;
        const double b = k <= 57 ? coefficient(kHalfB, k - 1) : 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(w_filtered[axis], scale[axis] * static_cast<float>(a)) << axis << " " << k;
            EXPECT_EQ(w_filtered_h[axis], scale[axis] * static_cast<float>(b)) << axis << " " << k;
        }
        EXPECT_NEAR(w_filtered_mag, std::fabs(a) * std::sqrt(5.25), 1e-6) << k;
        EXPECT_NEAR(w_filtered_mag_h, std::fabs(b) * std::sqrt(5.25), 1e-6) << k;
    }
}

// Products in double, running sum in single precision: on this input the
// three plausible ways of summing give three different floats.
TEST(FeaturePipeline, FiltersSumDoubleProductsInSinglePrecision) {
    Sample s;
    for (int k = 0; k < 57; ++k) {
        const float v =
            9.0F * std::sin(0.3F * static_cast<float>(k * k)) + 0.001F * static_cast<float>(k);
        Sample::set(s.imu.gyro, v, 0.0F, 0.0F);
        Sample::set(s.imu.acc, 0.0F, v, 9.0F);
        s.update();
    }
    float float_sum = 0.0F;
    double double_sum = 0.0;
    float float_products = 0.0F;
    for (int j = 0; j < 57; ++j) {
        const double product = coefficient(kHalfA, j) * static_cast<double>(wx_raw[56 - j]);
        float_sum = static_cast<float>(static_cast<double>(float_sum) + product);
        double_sum += product;
        float_products += static_cast<float>(coefficient(kHalfA, j)) * wx_raw[56 - j];
    }
    ASSERT_NE(float_sum, static_cast<float>(double_sum));
    ASSERT_NE(float_sum, float_products);
    EXPECT_EQ(w_filtered[0], float_sum);
    EXPECT_EQ(a_filtered, imu::apply_kernel(imu::kKernelA, a_raw));
    EXPECT_EQ(a_filtered_h, imu::apply_kernel(imu::kKernelB, a_raw));
}

// Copies and magnitudes of the records (global z offset by +1), and the
// histories: newest at 56, oldest at 0; a_raw is |acc| - 9.8066 in double.
// Null records leave the signals as they were.
TEST(FeaturePipeline, SignalsAndHistories) {
    Sample s;
    Sample::set(s.imu.acc, 3.0F, -4.0F, 12.0F);
    Sample::set(s.imu.gyro, -2.0F, 3.0F, -6.0F);
    Sample::set(s.out.gravity, -1.5F, 2.5F, -9.0F);
    Sample::set(s.out.global_acc, 0.25F, -0.5F, -1.0F);
    s.update();
    const float want[][3] = {{1.5F, 2.5F, 9.0F}, {2.0F, 3.0F, 6.0F}, {0.25F, -0.5F, 0.0F}};
    const float* got[] = {gravity_g_abs, gyro_g_abs, global_acc};
    for (int f = 0; f < 3; ++f) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(got[f][k], want[f][k]) << "signal " << f << " axis " << k;
        }
    }
    EXPECT_TRUE(comp_acc == 13.0F && comp_gyro == 7.0F && dt_g == 0.005F);
    for (int k = 1; k <= 60; ++k) {
        const auto v = static_cast<float>(k);
        Sample::set(s.imu.acc, v, 2.0F * v, 0.0F);
        Sample::set(s.imu.gyro, 0.0F, -v, 0.0F);
        s.update();
    }
    EXPECT_TRUE(ax_raw[0] == 4.0F && ax_raw[55] == 59.0F && ay_raw[56] == 120.0F);
    EXPECT_TRUE(wy_raw[56] == -60.0F && w_raw[0] == 4.0F && w_raw[56] == 60.0F);
    const double acc60 = std::sqrt(60.0 * 60.0 + 120.0 * 120.0);
    EXPECT_EQ(a_raw[56],
              static_cast<float>(static_cast<double>(static_cast<float>(acc60)) - 9.8066));
    sfc_update_gesture(nullptr, &s.out, 5000);  // null records change nothing
    sfc_update_gesture(&s.imu, nullptr, 7000);
    EXPECT_TRUE(ax_raw[56] == 60.0F && ax_raw[55] == 59.0F && dt_g == 0.005F);
}

// s = 1 / 0.00002 / 1.096622 / 3 = 15198.19 for 1 rad/s; the level is the
// mean over 30 of the mean over 35, so it reaches s on update 64 exactly.
TEST(FeaturePipeline, MotionLevelOfASteadyTurnReachesItsStatisticAfter64Updates) {
    Sample s;
    Sample::set(s.imu.gyro, 0.0F, 0.0F, 1.0F);
    for (int k = 1; k <= 63; ++k) {
        s.update();
    }
    EXPECT_NEAR(gyro_static_level_g, 15198.19 * (1.0 - 1.0 / 1050.0), 0.5);
    s.update();
    EXPECT_NEAR(gyro_static_level_g, 15198.19, 0.5);
    Sample::set(s.imu.gyro, 0.0F, 0.0F, 0.0F);
    for (int k = 1; k <= 64; ++k) {
        s.update();
    }
    EXPECT_NEAR(gyro_static_level_g, 0.0, 0.05) << "a still phone decays to 0";
}

}  // namespace
