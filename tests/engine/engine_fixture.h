#pragma once
// Engine test pieces: a fixture with a fresh file root and a captured log,
// and a replay of a synthetic recording that records the orientation error.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "imu/engine.h"
#include "sim/sim_recording.h"
#include "support/alloc_counter.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace imu::test {

class EngineTest : public testing::Test {
protected:
    TempRoot root_;
    LogCapture log_;
};

// The published orientation as q_world_from_device; w = NaN when refused.
inline sim::Quat published_orientation() {
    float q[4] = {};
    return sfc_get_quaternion(q) != 0 ? sim::Quat{NAN, 0, 0, 0} : sim::Quat{q[3], q[0], q[1], q[2]};
}

struct Trace {
    std::vector<int> result;        // of sfc_update_posture
    std::vector<double> error_deg;  // NaN before the first filtering update
    // Largest error over samples [from, to); a NaN counts as infinite.
    double max_error(std::size_t from, std::size_t to = SIZE_MAX) const {
        double worst = 0.0;
        for (std::size_t i = from; i < std::min(to, error_deg.size()); ++i) {
            worst = std::isnan(error_deg[i]) ? INFINITY : std::max(worst, error_deg[i]);
        }
        return worst;
    }
};

inline Trace replay(const std::vector<sim::Sample>& samples, const sim::SensorModel& model) {
    Trace trace;
    bool filtering = false;
    for (const sim::Sample& s : samples) {
        IMU imu = sim::to_imu(s);
        trace.result.push_back(sfc_update_posture(&imu, sim::interval_ns(model)));
        filtering = filtering || trace.result.back() == 0;
        trace.error_deg.push_back(
            filtering ? sim::angle_between_deg(published_orientation(), s.truth) : NAN);
    }
    return trace;
}

// Noise of a phone at rest, well inside the still test's limits.
inline sim::SensorModel quiet_phone() {
    sim::SensorModel m;
    m.acc_noise_mps2 = 0.05;
    m.gyro_noise_rps = 0.003;
    m.mag_noise_ut = 0.4;
    return m;
}

// A still recording of the pose (azimuth, pitch, roll in deg) for `seconds`.
inline std::vector<sim::Sample> still(const double (&pose)[3], double seconds,
                                      const sim::SensorModel& model = quiet_phone()) {
    return record(sim::Trajectory(sim::pose(pose[0], pose[1], pose[2])).hold(seconds), model);
}

}  // namespace imu::test
