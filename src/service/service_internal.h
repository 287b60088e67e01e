#pragma once
// Constants and small helpers shared by the files of the fusion service.

#include <cmath>
#include <cstdint>
#include <limits>

namespace imu {

// Every line of the service goes to the Android log at error priority.
inline constexpr int kLogError = 6;
inline constexpr const char* kTag = "VLM_SFC";

// Service modes (fusiond_mode).
//   0  sensors polled by the service, absolute gyroscope timestamps
//   1  "box": only mEnabled bits, engine fusion mode 2, cycle on the
//      accelerometer alone, no save log
//   2  as 0, but accelerometer and magnetometer pushed by the caller and
//      gyroscope timestamps that are intervals
//   3  calibrator mode 2 around the control path, air mouse every cycle,
//      a cycle may run with nothing enabled while button bit 7 is held
//   4  as 3 with interval timestamps and no air mouse by default
//   5  as 3 with calibrator mode 0
// Input type 999 switches between 3 and 5 with button bit 5.
inline constexpr std::int32_t kModeNormal = 0;
inline constexpr std::int32_t kModeBox = 1;
inline constexpr std::int32_t kModeInterval = 2;
inline constexpr std::int32_t kModeCalibrate = 3;
inline constexpr std::int32_t kModeIntervalCalibrate = 4;
inline constexpr std::int32_t kModeMouse = 5;

// Engine fusion modes the service sets: 2 lets the filter update without a
// magnetometer sample (box mode, calibration run), 0 is the default.
inline constexpr std::int32_t kEngineDefault = 0;
inline constexpr std::int32_t kEngineNoMagnetometer = 2;

// Timing kinds of calculate_time_diff.
inline constexpr int kTimingAbsolute = 0;
inline constexpr int kTimingInterval = 1;
// Intervals above this many microseconds run no cycle.
inline constexpr std::int32_t kMaxIntervalUs = 999999;

// Button word bits (input type 999).
inline constexpr std::int32_t kButtonMouseMode = 1 << 5;  // 3 while set, 5 while clear
inline constexpr std::int32_t kButtonRunCycle = 1 << 7;   // cycles with nothing enabled

inline constexpr std::int32_t kDefaultScreenWidth = 1280;
inline constexpr std::int32_t kDefaultScreenHeight = 720;

// How often the destructor looks whether the poll thread has gone.
inline constexpr std::uint32_t kJoinPollUs = 1000;

// The enable bit of a virtual sensor index; no bit outside 0 to 31.
constexpr std::uint32_t index_bit(int index) {
    return index >= 0 && index < 32 ? 1U << static_cast<unsigned>(index) : 0U;
}

// float -> int32 truncating toward zero; NaN gives 0 and values beyond the
// range saturate, so a garbage button word or fixed output has a defined
// value.
inline std::int32_t saturating_trunc(float v) {
    if (std::isnan(v)) {
        return 0;
    }
    if (v >= 2147483648.0F) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (v < -2147483648.0F) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(v);
}

// The engine's fusion mode, for the log lines.
int engine_fusion_mode() noexcept;

}  // namespace imu
