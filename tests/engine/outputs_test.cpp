// The getters: frame conversions, their -22 cases, the linear-acceleration
// high-pass, the compass heading's hysteresis and the whole record.

#include "engine/outputs.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <initializer_list>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;
using Getter = std::function<int(float*)>;

imu::PostureFilter& filter() { return imu::engine().filter; }

// Publishes filter quaternion q with down direction a, as an update would.
void publish(float q0, float q1, float q2, float q3, const float* a = nullptr) {
    const float q[4] = {q0, q1, q2, q3};
    const float p[16] = {};
    const float down[3] = {0, 0, 1};
    filter().publish(q, p, a != nullptr ? a : down, false);
    filter().output_valid = 1;
}

// Same value and sign bit.
void expect_bits(const float* got, std::initializer_list<float> want, const char* what) {
    for (std::size_t i = 0; i < want.size(); ++i) {
        const float w = want.begin()[i];
        EXPECT_TRUE(got[i] == w && std::signbit(got[i]) == std::signbit(w)) << what << i;
    }
}

// Filter quaternion (0.6, 0.8, 0, 0) reads (0.8, -0, -0, 0.6) in the device
// frame; its negative-scalar twin is flipped so that w >= 0. Yaw -30 reads
// as azimuth 330; all-zero angles are written (0, -0, 0) and refused.
TEST(Outputs, QuaternionRotationVectorAndEulerAngles) {
    const float cases[][5] = {{0.6F, 0.8F, -0.0F, -0.0F, 0.6F}, {-0.6F, -0.8F, 0.0F, 0.0F, 0.6F}};
    for (const auto& c : cases) {
        publish(c[0], 0.8F, 0, 0);
        float quat[4] = {};
        float rv[3] = {};
        EXPECT_EQ(sfc_get_quaternion(quat) + sfc_get_rotation_vector(rv), 0);
        expect_bits(quat, {c[1], c[2], c[3], c[4]}, "quat ");
        expect_bits(rv, {c[1], c[2], c[3]}, "rotation vector ");
        float raw[4] = {};
        get_quaternion(raw);
        EXPECT_TRUE(raw[0] == c[0] && raw[1] == 0.8F) << "filter frame, scalar first";
    }
    const float psi_theta_phi[3] = {-30.0F, 5.0F, 10.0F};
    std::memcpy(filter().out.euler, psi_theta_phi, sizeof psi_theta_phi);
    float e[3] = {};
    EXPECT_EQ(sfc_get_euler_angle(e), 0);
    expect_bits(e, {330.0F, -10.0F, 5.0F}, "euler ");
    std::memset(filter().out.euler, 0, sizeof filter().out.euler);
    EXPECT_EQ(sfc_get_euler_angle(e), -22);
    expect_bits(e, {0.0F, -0.0F, 0.0F}, "zero euler ");
    EXPECT_EQ(get_euler_angles(e), -22);
}

// Flat and still: gravity (-0, 0, 1) g, global (0, 0, -1), identity matrix,
// zero linear acceleration refused. The whole record gives gravity and
// linear acceleration in m/s^2, global in g.
TEST(Outputs, FlatPhoneVectorsAndWholeRecord) {
    publish(1, 0, 0, 0);
    float g[3] = {};
    float e[3] = {};
    float r[9] = {};
    EXPECT_EQ(sfc_get_gravity(g) + sfc_get_global_acceleration(e) + sfc_get_rotation_matrix(r), 0);
    expect_bits(g, {-0.0F, 0.0F, 1.0F}, "gravity ");
    expect_bits(e, {0.0F, 0.0F, -1.0F}, "global ");
    expect_bits(r, {1, 0, 0, 0, 1, 0, 0, 0, 1}, "matrix ");
    EXPECT_EQ(sfc_get_linear_acceleration(g), -22);
    const float a[3] = {0.0F, 0.0F, 0.5F};
    publish(1, 0, 0, 0, a);
    SFC_OUT out{};
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    EXPECT_EQ(out.gravity[2], 9.8066F);
    EXPECT_FLOAT_EQ(out.linear_acc[2], -0.5F * 0.95F * 9.8066F);
    EXPECT_TRUE(out.global_acc[2] == -0.5F && out.rotation_matrix[0] == 1.0F);
}

// The getter converts (l0, -l1, -l2) after a high-pass that subtracts the
// mean of the last 20 values, the new one included; it advances only when
// the output is valid. A not-a-number value leaves with the history.
TEST(Outputs, LinearAccelerationHighPass) {
    const float a[3] = {0.1F, 0.2F, 0.9F};
    publish(1, 0, 0, 0, a);
    float l[3] = {};
    ASSERT_EQ(sfc_get_linear_acceleration(l), 0);
    EXPECT_FLOAT_EQ(l[0], -0.1F * 0.95F);
    EXPECT_FLOAT_EQ(l[1], 0.2F * 0.95F);
    EXPECT_FLOAT_EQ(l[2], -0.1F * 0.95F);
    filter().output_valid = 0;
    float untouched[3] = {7, 7, 7};
    EXPECT_EQ(get_linear_acceleration(untouched), -22);
    EXPECT_EQ(untouched[0], 7.0F);
    EXPECT_FLOAT_EQ(imu::engine().outputs.mean[0], -0.1F / 20.0F) << "not advanced";
    imu::OutputFilters o;
    const float bad[3] = {NAN, 0.5F, 0.5F};
    o.high_pass(bad, l);
    for (int n = 2; n <= 21; ++n) {
        o.high_pass(a, l);
        ASSERT_EQ(std::isnan(l[0]), n < 21) << n;
    }
    EXPECT_NEAR(l[0] + l[1] + l[2], 0.0F, 1e-6F);
}

