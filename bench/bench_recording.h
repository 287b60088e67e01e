#pragma once
// The recordings the benchmarks run on: a phone with typical sensor noise,
// held at azimuth 40 deg, pitch 20 deg, roll -10 deg, turning about its z,
// x and y axes and the x-y diagonal in turn.

#include <vector>

#include "sim/sim_recording.h"

namespace imu::bench {

inline constexpr imu::sim::Vec3 kTurnAxes[] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};

inline imu::sim::SensorModel noisy_phone() {
    imu::sim::SensorModel model;
    model.acc_noise_mps2 = 0.05;
    model.gyro_noise_rps = 0.003;
    model.mag_noise_ut = 0.4;
    return model;
}

inline imu::sim::Trajectory start_pose() {
    return imu::sim::Trajectory(imu::sim::pose(40, 20, -10));
}

// A closed loop of short turns (1.2 and 0.6 rad/s, out and back, 0.4 s
// each) about every axis, so the recording can repeat end to end. Each turn
// lasts less than the still test's 201 updates, so no turn rate is taken
// for a gyroscope bias and the filter works as for a phone in the hand.
inline std::vector<imu::sim::Sample> turning_loop() {
    using imu::sim::Frame;
    imu::sim::Trajectory t = start_pose();
    for (const auto& axis : kTurnAxes) {
        t.turn(axis, 1.2, 0.4, Frame::kDevice).turn(axis, 0.6, 0.4, Frame::kDevice);
        t.turn(axis, -0.6, 0.4, Frame::kDevice).turn(axis, -1.2, 0.4, Frame::kDevice);
    }
    return record(t, noisy_phone());
}

// A minute of turns (1.2 rad/s for 0.5 s, a second's hold, and back) about
// every axis in turn.
inline std::vector<imu::sim::Sample> minute_of_turns() {
    using imu::sim::Frame;
    imu::sim::Trajectory t = start_pose();
    while (t.duration_s() < 60.0) {
        for (const auto& axis : kTurnAxes) {
            t.turn(axis, 1.2, 0.5, Frame::kDevice).hold(1.0).turn(axis, -1.2, 0.5, Frame::kDevice);
        }
    }
    return record(t, noisy_phone());
}

}  // namespace imu::bench
