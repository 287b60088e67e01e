// The gesture feature pipeline: one update per fusion cycle writes the
// shared signals that every detector reads.

#include "gestures/feature_pipeline.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

// The shared signals: exported, written only by update_gesture_signals.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
extern "C" {
IMU_EXPORT IMU imu_g = {};
IMU_EXPORT float gravity_g[3] = {};
IMU_EXPORT float gravity_g_abs[3] = {};
IMU_EXPORT float global_acc[3] = {};
IMU_EXPORT float comp_acc = 0.0F;
IMU_EXPORT float comp_gyro = 0.0F;
IMU_EXPORT float gyro_g_abs[3] = {};
IMU_EXPORT float dt_g = 0.0F;
IMU_EXPORT float ax_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float ay_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float az_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float wx_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float wy_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float wz_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float a_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float w_raw[IMU_GESTURE_HISTORY] = {};
IMU_EXPORT float w_filtered[3] = {};
IMU_EXPORT float w_filtered_h[3] = {};
IMU_EXPORT float a_filtered = 0.0F;
IMU_EXPORT float a_filtered_h = 0.0F;
IMU_EXPORT float w_filtered_mag = 0.0F;
IMU_EXPORT float w_filtered_mag_h = 0.0F;
IMU_EXPORT float gyro_static_level_g = 0.0F;
IMU_EXPORT float acc_static_level_g = 0.0F;
}
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