// From load (flat, armed): gz 0.70 switches to upright and disarms; 0.72
// stays (moved less than 0.1992); 0.90 switches back; 0.50 upright again.
// Flat, the heading is the top edge's azimuth; upright, the back's. Heading
// 0 with out[2] = 0 is refused; a caller's nonzero out[2] is kept.
TEST_F(EngineTest, CompassHeadingHysteresisAndAxis) {
    imu::OutputFilters o;
    imu::OutputBlock b{};
    const float steps[][2] = {{0.70F, 2}, {0.72F, 2}, {0.90F, 1}, {0.95F, 1}, {0.50F, 2}};
    for (const auto& s : steps) {
        b.gravity[2] = s[0];
        o.compass_heading(b);
        EXPECT_TRUE(o.heading_orientation == static_cast<int>(s[1]) && o.heading_armed == 0)
            << "gz " << s[0];
    }
    for (const auto& [pose, heading] : {std::pair{imu::sim::pose(30), 30.0F},
                                        std::pair{imu::sim::pose(120, 90), 120.0F}}) {
        publish(static_cast<float>(pose.w), static_cast<float>(pose.x),
                -static_cast<float>(pose.y), -static_cast<float>(pose.z));
        float out[3] = {0, 0, 0};
        sfc_get_compass_heading(out);  // may switch formula
        EXPECT_EQ(sfc_get_compass_heading(out), 0) << heading;
        EXPECT_NEAR(out[0], heading, 1e-3F);
    }
    publish(1, 0, 0, 0);
    float out[3] = {5, 5, 0};
    EXPECT_EQ(sfc_get_compass_heading(out), -22);
    EXPECT_TRUE(out[0] == 0.0F && out[1] == 0.0F);
    out[2] = 3.0F;
    EXPECT_EQ(sfc_get_compass_heading(out), 0);
    EXPECT_EQ(out[2], 3.0F);
}

TEST(Outputs, NullBuffersAreRefused) {
    const Getter cases[] = {
        sfc_get_euler_angle, sfc_get_rotation_vector, sfc_get_quaternion,
        sfc_get_linear_acceleration, sfc_get_gravity, sfc_get_rotation_matrix,
        sfc_get_global_acceleration, sfc_get_compass_heading, get_gravity, get_rotation_vector,
        get_linear_acceleration, get_euler_angles,
        [](float*) { return sfc_get_sfc_out(nullptr); },
        [](float*) { return sfc_update_posture(nullptr, 0); },
        [](float*) { return run_library(nullptr, 0); }};
    for (const Getter& get : cases) {
        EXPECT_EQ(get(nullptr), -22) << "case " << (&get - cases);
    }
    get_quaternion(nullptr);
    sfc_gyro_filter(nullptr, 3.0F);
    set_fusion_mode(nullptr);
    EXPECT_EQ(sfc_get_fusion_mode(), 0);
}

// After the recovery the validity-checking getters refuse and write
// nothing; the others refuse the zero vectors; the whole record keeps
// euler and global_acc and zeroes the rest.
TEST_F(EngineTest, GettersAfterRecovery) {
    SFC_OUT out;
    std::memset(&out, 0x3F, sizeof out);
    const float before = out.euler[0];
    publish(0.6F, 0.8F, 0, 0);
    filter().re_initialize();
    filter().output_valid = 0;
    const std::pair<Getter, bool> cases[] = {  // getter, writes zeros
        {sfc_get_euler_angle, false},         {sfc_get_quaternion, false},
        {sfc_get_linear_acceleration, false}, {sfc_get_global_acceleration, false},
        {sfc_get_compass_heading, false},     {sfc_get_rotation_vector, true},
        {sfc_get_gravity, true}};
    for (const auto& [get, writes] : cases) {
        float v[4] = {9, 9, 9, 9};
        EXPECT_EQ(get(v), -22) << "case " << (&get - &cases[0].first);
        EXPECT_EQ(v[0], writes ? 0.0F : 9.0F) << "case " << (&get - &cases[0].first);
    }
    float r[9] = {9};
    EXPECT_EQ(sfc_get_rotation_matrix(r), 0);
    EXPECT_EQ(r[0], 0.0F);
    imu::engine().stats.gyro_level = 2.0F;
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(out.euler[i] == before && out.global_acc[i] == before) << i;
        EXPECT_TRUE(out.linear_acc[i] == 0 && out.rotation_vector[i] == 0 && out.gravity[i] == 0);
    }
    EXPECT_TRUE(out.rotation_matrix[8] == 0.0F && out.gyro_level == 2.0F);
}

// Threshold 3 deg/s: 0.05 rad/s is zeroed, 0.06 kept, on the calibrated field only.
TEST(Outputs, GyroFilterZeroesSmallRates) {
    IMU s{};
    const float gyro[3] = {0.05F, -0.06F, -0.05F};
    std::memcpy(s.gyro, gyro, sizeof gyro);
    std::memcpy(s.gyro_raw, gyro, sizeof gyro);
    sfc_gyro_filter(&s, 3.0F);
    EXPECT_TRUE(s.gyro[0] == 0.0F && s.gyro[1] == -0.06F && s.gyro[2] == 0.0F);
    EXPECT_EQ(s.gyro_raw[0], 0.05F);
}

}  // namespace
