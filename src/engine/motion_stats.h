#pragma once
// Motion statistics: how much the raw accelerometer and gyroscope vary over
// their last 20 samples, the still counter, and the gyroscope bias estimate
// that the calibration step subtracts from every later sample.

#include <cstdint>

namespace imu {

// Tunables of the statistics (floats, as the update computes them).
inline constexpr int kStatsHistory = 20;            // samples per history and mean divisor
inline constexpr float kStandardGravity = 9.8066F;  // m/s^2 per g
inline constexpr float kAccLevelScale1 = 0.0007F;   // acc_level = sum / 0.0007 / 0.010391 / 3
inline constexpr float kAccLevelScale2 = 0.010391F;
inline constexpr float kGyroLevelScale1 = 2e-05F;  // gyro_level = sum / 2e-05 / 1.096622 / 3
inline constexpr float kGyroLevelScale2 = 1.096622F;
inline constexpr float kStillAccLevel = 60.0F;    // still: sum < 0.0013093 g^2 ...
inline constexpr float kStillGyroLevel = 30.0F;   // ... and sum < 0.0019739 (rad/s)^2
inline constexpr std::int32_t kStillCount = 200;  // bias taken on the 201st still update
inline constexpr float kQuietGyroLevel = 100.0F;  // zero-rate clamp below this level
inline constexpr float kZeroRate = 0.05235988F;   // 3 deg/s in rad/s

// A sample beyond any sensor's range (units of g or rad/s): while it is in
// the window its share swamps the others' in the running mean, whose
// rounding then loses them for good.
inline constexpr float kHugeSample = 1e4F;

// A 20-sample history per axis with its running mean, newest first.
struct AxisWindow {
    float history[3][kStatsHistory] = {};
    float mean[3] = {};

    // Pushes x and returns the summed squared deviation from the new mean:
    //   mean += (x - oldest) / 20;  shift;  d = sum_i (x_i - mean_i)^2
    // A mean that is no longer finite (a not-a-number or infinite sample
    // entered it), and the mean after a huge sample leaves the window, is
    // recomputed from the history, so it recovers as soon as the bad value
    // has left the window.
    float push(const float x[3]) noexcept;
};

class MotionStats {
public:
    // One update from the raw sample (acc in m/s^2, gyro in rad/s, device frame).
    void update(const float acc_raw[3], const float gyro_raw[3]) noexcept;

    // Zero-rate clamp of the filter's rate input (filter frame, rad/s): while
    // the gyroscope is quiet, components below 3 deg/s become 0.
    void clamp_rate(float w[3]) const noexcept;

    AxisWindow acc;   // units of g
    AxisWindow gyro;  // rad/s
    float acc_level = 0.0F;
    float gyro_level = 0.0F;
    std::int32_t static_count = 0;
    float gyro_bias_estimate[3] = {};  // rad/s, device frame
};

}  // namespace imu
