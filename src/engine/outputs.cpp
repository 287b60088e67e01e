#include "engine/outputs.h"

#include <cmath>
#include <cstring>

namespace imu {
namespace {

bool all_zero(const float* v) {
    return v[0] == 0.0F && v[1] == 0.0F && v[2] == 0.0F;  // -0.0 counts as 0
}

constexpr double kRadPerDeg = 0.017453292519943295;

}  // namespace

void OutputFilters::high_pass(const float u[3], float out[3]) noexcept {
    constexpr int last = kHighPassLength - 1;
    constexpr auto n = static_cast<float>(kHighPassLength);
    for (int i = 0; i < 3; ++i) {
        float* h = history[i];
        mean[i] = (u[i] - h[last]) / n + mean[i];
        for (int k = last; k > 0; --k) {
            h[k] = h[k - 1];
        }
        h[0] = u[i];
        if (!std::isfinite(mean[i])) {  // a bad value entered: recompute
            float total = 0.0F;
            for (int k = 0; k < kHighPassLength; ++k) {
                total += h[k];
            }
            mean[i] = total / n;
        }
        out[i] = u[i] - mean[i];
    }
}

// Hysteresis: after a switch the formula cannot switch back until gravity z
// has moved 0.1992 away from its value at the switch.
float OutputFilters::compass_heading(const OutputBlock& block) noexcept {
    const float gz = block.gravity[2];
    if (heading_armed == 0 && std::fabs(gz - heading_ref_gz) >= kHeadingRearmGz) {
        heading_armed = 1;
    }
    const std::int32_t wanted = std::fabs(gz) > kHeadingFlatGz ? 1 : 2;
    if (heading_orientation != wanted && heading_armed == 1) {
        heading_armed = 0;
        heading_ref_gz = gz;
        heading_orientation = heading_orientation == 1 ? 2 : 1;
    }
    const float* r = block.rotation_matrix;
    // Flat: the top edge's direction (column 1); upright: the back's (column 2).
    const double angle = heading_orientation == 1
                             ? std::atan2(static_cast<double>(r[1]), static_cast<double>(r[4]))
                             : std::atan2(static_cast<double>(-r[2]), static_cast<double>(-r[5]));
    auto heading = static_cast<float>(angle * kHeadingScale);
    if (heading < 0.0F) {
        heading += 360.0F;
    }
    return heading;
}

int euler_angle(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr || f.output_valid == 0) {
        return kEinval;
    }
    const float* e = f.out.euler;  // psi, theta, phi
    out[0] = e[0] < 0.0F ? e[0] + 360.0F : e[0];
    out[1] = -e[2];
    out[2] = e[1];
    return all_zero(out) ? kEinval : 0;
}

int rotation_vector(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr) {
        return kEinval;
    }
    const float* r = f.out.rotation_vector;
    out[0] = r[0];
    out[1] = -r[1];
    out[2] = -r[2];
    return all_zero(out) ? kEinval : 0;
}

// Device-frame quaternion (x, y, z, w): the filter quaternion conjugated by
// a half turn about x, with w made non-negative.
int quaternion(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr || f.output_valid == 0) {
        return kEinval;
    }
    const float* q = f.output_quat;
    const float v[4] = {q[1], -q[2], -q[3], q[0]};
    const bool flip = q[0] < 0.0F;
    for (int i = 0; i < 4; ++i) {
        out[i] = flip ? -v[i] : v[i];
    }
    return 0;
}

int linear_acceleration(const PostureFilter& f, OutputFilters& o, float* out) noexcept {
    if (out == nullptr || f.output_valid == 0) {
        return kEinval;
    }
    const float* l = f.out.linear_acc;
    const float u[3] = {l[0], -l[1], -l[2]};
    o.high_pass(u, out);
    return all_zero(out) ? kEinval : 0;
}

int gravity(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr) {
        return kEinval;
    }
    const float* g = f.out.gravity;
    out[0] = -g[0];
    out[1] = g[1];
    out[2] = g[2];
    return all_zero(out) ? kEinval : 0;
}

int rotation_matrix(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr) {
        return kEinval;
    }
    std::memcpy(out, f.out.rotation_matrix, sizeof f.out.rotation_matrix);
    return 0;
}

int global_acceleration(const PostureFilter& f, float* out) noexcept {
    if (out == nullptr || f.output_valid == 0) {
        return kEinval;
    }
    const float* e = f.out.global_acc;
    out[0] = e[1];
    out[1] = e[0];
    out[2] = -e[2];
    return all_zero(out) ? kEinval : 0;
}

int compass_heading(const PostureFilter& f, OutputFilters& o, float* out) noexcept {
    if (out == nullptr || f.output_valid == 0) {
        return kEinval;
    }
    const float heading = o.compass_heading(f.out);
    out[1] = 0.0F;
    out[0] = heading;
    return heading == 0.0F && out[2] == 0.0F ? kEinval : 0;
}

void gyro_filter(IMU& sample, float threshold_dps) noexcept {
    const auto limit = static_cast<float>(static_cast<double>(threshold_dps) * kRadPerDeg);
    for (float& g : sample.gyro) {
        if (std::fabs(g) < limit) {
            g = 0.0F;
        }
    }
}

}  // namespace imu
