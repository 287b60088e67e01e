#pragma once
// Synthetic motion sequences for the gesture detectors: a scripted motion of
// a phone with its true orientation, turned into the IMU samples and fusion
// outputs the detectors read (as a perfect fusion engine would give them).
//
// World frame: x east, y north, z up. A pose is the rotation from the device
// frame into the world frame; the identity is lying flat, face up, top edge
// towards north. Samples come at a fixed interval (200 Hz by default).

#include <cstddef>
#include <vector>

#include "imu/engine.h"

namespace imu::test {

struct Vec3d {
    double x, y, z;
};

struct Quatd {
    double w, x, y, z;  // world from device, scalar first
};

// One cycle's input of sfc_update_gesture, with the truth behind it.
struct GestureFrame {
    IMU imu;
    SFC_OUT out;
    int dt_us;
    double t_s;  // time at the end of the cycle
    Quatd pose;  // world from device at t_s
};

class GestureSequence {
public:
    static constexpr int kDefaultDtUs = 5000;
    static constexpr double kGravityMps2 = 9.8066;

    explicit GestureSequence(int dt_us = kDefaultDtUs);

    // Pose without producing samples.
    GestureSequence& pose(const Quatd& world_from_device);
    GestureSequence& face_up();    // flat, screen up, top edge north
    GestureSequence& face_down();  // flat, screen down, top edge north
    GestureSequence& upright();    // on its bottom edge, screen facing south

    // Proximity value for the samples from now on (0 covered, above 0 free).
    GestureSequence& proximity(float value);
    // Rewrites the proximity of the samples from t_s on and of later ones.
    GestureSequence& proximity_from(double t_s, float value);

    // Still for a while.
    GestureSequence& hold(double seconds);
    // Turns by angle (rad, right hand) about a device axis in the given time,
    // with a smooth rate profile: w(t) = peak (1 - cos(2 pi t / T)) / 2,
    // peak = 2 angle / T, zero at both ends.
    GestureSequence& turn(const Vec3d& device_axis, double angle_rad, double seconds);
    // Turns at a constant rate (rad/s) about a device axis.
    GestureSequence& spin(const Vec3d& device_axis, double rate_rps, double seconds);
    // One sample per entry, turning at that rate (device frame, rad/s).
    GestureSequence& rates(const std::vector<Vec3d>& device_rates_rps);
    // Moves with a constant linear acceleration (world frame, m/s^2) without
    // turning; {0, 0, -9.8066} is free fall.
    GestureSequence& accelerate(const Vec3d& world_acc_mps2, double seconds);

    const std::vector<GestureFrame>& frames() const { return frames_; }
    std::size_t size() const { return frames_.size(); }
    double duration_s() const { return t_s_; }
    int dt_us() const { return dt_us_; }

private:
    // Appends one sample: rotates by rate over dt, then measures.
    void emit(const Vec3d& rate_device_rps, const Vec3d& world_acc_mps2);
    int samples_for(double seconds) const;

    int dt_us_;
    double dt_s_;
    double t_s_ = 0.0;
    Quatd pose_{1.0, 0.0, 0.0, 0.0};
    float proximity_ = 5.0F;
    std::vector<GestureFrame> frames_;
};

// The sequences of the gesture detectors: each a known gesture (or a near
// miss) between quiet stretches.

// Flat, face up, turned face down about y in seconds (0.6 s by default).
GestureSequence turn_face_down(double seconds = 0.6);
// Turned over, then after pause_s turned back (two turn-overs).
GestureSequence turn_twice(double pause_s = 1.0);
// Turned halfway (on its edge), paused, then turned the rest: too slow.
GestureSequence turn_with_pause(double pause_s = 1.5);
// Three twists about z, alternating in sign when alternate is true; the
// first twist's sign is first_sign.
GestureSequence twist_z(bool alternate = true, double first_sign = 1.0);
// Three twists about y alternating in sign (rolling).
GestureSequence roll_y(bool alternate = true);
// A flick about a device axis (peak rate ~12 rad/s) and a slow return.
GestureSequence flick(const Vec3d& device_axis, double sign = 1.0);
// Flicks about x and z starting together, each a smooth pulse with its own
// peak rate and length, then a slow return.
GestureSequence flick_xz(double peak_x_rps, double x_s, double peak_z_rps, double z_s);
// A short free fall right before a flick about x.
GestureSequence fall_then_flick();
// From a pocket (covered) taken out (free) and raised to the ear (covered).
GestureSequence raise_from_pocket();
// From the ear (covered) taken away (free) and laid flat on a table.
GestureSequence put_down_on_table();

}  // namespace imu::test
