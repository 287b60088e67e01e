#pragma once
// The calibration run: while a run is on, each fusion cycle offers its
// sample to the collector, which keeps it only when the phone's direction
// (third column of the rotation matrix) has moved by a small, bounded step
// since the last kept sample.
//
//   restart --> 0 --(120th kept; reference z = -1)--> 1 --(240th kept)--> 2
//   2 --(next update: fit)--> 3, or -1 / -2 / -3 when a fit is rejected
//
// A restart (init_zarncalibrator) takes effect at the next update from any
// state.

#include <cstdint>

#include "imu/engine.h"

namespace imu {

inline constexpr std::int32_t kFirstHalf = 120;   // kept samples before the flip
inline constexpr std::int32_t kRunSamples = 240;  // kept samples of a whole run

struct CalibrationRun {
    std::int32_t calibration_restart = 0;
    std::int32_t calibration_state = 0;
    std::int32_t data_collect_counter = 0;
    float collect_reference[3] = {0.0F, 0.0F, 1.0F};
};

// The calibration run of the process.
CalibrationRun& calibration_run() noexcept;

// Offers one sample. v = (matrix[2], matrix[5], matrix[8]) and d the squared
// distance of v from reference: d > 0.1 refuses the sample silently
// (result 0); 0.002741 < d <= 0.1 keeps it (raw file line, counter + 1,
// reference = v). Otherwise prints "%+1.3f\t %3d\n" with d and the counter
// on standard output and returns the counter. Null pointers give 0.
int collect(const IMU* imu, const float* matrix, float* reference) noexcept;

}  // namespace imu
