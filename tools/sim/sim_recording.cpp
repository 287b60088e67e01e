#include "sim/sim_recording.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "sim/gaussian.h"

namespace imu::sim {
namespace {

Vec3 unit(const Vec3& v) {
    const double n = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    return {v.x / n, v.y / n, v.z / n};
}

void store(const Vec3& v, double sigma, Gaussian& noise, float out[3]) {
    const double n[3] = {noise.next(), noise.next(), noise.next()};
    out[0] = static_cast<float>(v.x + sigma * n[0]);
    out[1] = static_cast<float>(v.y + sigma * n[1]);
    out[2] = static_cast<float>(v.z + sigma * n[2]);
}

// The turn of a segment after tau seconds applied to its start orientation.
Quat advance(const Quat& start, const Segment& s, double tau) {
    if (s.rate_rps == 0.0 || tau <= 0.0) {
        return start;
    }
    const Quat turn = axis_angle(s.axis, s.rate_rps * tau);
    return normalized(s.frame == Frame::kWorld ? turn * start : start * turn);
}

}  // namespace

Quat operator*(const Quat& a, const Quat& b) {
    return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z,
            a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}

Quat conjugate(const Quat& q) { return {q.w, -q.x, -q.y, -q.z}; }

Quat normalized(const Quat& q) {
    const double n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    return {q.w / n, q.x / n, q.y / n, q.z / n};
}

Vec3 rotate(const Quat& q, const Vec3& v) {
    const Quat r = q * Quat{0.0, v.x, v.y, v.z} * conjugate(q);
    return {r.x, r.y, r.z};
}

Quat axis_angle(const Vec3& axis, double angle_rad) {
    const Vec3 u = unit(axis);
    const double s = std::sin(angle_rad / 2.0);
    return {std::cos(angle_rad / 2.0), u.x * s, u.y * s, u.z * s};
}

double angle_between_deg(const Quat& a, const Quat& b) {
    const double dot = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
    return 2.0 * std::acos(std::min(1.0, std::fabs(dot))) / kDegToRad;
}

Quat pose(double azimuth_deg_, double pitch_deg_, double roll_deg_) {
    const Quat yaw = axis_angle({0, 0, 1}, -azimuth_deg_ * kDegToRad);
    const Quat pitch = axis_angle({1, 0, 0}, pitch_deg_ * kDegToRad);
    const Quat roll = axis_angle({0, 1, 0}, roll_deg_ * kDegToRad);
    return normalized(yaw * pitch * roll);
}

double azimuth_deg(const Quat& q) {
    const Vec3 top = rotate(q, {0, 1, 0});
    double a = std::atan2(top.x, top.y) / kDegToRad;
    return a < 0.0 ? a + 360.0 : a;
}

double pitch_deg(const Quat& q) {
    const Vec3 up = rotate(conjugate(q), {0, 0, 1});  // up in the device frame
    return std::asin(std::clamp(up.y, -1.0, 1.0)) / kDegToRad;
}

double roll_deg(const Quat& q) {
    const Vec3 up = rotate(conjugate(q), {0, 0, 1});
    return std::atan2(-up.x, up.z) / kDegToRad;
}

Trajectory::Trajectory(const Quat& start) : start_(normalized(start)) {}

Trajectory& Trajectory::then(const Segment& segment) {
    const Quat begin = segments_.empty() ? start_
                                         : advance(segment_start_.back(), segments_.back(),
                                                   segments_.back().duration_s);
    segments_.push_back(segment);
    segment_start_.push_back(begin);
    return *this;
}

Trajectory& Trajectory::hold(double duration_s) {
    return then({duration_s, {0, 0, 1}, 0.0, Frame::kWorld});
}

Trajectory& Trajectory::turn(const Vec3& axis, double rate_rps, double duration_s, Frame frame) {
    return then({duration_s, axis, rate_rps, frame});
}

Trajectory& Trajectory::turn_heading(double rate_dps, double duration_s) {
    return turn({0, 0, -1}, rate_dps * kDegToRad, duration_s, Frame::kWorld);
}

double Trajectory::duration_s() const {
    double total = 0.0;
    for (const Segment& s : segments_) {
        total += s.duration_s;
    }
    return total;
}

Quat Trajectory::orientation_at(double t_s) const {
    double begin = 0.0;
    for (std::size_t i = 0; i < segments_.size(); ++i) {
        const double end = begin + segments_[i].duration_s;
        if (t_s < end || i + 1 == segments_.size()) {
            const double tau = std::clamp(t_s - begin, 0.0, segments_[i].duration_s);
            return advance(segment_start_[i], segments_[i], tau);
        }
        begin = end;
    }
    return start_;
}

Vec3 Trajectory::rate_at(double t_s) const {
    double begin = 0.0;
    for (std::size_t i = 0; i < segments_.size(); ++i) {
        const Segment& s = segments_[i];
        const double end = begin + s.duration_s;
        if (t_s < end || (i + 1 == segments_.size() && t_s <= end)) {
            const Vec3 axis = unit(s.axis);
            const Vec3 rate{axis.x * s.rate_rps, axis.y * s.rate_rps, axis.z * s.rate_rps};
            // A world-axis turn is seen by the body as the axis in its own frame,
            // which stays fixed while turning about it.
            return s.frame == Frame::kDevice ? rate : rotate(conjugate(segment_start_[i]), rate);
        }
        begin = end;
    }
    return {};
}

std::vector<Sample> record(const Trajectory& trajectory, const SensorModel& model) {
    std::vector<Sample> out;
    Gaussian noise(model.seed);
    const double period = 1.0 / model.rate_hz;
    const auto count =
        static_cast<std::size_t>(std::floor(trajectory.duration_s() / period + 1e-9));
    out.reserve(count + 1);
    for (std::size_t k = 0; k <= count; ++k) {
        Sample s;
        s.t_s = static_cast<double>(k) * period;
        s.truth = trajectory.orientation_at(s.t_s);
        const Quat to_device = conjugate(s.truth);
        const Vec3 acc = rotate(to_device, {0.0, 0.0, model.gravity_mps2});
        const Vec3 field = model.magnetometer ? rotate(to_device, model.field_world_ut) : Vec3{};
        const Vec3 rate = trajectory.rate_at(s.t_s);
        const Vec3& b = model.gyro_bias_rps;
        store(acc, model.acc_noise_mps2, noise, s.acc);
        store({rate.x + b.x, rate.y + b.y, rate.z + b.z}, model.gyro_noise_rps, noise, s.gyro);
        store(field, model.magnetometer ? model.mag_noise_ut : 0.0, noise, s.mag);
        out.push_back(s);
    }
    return out;
}

std::int32_t interval_ns(const SensorModel& model) {
    return static_cast<std::int32_t>(std::lround(1e9 / model.rate_hz));
}

IMU to_imu(const Sample& sample) {
    IMU imu{};
    for (int i = 0; i < 3; ++i) {
        imu.acc[i] = imu.acc_raw[i] = sample.acc[i];
        imu.gyro[i] = imu.gyro_raw[i] = sample.gyro[i];
        imu.mag[i] = imu.mag_raw[i] = sample.mag[i];
    }
    return imu;
}

void write_csv(std::ostream& out, const std::vector<Sample>& samples) {
    out << "t_s,acc_x,acc_y,acc_z,gyro_x,gyro_y,gyro_z,mag_x,mag_y,mag_z,q_w,q_x,q_y,q_z\n";
    char line[512];
    for (const Sample& s : samples) {
        std::snprintf(line, sizeof line,
                      "%.6f,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.17g,%.17g,%.17g,%.17g\n",
                      s.t_s, static_cast<double>(s.acc[0]), static_cast<double>(s.acc[1]),
                      static_cast<double>(s.acc[2]), static_cast<double>(s.gyro[0]),
                      static_cast<double>(s.gyro[1]), static_cast<double>(s.gyro[2]),
                      static_cast<double>(s.mag[0]), static_cast<double>(s.mag[1]),
                      static_cast<double>(s.mag[2]), s.truth.w, s.truth.x, s.truth.y, s.truth.z);
        out << line;
    }
}

// The filter frame is the device frame turned half a turn about x, and its
// reference frame is east-north-up turned the same way: conjugating by that
// half turn gives (w, x, -y, -z).
Quat from_filter_quat(const float q_filter[4]) {
    return {static_cast<double>(q_filter[0]), static_cast<double>(q_filter[1]),
            -static_cast<double>(q_filter[2]), -static_cast<double>(q_filter[3])};
}

}  // namespace imu::sim
