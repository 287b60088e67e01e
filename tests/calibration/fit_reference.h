#pragma once
// The first, plain implementation of the integer ellipsoid fit, kept as the
// reference the fast one must match number for number: the distance from
// the surface by a bisection per point, and the pattern search with its
// messages left out.

#include <cstdint>

#include "calibration/fitting.h"

namespace imu::test::reference {

std::int32_t bisector(int n, const std::int64_t* e, const std::int64_t* y) noexcept;
std::int32_t distance(const std::int32_t* p, const std::int32_t* q, std::int32_t s) noexcept;

// What fitting (ws, which) leaves: the result, the six fitted values and
// the selected triples multiplied by 1000. Prints and logs nothing.
struct FitResult {
    int result = 0;
    float fit[6] = {};
};
FitResult fitting(calibrator_data_struct* ws, int which) noexcept;

}  // namespace imu::test::reference
