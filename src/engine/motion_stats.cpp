#include "engine/motion_stats.h"

#include <cmath>

namespace imu {

float AxisWindow::push(const float x[3]) noexcept {
    constexpr int last = kStatsHistory - 1;
    constexpr auto n = static_cast<float>(kStatsHistory);
    float sum = 0.0F;
    for (int i = 0; i < 3; ++i) {
        float* h = history[i];
        const float leaving = h[last];
        mean[i] = (x[i] - leaving) / n + mean[i];
        for (int k = last; k > 0; --k) {
            h[k] = h[k - 1];
        }
        h[0] = x[i];
        if (!std::isfinite(mean[i]) || !(std::fabs(leaving) < kHugeSample)) {
            float total = 0.0F;
            for (int k = 0; k < kStatsHistory; ++k) {
                total += h[k];
            }
            mean[i] = total / n;
        }
        const float d = x[i] - mean[i];
        sum += d * d;  // ((d0 + d1) + d2), starting from 0 exactly
    }
    return sum;
}

void MotionStats::update(const float acc_raw[3], const float gyro_raw[3]) noexcept {
    float acc_g[3];
    for (int i = 0; i < 3; ++i) {
        acc_g[i] = acc_raw[i] / kStandardGravity;
    }
    acc_level = acc.push(acc_g) / kAccLevelScale1 / kAccLevelScale2 / 3.0F;
    gyro_level = gyro.push(gyro_raw) / kGyroLevelScale1 / kGyroLevelScale2 / 3.0F;

    // A not-a-number level fails both comparisons and restarts the count.
    if (acc_level < kStillAccLevel && gyro_level < kStillGyroLevel) {
        ++static_count;
    } else {
        static_count = 0;
    }
    if (static_count > kStillCount) {
        for (int i = 0; i < 3; ++i) {
            gyro_bias_estimate[i] = gyro.mean[i];
        }
        static_count = 0;
    }
}

void MotionStats::clamp_rate(float w[3]) const noexcept {
    if (!(gyro_level < kQuietGyroLevel)) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        if (std::fabs(w[i]) < kZeroRate) {
            w[i] = 0.0F;
        }
    }
}

}  // namespace imu
