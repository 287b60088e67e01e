// The getters: frame conversions, their -22 cases, the linear-acceleration
// high-pass, the compass heading's hysteresis and the whole record.

#include "engine/outputs.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <string>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;

imu::PostureFilter& filter() { return imu::engine().filter; }

// Publishes quaternion q with the down direction a, as a filtering update
// would.
void publish(float q0, float q1, float q2, float q3, const float a[3] = nullptr) {
    const float q[4] = {q0, q1, q2, q3};
    const float p[16] = {};
    const float down[3] = {0, 0, 1};
    filter().publish(q, p, a != nullptr ? a : down, false);
    filter().output_valid = 1;
}

bool is_negative_zero(float v) { return v == 0.0F && std::signbit(v); }

// Filter quaternion (0.6, 0.8, 0, 0) reads as (0.8, -0, -0, 0.6) in the
// device frame; its negative-scalar twin is flipped so that w >= 0.
TEST(Outputs, QuaternionAndRotationVectorInDeviceFrame) {
    const struct {
        float q0;
        float quat[4];
        float rv[3];
    } cases[] = {
        {0.6F, {0.8F, -0.0F, -0.0F, 0.6F}, {0.8F, -0.0F, -0.0F}},
        {-0.6F, {-0.8F, 0.0F, 0.0F, 0.6F}, {-0.8F, 0.0F, 0.0F}},
    };
    for (const auto& c : cases) {
        publish(c.q0, 0.8F, 0, 0);
        float quat[4] = {};
        float rv[3] = {};
        EXPECT_EQ(sfc_get_quaternion(quat), 0);
        EXPECT_EQ(sfc_get_rotation_vector(rv), 0);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(quat[i], c.quat[i]) << "q0 " << c.q0 << " quat " << i;
            EXPECT_EQ(std::signbit(quat[i]), std::signbit(c.quat[i])) << "quat " << i;
        }
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(rv[i], c.rv[i]) << "q0 " << c.q0 << " rv " << i;
            EXPECT_EQ(std::signbit(rv[i]), std::signbit(c.rv[i])) << "rv " << i;
        }
        float raw[4] = {};
        get_quaternion(raw);
        EXPECT_EQ(raw[0], c.q0) << "get_quaternion: filter frame, scalar first";
        EXPECT_EQ(raw[1], 0.8F);
    }
}

// Filter yaw -30 reads as azimuth 330; all-zero angles are written as
// (0, -0, 0) and refused.
TEST(Outputs, EulerAngleMapping) {
    filter().output_valid = 1;
    const float psi_theta_phi[3] = {-30.0F, 5.0F, 10.0F};
    std::memcpy(filter().out.euler, psi_theta_phi, sizeof psi_theta_phi);
    float e[3] = {};
    EXPECT_EQ(sfc_get_euler_angle(e), 0);
    EXPECT_EQ(e[0], 330.0F);
    EXPECT_EQ(e[1], -10.0F);
    EXPECT_EQ(e[2], 5.0F);

    std::memset(filter().out.euler, 0, sizeof filter().out.euler);
    EXPECT_EQ(sfc_get_euler_angle(e), -22);
    EXPECT_EQ(e[0], 0.0F);
    EXPECT_TRUE(is_negative_zero(e[1]));
    EXPECT_EQ(get_euler_angles(e), -22);
}

// Gravity, linear and global acceleration of a phone lying flat and still:
// gravity (0, 0, 1) g up, no linear acceleration, global (0, 0, -1).
TEST(Outputs, FlatPhoneVectors) {
    publish(1, 0, 0, 0);
    float g[3] = {};
    EXPECT_EQ(sfc_get_gravity(g), 0);
    EXPECT_EQ(g[0], -0.0F);
    EXPECT_EQ(g[1], 0.0F);
    EXPECT_EQ(g[2], 1.0F);
    float e[3] = {};
    EXPECT_EQ(sfc_get_global_acceleration(e), 0);
    EXPECT_EQ(e[0], 0.0F);
    EXPECT_EQ(e[1], 0.0F);
    EXPECT_EQ(e[2], -1.0F);
    float r[9] = {};
    EXPECT_EQ(sfc_get_rotation_matrix(r), 0);
    const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_EQ(std::memcmp(r, identity, sizeof r), 0);
    float l[3] = {};
    EXPECT_EQ(sfc_get_linear_acceleration(l), -22) << "no linear acceleration: all zero";
}

// The high-pass subtracts the running mean of the last 20 values, the
// new one included: a constant u gives 0.95 u first and about 0 from the
// 20th call on.
TEST(Outputs, LinearAccelerationHighPass) {
    imu::OutputFilters o;
    const float u[3] = {0.5F, -0.25F, 1.0F};
    float out[3];
    o.high_pass(u, out);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(out[i], 0.95F * u[i]);
        EXPECT_FLOAT_EQ(o.mean[i], u[i] / 20.0F);
    }
    for (int n = 2; n <= 20; ++n) {
        o.high_pass(u, out);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(o.mean[i], u[i], 1e-6F);
        EXPECT_NEAR(out[i], 0.0F, 1e-6F);
    }
}

