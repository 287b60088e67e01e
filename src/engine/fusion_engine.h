#pragma once
// The fusion engine of the process: motion statistics, the posture filter
// and the output getters' state, driven one sample at a time.
//
//   sfc_update_posture(sample, dt)
//     -> version lines (first update only)
//     -> motion statistics (levels, still count, gyroscope bias)
//     -> calibration step (gyro = gyro_raw - bias, acc and mag)
//     -> filter frame; missing field? (modes 0, 3, 4) -> 1
//     -> zero-rate clamp -> initialise (-> 1) or filter (-> 0)
//     -> still but 60 deg off for 100 updates? -> initialise from the sample

#include <atomic>
#include <cstdint>

#include "engine/motion_stats.h"
#include "engine/outputs.h"
#include "engine/posture_filter.h"
#include "imu/engine.h"

namespace imu {

inline constexpr const char* kEngineVersion = "1.2.2";

// A still device whose estimated down direction stays more than 60 deg from
// the measured one for this many consecutive updates is re-initialised from
// the sample. After a turn the gyroscope missed (a gap in the samples, a
// sample that threw the estimate) the covariance is small and the
// accelerometer correction slow; near the opposite direction it has almost
// no gradient, and near a vertical x axis the heading correction holds
// against it, so the filter would otherwise sit far off for a minute or more.
inline constexpr std::int32_t kFarOffStillUpdates = 100;
inline constexpr float kFarOffCosine = 0.5F;  // cos 60 deg

// Whether a fusion mode refuses an update without a magnetometer sample.
constexpr bool mode_needs_field(std::int32_t mode) { return mode == 0 || mode == 3 || mode == 4; }

struct Engine {
    // One posture update; see sfc_update_posture. Returns 0 or 1.
    int update(IMU& sample, std::int32_t time_ns) noexcept;

    MotionStats stats;
    PostureFilter filter;
    OutputFilters outputs;
    std::int32_t version_log_pending = 1;
    std::int32_t far_off_still_count = 0;  // consecutive still updates judged far off
    std::atomic<std::int32_t> fusion_mode{0};  // written by the control path
};

// The one engine of the process (the exported functions work on it).
Engine& engine() noexcept;

}  // namespace imu
