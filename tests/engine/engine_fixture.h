#pragma once
// Engine test pieces: a fixture with a fresh file root and a captured log,
// and a replay of a synthetic recording that records the orientation error.

#include <gtest/gtest.h>

#include <cmath>
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
    double max_error(std::size_t from, long to = -1) const {
        const std::size_t end = to < 0 ? error_deg.size() : static_cast<std::size_t>(to);
        double worst = 0.0;
        for (std::size_t i = from; i < end; ++i) {
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
        const int r = sfc_update_posture(&imu, sim::interval_ns(model));
        trace.result.push_back(r);
        filtering = filtering || r == 0;
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

}  // namespace imu::test