// A not-a-number value leaves the high-pass once it has left the history.
TEST(Outputs, LinearAccelerationHighPassRecoversFromNotANumber) {
    imu::OutputFilters o;
    const float bad[3] = {NAN, 0.0F, 0.0F};
    const float u[3] = {0.5F, 0.5F, 0.5F};
    float out[3];
    o.high_pass(bad, out);
    for (int n = 1; n <= 19; ++n) {
        o.high_pass(u, out);
    }
    EXPECT_TRUE(std::isnan(out[0]));
    o.high_pass(u, out);
    EXPECT_NEAR(out[0], 0.0F, 1e-6F);
    EXPECT_NEAR(out[1], 0.0F, 1e-6F);
}

// The getter converts (l0, -l1, -l2) and advances the high-pass once per
// successful call; an invalid output neither writes nor advances.
TEST(Outputs, LinearAccelerationGetterAdvancesOnlyWhenValid) {
    const float a[3] = {0.1F, 0.2F, 0.9F};
    publish(1, 0, 0, 0, a);
    float l[3] = {};
    ASSERT_EQ(sfc_get_linear_acceleration(l), 0);
    // l = g - a = (-0.1, -0.2, 0.1) -> device (-0.1, 0.2, -0.1), times 0.95.
    EXPECT_FLOAT_EQ(l[0], -0.1F * 0.95F);
    EXPECT_FLOAT_EQ(l[1], 0.2F * 0.95F);
    EXPECT_FLOAT_EQ(l[2], -0.1F * 0.95F);

    filter().output_valid = 0;
    float untouched[3] = {7, 7, 7};
    EXPECT_EQ(get_linear_acceleration(untouched), -22);
    EXPECT_EQ(untouched[0], 7.0F);
    EXPECT_FLOAT_EQ(imu::engine().outputs.mean[0], -0.1F / 20.0F) << "not advanced";
}

// From load (armed, flat): gz 0.70 switches to upright and disarms; 0.72
// stays upright (moved less than 0.1992); 0.90 re-arms and switches back.
TEST(Outputs, CompassHeadingHysteresis) {
    imu::OutputFilters o;
    imu::OutputBlock b{};
    const struct {
        float gz;
        int orientation;
        int armed;
    } steps[] = {{0.70F, 2, 0}, {0.72F, 2, 0}, {0.90F, 1, 0}, {0.95F, 1, 0}, {0.50F, 2, 0}};
    for (const auto& s : steps) {
        b.gravity[2] = s.gz;
        o.compass_heading(b);
        EXPECT_EQ(o.heading_orientation, s.orientation) << "gz " << s.gz;
        EXPECT_EQ(o.heading_armed, s.armed) << "gz " << s.gz;
    }
}

// The heading of a phone lying flat is the azimuth of its top edge; held
// upright it is the direction the back faces (the camera's view).
TEST_F(EngineTest, CompassHeadingFollowsTheRightAxis) {
    const struct {
        const char* name;
        imu::sim::Quat pose;
        float heading;
    } cases[] = {
        {"flat, top to 30", imu::sim::pose(30), 30.0F},
        {"upright, back to 120", imu::sim::pose(120, 90), 120.0F},
    };
    for (const auto& c : cases) {
        // The filter quaternion is (w, x, -y, -z) of the world-from-device one.
        publish(static_cast<float>(c.pose.w), static_cast<float>(c.pose.x),
                -static_cast<float>(c.pose.y), -static_cast<float>(c.pose.z));
        float out[3] = {0, 0, 0};
        sfc_get_compass_heading(out);  // may switch formula
        EXPECT_EQ(sfc_get_compass_heading(out), 0) << c.name;
        EXPECT_NEAR(out[0], c.heading, 1e-3F) << c.name;
        EXPECT_EQ(out[1], 0.0F);
    }
}

// Heading 0 with out[2] = 0 is refused; the caller's out[2] is kept.
TEST(Outputs, CompassHeadingZeroNeedsCallerValue) {
    publish(1, 0, 0, 0);
    float out[3] = {5, 5, 0};
    EXPECT_EQ(sfc_get_compass_heading(out), -22);
    EXPECT_EQ(out[0], 0.0F);
    EXPECT_EQ(out[1], 0.0F);
    out[2] = 3.0F;
    EXPECT_EQ(sfc_get_compass_heading(out), 0);
    EXPECT_EQ(out[2], 3.0F);
}

using Getter = std::function<int(float*)>;
struct NullCase {
    const char* name;
    Getter get;
};

