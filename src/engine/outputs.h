#pragma once
// The read side of the engine: the output block converted from the filter
// frame to the device frame, and the two getters with state of their own
// (the linear-acceleration high-pass and the compass heading).

#include <cstdint>

#include "engine/posture_filter.h"
#include "imu/engine.h"

namespace imu {

inline constexpr int kEinval = -22;
inline constexpr int kHighPassLength = 20;
inline constexpr float kHeadingFlatGz = 0.7071067F;          // |gz| above: lying flat
inline constexpr float kHeadingRearmGz = 0.19920109F;        // hysteresis on gz
inline constexpr double kHeadingScale = -57.29577951308232;  // radians to clockwise degrees

class OutputFilters {
public:
    // u (device frame, g) minus the running mean of its last 20 values,
    // the mean including u. Every call advances the history. A mean that is
    // not finite is recomputed from the history, as in the statistics.
    void high_pass(const float u[3], float out[3]) noexcept;

    // Compass heading in degrees [0, 360) of the block, with the formula
    // chosen for lying flat (1) or standing upright (2) under hysteresis.
    float compass_heading(const OutputBlock& block) noexcept;

    float history[3][kHighPassLength] = {};
    float mean[3] = {};
    std::int32_t heading_armed = 1;
    std::int32_t heading_orientation = 1;
    float heading_ref_gz = 0.0F;
};

// The getters on a given filter; the exported functions use the process's.
int euler_angle(const PostureFilter& f, float* out) noexcept;
int rotation_vector(const PostureFilter& f, float* out) noexcept;
int quaternion(const PostureFilter& f, float* out) noexcept;
int linear_acceleration(const PostureFilter& f, OutputFilters& o, float* out) noexcept;
int gravity(const PostureFilter& f, float* out) noexcept;
int rotation_matrix(const PostureFilter& f, float* out) noexcept;
int global_acceleration(const PostureFilter& f, float* out) noexcept;
int compass_heading(const PostureFilter& f, OutputFilters& o, float* out) noexcept;

// Zeroes the components of the sample's gyro below threshold_dps (deg/s).
void gyro_filter(IMU& sample, float threshold_dps) noexcept;

}  // namespace imu
