#include "sim/gesture_sequences.h"

#include <algorithm>
#include <cmath>

namespace imu::test {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = 180.0 / kPi;
// Earth field, world frame (uT): north and down.
constexpr Vec3d kMagWorld = {0.0, 20.0, -40.0};
constexpr float kLightLux = 100.0F;

Vec3d scale(const Vec3d& v, double k) { return {v.x * k, v.y * k, v.z * k}; }

Vec3d add(const Vec3d& a, const Vec3d& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }

double norm(const Vec3d& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }

Quatd multiply(const Quatd& a, const Quatd& b) {
    return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z,
            a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}

Quatd normalized(const Quatd& q) {
    const double n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    return {q.w / n, q.x / n, q.y / n, q.z / n};
}

// Rotation by angle about a unit axis.
Quatd about(const Vec3d& axis, double angle) {
    const double n = norm(axis);
    if (n == 0.0 || angle == 0.0) {
        return {1.0, 0.0, 0.0, 0.0};
    }
    const double s = std::sin(angle / 2.0) / n;
    return {std::cos(angle / 2.0), axis.x * s, axis.y * s, axis.z * s};
}

// Row-major R(q), world from device.
void matrix(const Quatd& q, double r[9]) {
    r[0] = q.w * q.w + q.x * q.x - q.y * q.y - q.z * q.z;
    r[1] = 2 * (q.x * q.y - q.w * q.z);
    r[2] = 2 * (q.x * q.z + q.w * q.y);
    r[3] = 2 * (q.x * q.y + q.w * q.z);
    r[4] = q.w * q.w - q.x * q.x + q.y * q.y - q.z * q.z;
    r[5] = 2 * (q.y * q.z - q.w * q.x);
    r[6] = 2 * (q.x * q.z - q.w * q.y);
    r[7] = 2 * (q.w * q.x + q.y * q.z);
    r[8] = q.w * q.w - q.x * q.x - q.y * q.y + q.z * q.z;
}

Vec3d to_device(const double r[9], const Vec3d& w) {  // R^T w
    return {r[0] * w.x + r[3] * w.y + r[6] * w.z, r[1] * w.x + r[4] * w.y + r[7] * w.z,
            r[2] * w.x + r[5] * w.y + r[8] * w.z};
}

Vec3d to_world(const double r[9], const Vec3d& d) {  // R d
    return {r[0] * d.x + r[1] * d.y + r[2] * d.z, r[3] * d.x + r[4] * d.y + r[5] * d.z,
            r[6] * d.x + r[7] * d.y + r[8] * d.z};
}

void store(float* dst, const Vec3d& v) {
    dst[0] = static_cast<float>(v.x);
    dst[1] = static_cast<float>(v.y);
    dst[2] = static_cast<float>(v.z);
}

// The fusion output a perfect engine would give for this pose and motion.
// The filter frame and the reference frame (x east, y south, z down) are the
// device and world frames with y and z reversed, so the filter's matrix is
// A R A with A = diag(1, -1, -1).
void fill_output(const Quatd& q, const double r[9], const Vec3d& specific_force_dev,
                 const Vec3d& world_acc, SFC_OUT& out) {
    const double g = GestureSequence::kGravityMps2;
    const Vec3d gravity_dev = to_device(r, {0.0, 0.0, g});
    store(out.gravity, gravity_dev);
    store(out.linear_acc, to_device(r, world_acc));

    // Measured direction pointing down at rest, in the reference frame,
    // reordered as (ref y, ref x, -ref z): (0, 0, -1) at rest.
    const double f = norm(specific_force_dev);
    Vec3d down_ref = {0.0, 0.0, 0.0};
    if (f > 0.0) {
        const Vec3d down_world = to_world(r, scale(specific_force_dev, -1.0 / f));
        down_ref = {down_world.x, -down_world.y, -down_world.z};
    }
    store(out.global_acc, {down_ref.y, down_ref.x, -down_ref.z});

    const double a[3] = {1.0, -1.0, -1.0};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            out.rotation_matrix[i * 3 + j] = static_cast<float>(a[i] * r[i * 3 + j] * a[j]);
        }
    }
    // The device-frame form of the filter quaternion is the pose itself.
    const double sign = q.w < 0.0 ? -1.0 : 1.0;
    store(out.rotation_vector, {sign * q.x, sign * q.y, sign * q.z});

    // A simple truth: azimuth of the top edge, pitch and roll from gravity.
    double azimuth = std::atan2(r[1], r[4]) * kDeg;
    if (azimuth < 0.0) {
        azimuth += 360.0;
    }
    const double pitch = -std::asin(std::clamp(gravity_dev.y / g, -1.0, 1.0)) * kDeg;
    const double roll = std::asin(std::clamp(gravity_dev.x / g, -1.0, 1.0)) * kDeg;
    store(out.euler, {azimuth, pitch, roll});
    out.acc_level = 0.0F;
    out.gyro_level = 0.0F;
}

}  // namespace

