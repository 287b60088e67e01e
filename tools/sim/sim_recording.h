#pragma once
// Synthetic sensor recordings with a known truth.
//
// A Trajectory is a start orientation followed by segments (holds and
// constant-rate turns). record() samples it at a fixed rate and turns each
// orientation into what the phone's sensors would read, in the device frame
// of the sensor framework: x to the right edge of the screen, y to its top
// edge, z out of the screen.
//
//   accelerometer  m/s^2  R^T (0, 0, g)      reads +g on the axis pointing up
//   gyroscope      rad/s  body rate + bias   right-handed about device axes
//   magnetometer   uT     R^T field_world
//
// The world frame is east-north-up: x east, y (magnetic) north, z up. An
// orientation q_world_from_device rotates device-frame vectors into it, so
// the identity is a phone lying flat, face up, top edge to the north.
// Noise is Gaussian from a seeded generator of our own (mt19937 and the
// Box-Muller transform), so a recording is the same on every platform.

#include <cstdint>
#include <ostream>
#include <vector>

#include "imu/engine.h"

namespace imu::sim {

struct Vec3 {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

// Unit quaternion, scalar first.
struct Quat {
    double w = 1.0;
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

inline constexpr double kDegToRad = 0.017453292519943295;

Quat operator*(const Quat& a, const Quat& b);
Quat conjugate(const Quat& q);
Quat normalized(const Quat& q);
Vec3 rotate(const Quat& q, const Vec3& v);
// Rotation by angle_rad about axis (any length but zero).
Quat axis_angle(const Vec3& axis, double angle_rad);
// Smallest rotation angle between two orientations, degrees [0, 180].
double angle_between_deg(const Quat& a, const Quat& b);

// The orientation of a phone whose top edge points to compass azimuth
// azimuth_deg (clockwise from magnetic north), raised by pitch_deg (top edge
// up is positive, rotation about device x) and then rolled by roll_deg
// about device y (right edge down is positive).
Quat pose(double azimuth_deg, double pitch_deg = 0.0, double roll_deg = 0.0);

// The truth in the terms a compass user reads: azimuth of the top edge
// [0, 360), pitch and roll as pose() takes them. Pitch and roll come from
// the gravity direction; azimuth is meaningful away from pitch +-90 deg.
double azimuth_deg(const Quat& q_world_from_device);
double pitch_deg(const Quat& q_world_from_device);
double roll_deg(const Quat& q_world_from_device);

enum class Frame { kWorld, kDevice };

// A hold (rate 0) or a turn at a constant rate about a fixed axis, given in
// the world frame (e.g. (0, 0, -1) turns clockwise seen from above, so the
// azimuth grows) or in the device frame.
struct Segment {
    double duration_s = 0.0;
    Vec3 axis{0.0, 0.0, 1.0};
    double rate_rps = 0.0;
    Frame frame = Frame::kWorld;
};

class Trajectory {
public:
    explicit Trajectory(const Quat& start = Quat{});

    Trajectory& hold(double duration_s);
    Trajectory& turn(const Vec3& axis, double rate_rps, double duration_s,
                     Frame frame = Frame::kWorld);
    // Turn about the vertical so that the azimuth changes at rate_dps
    // (positive: clockwise seen from above).
    Trajectory& turn_heading(double rate_dps, double duration_s);
    Trajectory& then(const Segment& segment);

    double duration_s() const;
    const std::vector<Segment>& segments() const { return segments_; }
    // Orientation at time t (clamped to [0, duration]).
    Quat orientation_at(double t_s) const;
    // True angular rate at time t, device frame, rad/s. Within a segment the
    // rate is that segment's; at a boundary the later segment's applies.
    Vec3 rate_at(double t_s) const;

private:
    Quat start_;
    std::vector<Segment> segments_;
    std::vector<Quat> segment_start_;  // orientation at each segment's start
};

struct SensorModel {
    double rate_hz = 200.0;
    double gravity_mps2 = 9.8066;
    Vec3 field_world_ut{0.0, 20.0, -40.0};  // north and down, 44.7 uT
    Vec3 gyro_bias_rps{};                   // device frame, added to every sample
    double acc_noise_mps2 = 0.0;            // standard deviation per axis
    double gyro_noise_rps = 0.0;
    double mag_noise_ut = 0.0;
    bool magnetometer = true;  // false: the field reads (0, 0, 0)
    std::uint32_t seed = 1;
};

struct Sample {
    double t_s = 0.0;
    float acc[3] = {};   // m/s^2
    float gyro[3] = {};  // rad/s
    float mag[3] = {};   // uT
    Quat truth;          // q_world_from_device at t_s
};

// Samples at t = 0, 1/rate, ... up to and including the trajectory's end.
std::vector<Sample> record(const Trajectory& trajectory, const SensorModel& model);

// Interval between samples in nanoseconds, as the filter takes it.
std::int32_t interval_ns(const SensorModel& model);

// An IMU record with the raw (and calibrated) triples set from the sample.
IMU to_imu(const Sample& sample);

// Writes the samples as CSV: a header line
// "t_s,acc_x,acc_y,acc_z,gyro_x,gyro_y,gyro_z,mag_x,mag_y,mag_z,q_w,q_x,q_y,q_z"
// and one line per sample (sensor values as float with 9 significant
// digits, so they read back exactly; the truth with 17).
void write_csv(std::ostream& out, const std::vector<Sample>& samples);

// The engine's filter quaternion (scalar first, filter frame to its
// reference frame: x east, y south, z down) as q_world_from_device.
Quat from_filter_quat(const float q_filter[4]);

}  // namespace imu::sim
