#pragma once
// The engine's small row-major matrix library and the frame change between
// the device frame and the filter frame. The exported functions are declared
// in imu/engine.h; these two are internal.

#include <type_traits>

#include "imu/engine.h"

static_assert(std::is_trivially_copyable_v<IMU> && sizeof(IMU) == 8 * 3 * sizeof(float),
              "IMU is eight float triplets");
static_assert(sizeof(SFC_OUT) == (5 * 3 + 9 + 2) * sizeof(float),
              "SFC_OUT is five triplets, a 3x3 matrix and two levels");

namespace imu {

// The axis matrix: device (x, y, z) -> filter (x, -y, -z). It is its own
// inverse, so it also maps filter vectors back to the device frame.
inline constexpr float kAxisMatrix[9] = {1.0F, 0.0F, 0.0F, 0.0F, -1.0F, 0.0F, 0.0F, 0.0F, -1.0F};

// Divides the n elements of v by their Euclidean length: squares in float,
// their sum and the root in double. A zero vector becomes all not-a-number.
void vector_normalize(float* v, int n) noexcept;

// out (3) = axis matrix . in (3), summed in float.
void axis_transform(float* out, const float* in) noexcept;

}  // namespace imu