GestureSequence::GestureSequence(int dt_us) : dt_us_(dt_us), dt_s_(dt_us * 1e-6) {}

GestureSequence& GestureSequence::pose(const Quatd& world_from_device) {
    pose_ = normalized(world_from_device);
    return *this;
}

GestureSequence& GestureSequence::face_up() { return pose({1.0, 0.0, 0.0, 0.0}); }

GestureSequence& GestureSequence::face_down() { return pose(about({0.0, 1.0, 0.0}, kPi)); }

GestureSequence& GestureSequence::upright() { return pose(about({1.0, 0.0, 0.0}, kPi / 2.0)); }

GestureSequence& GestureSequence::proximity(float value) {
    proximity_ = value;
    return *this;
}

GestureSequence& GestureSequence::proximity_from(double t_s, float value) {
    for (GestureFrame& f : frames_) {
        if (f.t_s >= t_s - 1e-9) {
            f.imu.proximity[0] = value;
        }
    }
    proximity_ = value;
    return *this;
}

int GestureSequence::samples_for(double seconds) const {
    return std::max(0, static_cast<int>(std::lround(seconds / dt_s_)));
}

GestureSequence& GestureSequence::hold(double seconds) {
    for (int i = samples_for(seconds); i > 0; --i) {
        emit({0.0, 0.0, 0.0}, {0.0, 0.0, 0.0});
    }
    return *this;
}

// Sampled at the middle of each interval: over whole periods the cosine
// terms cancel, so the samples add up to the angle exactly.
GestureSequence& GestureSequence::turn(const Vec3d& device_axis, double angle_rad, double seconds) {
    const int n = samples_for(seconds);
    if (n == 0) {
        return *this;
    }
    const double period = n * dt_s_;
    const double peak = 2.0 * angle_rad / period;
    const Vec3d unit = scale(device_axis, 1.0 / norm(device_axis));
    for (int i = 0; i < n; ++i) {
        const double t = (i + 0.5) * dt_s_;
        const double rate = peak * (1.0 - std::cos(2.0 * kPi * t / period)) / 2.0;
        emit(scale(unit, rate), {0.0, 0.0, 0.0});
    }
    return *this;
}

GestureSequence& GestureSequence::spin(const Vec3d& device_axis, double rate_rps, double seconds) {
    const Vec3d rate = scale(device_axis, rate_rps / norm(device_axis));
    for (int i = samples_for(seconds); i > 0; --i) {
        emit(rate, {0.0, 0.0, 0.0});
    }
    return *this;
}

GestureSequence& GestureSequence::rates(const std::vector<Vec3d>& device_rates_rps) {
    for (const Vec3d& rate : device_rates_rps) {
        emit(rate, {0.0, 0.0, 0.0});
    }
    return *this;
}

GestureSequence& GestureSequence::accelerate(const Vec3d& world_acc_mps2, double seconds) {
    for (int i = samples_for(seconds); i > 0; --i) {
        emit({0.0, 0.0, 0.0}, world_acc_mps2);
    }
    return *this;
}

void GestureSequence::emit(const Vec3d& rate, const Vec3d& world_acc) {
    pose_ = normalized(multiply(pose_, about(rate, norm(rate) * dt_s_)));
    t_s_ += dt_s_;

    double r[9];
    matrix(pose_, r);
    const Vec3d force_dev = to_device(r, add(world_acc, {0.0, 0.0, kGravityMps2}));

    GestureFrame f{};
    store(f.imu.acc, force_dev);
    store(f.imu.acc_raw, force_dev);
    store(f.imu.gyro, rate);
    store(f.imu.gyro_raw, rate);
    store(f.imu.mag, to_device(r, kMagWorld));
    store(f.imu.mag_raw, to_device(r, kMagWorld));
    f.imu.light[0] = kLightLux;
    f.imu.proximity[0] = proximity_;
    fill_output(pose_, r, force_dev, world_acc, f.out);
    f.dt_us = dt_us_;
    f.t_s = t_s_;
    f.pose = pose_;
    frames_.push_back(f);
}

// ---- the gesture sequences ----

namespace {
constexpr Vec3d kX = {1.0, 0.0, 0.0};
constexpr Vec3d kY = {0.0, 1.0, 0.0};
constexpr Vec3d kZ = {0.0, 0.0, 1.0};
constexpr double kQuiet = 0.5;
constexpr double kTwistAngle = 0.9;  // rad: peak 12 rad/s over 0.15 s
constexpr double kTwistS = 0.15;
}  // namespace