// Every getter refuses a null buffer with -22.
TEST(Outputs, NullBuffersAreRefused) {
    const NullCase cases[] = {
        {"euler", sfc_get_euler_angle},
        {"rotation vector", sfc_get_rotation_vector},
        {"quaternion", sfc_get_quaternion},
        {"linear", sfc_get_linear_acceleration},
        {"gravity", sfc_get_gravity},
        {"matrix", sfc_get_rotation_matrix},
        {"global", sfc_get_global_acceleration},
        {"heading", sfc_get_compass_heading},
        {"get_gravity", get_gravity},
        {"get_rotation_vector", get_rotation_vector},
        {"get_linear_acceleration", get_linear_acceleration},
        {"get_euler_angles", get_euler_angles},
        {"sfc_out", [](float*) { return sfc_get_sfc_out(nullptr); }},
        {"update", [](float*) { return sfc_update_posture(nullptr, 0); }},
        {"run_library", [](float*) { return run_library(nullptr, 0); }},
    };
    for (const NullCase& c : cases) {
        EXPECT_EQ(c.get(nullptr), -22) << c.name;
    }
    get_quaternion(nullptr);
    sfc_gyro_filter(nullptr, 3.0F);
    set_fusion_mode(nullptr);
    EXPECT_EQ(sfc_get_fusion_mode(), 0);
}

// After the recovery the validity-checking getters refuse and write
// nothing; the others report the zero block and refuse all-zero vectors.
TEST_F(EngineTest, GettersAfterRecovery) {
    publish(0.6F, 0.8F, 0, 0);
    filter().re_initialize();
    filter().output_valid = 0;
    const struct {
        const char* name;
        Getter get;
        bool writes;
    } cases[] = {
        {"euler", sfc_get_euler_angle, false},
        {"quaternion", sfc_get_quaternion, false},
        {"linear", sfc_get_linear_acceleration, false},
        {"global", sfc_get_global_acceleration, false},
        {"heading", sfc_get_compass_heading, false},
        {"rotation vector", sfc_get_rotation_vector, true},
        {"gravity", sfc_get_gravity, true},
    };
    for (const auto& c : cases) {
        float out[4] = {9, 9, 9, 9};
        EXPECT_EQ(c.get(out), -22) << c.name;
        EXPECT_EQ(out[0], c.writes ? 0.0F : 9.0F) << c.name;
    }
    float r[9] = {9};
    EXPECT_EQ(sfc_get_rotation_matrix(r), 0);
    EXPECT_EQ(r[0], 0.0F);
}

// sfc_get_sfc_out after a not-a-number recovery: euler and global_acc keep
// their previous contents, everything else is 0, the result is 0.
TEST_F(EngineTest, WholeRecordAfterRecovery) {
    SFC_OUT out;
    std::memset(&out, 0x3F, sizeof out);  // 0.747 in every float
    const float before = out.euler[0];
    publish(1, 0, 0, 0);
    filter().re_initialize();
    filter().output_valid = 0;
    imu::engine().stats.acc_level = 4.0F;
    imu::engine().stats.gyro_level = 2.0F;
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(out.euler[i], before);
        EXPECT_EQ(out.global_acc[i], before);
        EXPECT_EQ(out.linear_acc[i], 0.0F);
        EXPECT_EQ(out.rotation_vector[i], 0.0F);
        EXPECT_EQ(out.gravity[i], 0.0F);
    }
    for (float v : out.rotation_matrix) {
        EXPECT_EQ(v, 0.0F);
    }
    EXPECT_EQ(out.acc_level, 4.0F);
    EXPECT_EQ(out.gyro_level, 2.0F);
}

// The whole record of a valid update: gravity and linear acceleration in
// m/s^2 (x 9.8066), global acceleration in g, matrix unchanged.
TEST_F(EngineTest, WholeRecordScalesToMetresPerSecondSquared) {
    const float a[3] = {0.0F, 0.0F, 0.5F};
    publish(1, 0, 0, 0, a);
    SFC_OUT out{};
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    EXPECT_EQ(out.gravity[2], 9.8066F);
    EXPECT_FLOAT_EQ(out.linear_acc[2], -0.5F * 0.95F * 9.8066F);
    EXPECT_EQ(out.global_acc[2], -0.5F);
    EXPECT_EQ(out.rotation_matrix[0], 1.0F);
}

// Threshold 3 deg/s: 0.05 rad/s is zeroed, 0.06 kept, on the calibrated
// field only.
TEST(Outputs, GyroFilterZeroesSmallRates) {
    IMU s{};
    const float gyro[3] = {0.05F, -0.06F, -0.05F};
    std::memcpy(s.gyro, gyro, sizeof gyro);
    std::memcpy(s.gyro_raw, gyro, sizeof gyro);
    sfc_gyro_filter(&s, 3.0F);
    EXPECT_EQ(s.gyro[0], 0.0F);
    EXPECT_EQ(s.gyro[1], -0.06F);
    EXPECT_EQ(s.gyro[2], 0.0F);
    EXPECT_EQ(s.gyro_raw[0], 0.05F);
}

}  // namespace
