#pragma once
// The calibration workspace and the integer ellipsoid and sphere fits that
// turn the 240 samples of a calibration run into offsets and scales.
//
// Integer ellipsoid: six int32 values, centre x, y, z and semi-axes x, y, z,
// in thousandths of the sample unit. Lengths are divided by a scale divisor
// (a power of ten) that keeps the scaled numbers at or below 2000.

#include <cstdint>

namespace imu {

inline constexpr int kCalibSamples = 240;
inline constexpr int kAccSensor = 1;  // the sensor selector "which"
inline constexpr int kMagSensor = 2;
inline constexpr std::int32_t kAccFitLimit = 30000;
inline constexpr std::int32_t kMagFitLimit = 500;

struct CalibratorSample {
    float acc[3];
    float mag[3];
};

// NOLINTNEXTLINE(readability-identifier-naming): the workspace keeps its name
struct calibrator_data_struct {
    CalibratorSample sample[kCalibSamples];  // filled by read_acc_mag_raw
    float acc_fit[6];                        // centre x, y, z, semi-axis x, y, z
    float mag_fit[6];
    std::int32_t acc_fit_limit;
    std::int32_t mag_fit_limit;
};

// The one workspace of the process (zeroed at load).
calibrator_data_struct& calibrator_workspace() noexcept;

// Reloads the samples from the raw sample file, fits both sensors, stores
// the offsets and scales in the calibration block and saves it. Returns 0,
// -1 (accelerometer fit rejected), -2 (magnetometer) or -3 (both). A
// rejected fit is stored all the same, except that a fit with a semi-axis
// of 0 leaves that sensor's scales as they were.
int calculate_bias() noexcept;

// Fits an axis-aligned ellipsoid to the selected triple (kAccSensor or
// kMagSensor) of all samples, after multiplying that triple by 1000 in
// place, and writes acc_fit or mag_fit. Returns 0, or -1 / -2 when the fit
// breaks the sensor's limit or has a semi-axis of 0. Prints its verdict on
// standard output. A null workspace or another selector returns -22 and
// changes nothing.
int fitting(calibrator_data_struct* ws, int which) noexcept;

// The mean radius of the selected triple (already multiplied by 1000) about
// its least-squares centre, in the unit of the samples as stored (so the
// sensor's own unit). A null workspace or another selector gives 0.
float sphere(calibrator_data_struct* ws, int which) noexcept;

// Squared distance of the integer point q (3 values) from the surface of
// the integer ellipsoid p (6 values), in units of the scale divisor s
// (values below 1 count as 1). Null pointers give 0. Saturates at INT32_MAX.
std::int32_t distance(const std::int32_t* p, const std::int32_t* q, std::int32_t s) noexcept;

// Squared distance from the surface for n = 1 to 3 axes, scaled semi-axes e
// (largest first) and the point's non-negative offsets y along them, by a
// fixed-point bisection for the root of sum (e*y / (t + e*e))^2 = 1. Another
// n or null pointers give 0. Saturates at INT32_MAX.
std::int32_t bisector(int n, const std::int64_t* e, const std::int64_t* y) noexcept;

// The sum of distance (p, points[i], s) over count points, with the axis
// order of p worked out once. Null pointers give 0.
std::int64_t summed_distance(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                             std::int32_t s) noexcept;

// The same sum in vector lanes of the given width: 8 where the processor
// has 256-bit vectors (AVX2), else 4, which summed_distance uses on other
// processors. Results do not depend on the width.
std::int64_t summed_distance_lanes(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                                   std::int32_t s, int width) noexcept;

}  // namespace imu
