#pragma once
// The gesture feature pipeline: the signals every detector reads, computed
// once per cycle into the exported globals of imu/gestures.h.

#include <array>
#include <cstdint>

#include "imu/gestures.h"

namespace imu {

inline constexpr int kHistory = IMU_GESTURE_HISTORY;
inline constexpr float kGravityMps2 = 9.8066F;

using Kernel57 = std::array<double, kHistory>;

// Two symmetric 57-tap kernels (coefficient k equals 56 - k) that sum to
// nearly zero: A passes the faster rate changes, B the fastest ones.
extern const Kernel57 kKernelA;
extern const Kernel57 kKernelB;

// out = sum over j of kernel[j] * history[56 - j]: each product in double,
// the running sum in float from 0 (newest sample first).
float apply_kernel(const Kernel57& kernel, const float (&history)[kHistory]) noexcept;

// Drops history[0], moves the rest one place down and stores value at 56.
void push_history(float (&history)[kHistory], float value) noexcept;

// |v| with the squares summed in float and the root taken in double.
float magnitude(const float* v) noexcept;

// Slow motion level from the angular rate:
//   s     = |w|^2 / 0.00002 / 1.096622 / 3.0
//   m35   = mean of s over the last 35 updates
//   level = mean of m35 over the last 30 updates
// Both means are running sums of differences against the value leaving the
// window, so a steady input is reached after 35 + 30 - 1 = 64 updates.
class MotionLevel {
public:
    static constexpr int kStatWindow = 35;
    static constexpr int kMeanWindow = 30;

    // Adds one gyroscope sample (rad/s) and returns the new level.
    float update(const float* gyro_rps) noexcept;
    float level() const noexcept { return level_; }

private:
    std::array<float, kStatWindow> stats_{};  // oldest first
    std::array<float, kMeanWindow> means_{};  // oldest first
    float m35_ = 0.0F;
    float level_ = 0.0F;
};

// One cycle of the pipeline: rewrites every shared signal from the sample,
// its fusion output and the cycle time in microseconds.
void update_gesture_signals(const IMU& imu, const SFC_OUT& out, std::int32_t dt_us,
                            MotionLevel& motion) noexcept;

}  // namespace imu