namespace imu {
namespace {

constexpr int kHalf = kHistory / 2;  // index of the centre tap

// Coefficients 0 to 28 of a symmetric kernel; 29 to 56 mirror them.
using HalfKernel = std::array<double, kHalf + 1>;

constexpr Kernel57 mirrored(const HalfKernel& half) {
    Kernel57 k{};
    for (int i = 0; i <= kHalf; ++i) {
        k[static_cast<std::size_t>(i)] = half[static_cast<std::size_t>(i)];
        k[static_cast<std::size_t>(kHistory - 1 - i)] = half[static_cast<std::size_t>(i)];
    }
    return k;
}

constexpr HalfKernel kHalfA = {
    -0.00148406608, 0.00524701523,   -0.00644657208, -0.000571625231, 0.00899671203,
    -0.00590402938, -0.00312767784,  0.000179159443, 0.00911784967,   -0.00338989378,
    -0.00787924239, -0.000832597718, 0.0131191651,   0.000813817177,  -0.0142655976,
    -0.00604745089, 0.0190538471,    0.0102261498,   -0.021313546,    -0.019444375,
    0.0254022099,   0.0313817234,    -0.0275397836,  -0.0535178008,   0.0303059791,
    0.0993533719,   -0.0312189516,   -0.316319647,   0.532150423,
};

constexpr HalfKernel kHalfB = {
    3.07777334e-05, 0.000483009006, -0.00221366763, 0.00533043021,  -0.00846129761, 0.00892559243,
    -0.00480308252, -0.00246097468, 0.00778684451,  -0.00613221106, -0.00223560114, 0.0101820818,
    -0.00909368742, -0.00229568055, 0.0143349096,   -0.0138475835,  -0.00230904016, 0.0207258843,
    -0.0213379125,  -0.00228045533, 0.0313973219,   -0.0345439331,  -0.00222372776, 0.0535263434,
    -0.0656353894,  -0.00217957077, 0.137814239,    -0.274030181,   0.331172309,
};

// a_raw holds comp_acc minus one standard gravity (double constant).
constexpr double kGravityOffset = 9.8066;

// s = |w|^2 / kRateVariance / kRateGain / 3 axes.
constexpr double kRateVariance = 0.00002;
constexpr double kRateGain = 1.096622;
constexpr double kAxes = 3.0;

constexpr double kMicrosecondsPerSecond = 1000000.0;

void copy3(float* dst, const float* src) noexcept { std::memcpy(dst, src, 3 * sizeof(float)); }

void abs3(float* dst, const float* src) noexcept {
    for (int k = 0; k < 3; ++k) {
        dst[k] = std::fabs(src[k]);
    }
}

}  // namespace

const Kernel57 kKernelA = mirrored(kHalfA);
const Kernel57 kKernelB = mirrored(kHalfB);

float apply_kernel(const Kernel57& kernel, const float (&history)[kHistory]) noexcept {
    float sum = 0.0F;
    for (int j = 0; j < kHistory; ++j) {
        const double product =
            kernel[static_cast<std::size_t>(j)] * static_cast<double>(history[kHistory - 1 - j]);
        sum = static_cast<float>(static_cast<double>(sum) + product);
    }
    return sum;
}

void push_history(float (&history)[kHistory], float value) noexcept {
    std::memmove(&history[0], &history[1], (kHistory - 1) * sizeof(float));
    history[kHistory - 1] = value;
}

float magnitude(const float* v) noexcept {
    const float squares = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
    return static_cast<float>(std::sqrt(static_cast<double>(squares)));
}

float MotionLevel::update(const float* gyro_rps) noexcept {
    const float squares =
        gyro_rps[0] * gyro_rps[0] + gyro_rps[1] * gyro_rps[1] + gyro_rps[2] * gyro_rps[2];
    const auto s =
        static_cast<float>(static_cast<double>(squares) / kRateVariance / kRateGain / kAxes);

    // m35 += (s - s[35 updates ago]) / 35
    const float leaving_stat = stats_.front();
    m35_ = static_cast<float>(static_cast<double>(m35_) + static_cast<double>(s - leaving_stat) /
                                                              static_cast<double>(kStatWindow));
    std::copy(stats_.begin() + 1, stats_.end(), stats_.begin());
    stats_.back() = s;

    // level += (m35 - m35[30 updates ago]) / 30
    const float leaving_mean = means_.front();
    level_ =
        static_cast<float>(static_cast<double>(level_) + static_cast<double>(m35_ - leaving_mean) /
                                                             static_cast<double>(kMeanWindow));
    std::copy(means_.begin() + 1, means_.end(), means_.begin());
    means_.back() = m35_;
    return level_;
}

namespace {

// The eight filters of a cycle in one pass over the taps: each output is the
// same running sum as apply_kernel (same order, same rounding), but the
// eight independent sums overlap instead of waiting on each other.
void filter_histories() noexcept {
    const float* const histories[] = {wx_raw, wy_raw, wz_raw, a_raw};
    constexpr int kCount = 4;
    float sum_a[kCount] = {};
    float sum_b[kCount] = {};
    for (int j = 0; j < kHistory; ++j) {
        const double ka = kKernelA[static_cast<std::size_t>(j)];
        const double kb = kKernelB[static_cast<std::size_t>(j)];
        for (int h = 0; h < kCount; ++h) {
            const auto x = static_cast<double>(histories[h][kHistory - 1 - j]);
            sum_a[h] = static_cast<float>(static_cast<double>(sum_a[h]) + ka * x);
            sum_b[h] = static_cast<float>(static_cast<double>(sum_b[h]) + kb * x);
        }
    }
    for (int axis = 0; axis < 3; ++axis) {
        w_filtered[axis] = sum_a[axis];
        w_filtered_h[axis] = sum_b[axis];
    }
    a_filtered = sum_a[3];
    a_filtered_h = sum_b[3];
}

}  // namespace

void update_gesture_signals(const IMU& imu, const SFC_OUT& out, std::int32_t dt_us,
                            MotionLevel& motion) noexcept {
    imu_g = imu;
    copy3(gravity_g, out.gravity);
    copy3(global_acc, out.global_acc);
    comp_acc = magnitude(imu.acc);
    comp_gyro = magnitude(imu.gyro);
    dt_g =
        static_cast<float>(static_cast<double>(static_cast<float>(dt_us)) / kMicrosecondsPerSecond);
    abs3(gyro_g_abs, imu.gyro);
    abs3(gravity_g_abs, gravity_g);
    global_acc[2] += 1.0F;

    push_history(ax_raw, imu.acc[0]);
    push_history(ay_raw, imu.acc[1]);
    push_history(az_raw, imu.acc[2]);
    push_history(wx_raw, imu.gyro[0]);
    push_history(wy_raw, imu.gyro[1]);
    push_history(wz_raw, imu.gyro[2]);
    push_history(a_raw, static_cast<float>(static_cast<double>(comp_acc) - kGravityOffset));
    push_history(w_raw, comp_gyro);

    filter_histories();
    w_filtered_mag = magnitude(w_filtered);
    w_filtered_mag_h = magnitude(w_filtered_h);

    acc_static_level_g = 0.0F;
    gyro_static_level_g = motion.update(imu.gyro);
}

}  // namespace imu