GestureSequence turn_face_down(double seconds) {
    GestureSequence s;
    s.face_up().hold(kQuiet).turn(kY, kPi, seconds).hold(kQuiet);
    return s;
}

GestureSequence turn_twice(double pause_s) {
    GestureSequence s;
    s.face_up().hold(kQuiet).turn(kY, kPi, 0.6).hold(pause_s).turn(kY, kPi, 0.6).hold(kQuiet);
    return s;
}

GestureSequence turn_with_pause(double pause_s) {
    GestureSequence s;
    s.face_up().hold(kQuiet).turn(kY, kPi / 2.0, 0.3).hold(pause_s).turn(kY, kPi / 2.0, 0.3);
    s.hold(kQuiet);
    return s;
}

GestureSequence twist_z(bool alternate, double first_sign) {
    GestureSequence s;
    s.face_up().hold(kQuiet);
    double sign = first_sign;
    for (int i = 0; i < 3; ++i) {
        s.turn(kZ, sign * kTwistAngle, kTwistS);
        if (alternate) {
            sign = -sign;
        }
    }
    s.hold(kQuiet);
    return s;
}

GestureSequence roll_y(bool alternate) {
    GestureSequence s;
    s.face_up().hold(kQuiet);
    double sign = 1.0;
    for (int i = 0; i < 3; ++i) {
        s.turn(kY, sign * kTwistAngle, kTwistS);
        if (alternate) {
            sign = -sign;
        }
    }
    s.hold(kQuiet);
    return s;
}

// Out fast (peak 12 rad/s), back slowly (peak 1.2 rad/s, below every band).
GestureSequence flick(const Vec3d& device_axis, double sign) {
    GestureSequence s;
    s.face_up().hold(kQuiet);
    s.turn(device_axis, sign * 0.72, 0.12).hold(0.3).turn(device_axis, -sign * 0.72, 1.2);
    s.hold(kQuiet);
    return s;
}

GestureSequence flick_xz(double peak_x_rps, double x_s, double peak_z_rps, double z_s) {
    GestureSequence s;
    s.face_up().hold(kQuiet);
    const double dt = s.dt_us() * 1e-6;
    const auto n_x = static_cast<int>(std::lround(x_s / dt));
    const auto n_z = static_cast<int>(std::lround(z_s / dt));
    std::vector<Vec3d> out(static_cast<std::size_t>(std::max(n_x, n_z)), Vec3d{0.0, 0.0, 0.0});
    for (int i = 0; i < static_cast<int>(out.size()); ++i) {
        const double t = (i + 0.5) * dt;
        if (i < n_x) {
            out[static_cast<std::size_t>(i)].x =
                peak_x_rps * (1.0 - std::cos(2.0 * kPi * t / (n_x * dt))) / 2.0;
        }
        if (i < n_z) {
            out[static_cast<std::size_t>(i)].z =
                peak_z_rps * (1.0 - std::cos(2.0 * kPi * t / (n_z * dt))) / 2.0;
        }
    }
    std::vector<Vec3d> back(out.size() * 10);
    for (std::size_t i = 0; i < back.size(); ++i) {
        back[i] = scale(out[i / 10], -0.1);
    }
    s.rates(out).hold(0.3).rates(back).hold(kQuiet);
    return s;
}

GestureSequence fall_then_flick() {
    GestureSequence s;
    s.face_up().hold(kQuiet);
    s.accelerate({0.0, 0.0, -GestureSequence::kGravityMps2}, 0.05);
    s.turn(kX, 0.72, 0.12).hold(0.3).turn(kX, -0.72, 1.2).hold(kQuiet);
    return s;
}

// In the pocket upright and covered; out, tilted back 60 deg slowly (peak
// 2.6 rad/s) and free; raised back upright to the ear in 0.5 s (peak 4.2
// rad/s), covered from the middle of the raise on.
GestureSequence raise_from_pocket() {
    GestureSequence s;
    s.upright().proximity(0.0F).hold(kQuiet);
    s.proximity(5.0F).turn(kX, -kPi / 3.0, 0.8).hold(kQuiet);
    const double raise_start = s.duration_s();
    s.turn(kX, kPi / 3.0, 0.5).hold(kQuiet);
    s.proximity_from(raise_start + 0.2, 0.0F);
    return s;
}

// At the ear upright and covered; taken away (free) and within 0.1 s laid
// down flat, face up, in 0.5 s (peak 6.3 rad/s).
GestureSequence put_down_on_table() {
    GestureSequence s;
    s.upright().proximity(0.0F).hold(kQuiet);
    s.proximity(5.0F).hold(0.1).turn(kX, -kPi / 2.0, 0.5).hold(kQuiet);
    return s;
}

}  // namespace imu::test
