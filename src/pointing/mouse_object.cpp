// The service's air mouse. The pointer position is advanced three ways,
// chosen by the 30-cycle mean m of the engine's gyro_level:
//
//   m <= 500           relative: x += W tan(dt * rate) / tan(W / k)
//   500 < m <= 1000    blend of relative and absolute, weight (m - 500) / 500
//   m > 1000           absolute: x = W (tan(yaw offset) / tan(W / k) + 1/2)
//
// with k the pixels per radian, so that a yaw offset of one view angle is
// one screen width from the centre. The internal position may leave the
// screen; the movement reported stops at the edges and resumes when the
// position comes back.

#include "pointing/mouse_object.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "imu/output.h"

namespace imu {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr float kViewAngleRad = 0.57596F;  // 33 degrees
constexpr float kPixelsPerRad = 2371.6926F;
constexpr std::int32_t kDefaultWidth = 1366;
constexpr std::int32_t kDefaultHeight = 768;
constexpr float kMaxOffsetDeg = 80.0F;  // keeps tan away from 90 degrees
constexpr float kDeadZoneRps = 0.03F;
constexpr float kRelativeBelow = 500.0F;  // gyro-level mean thresholds
constexpr float kAbsoluteAbove = 1000.0F;
constexpr int kYRate = 0;
constexpr int kXRate = 2;

double d(float v) { return static_cast<double>(v); }

double radians(float deg) { return d(deg) * kPi / 180.0; }

float clamp_offset(float deg) {
    if (deg > kMaxOffsetDeg) {
        return kMaxOffsetDeg;
    }
    return deg < -kMaxOffsetDeg ? -kMaxOffsetDeg : deg;
}

// Truncation toward zero into int32, saturating; not-a-number gives 0.
std::int64_t trunc_sat(float v) {
    constexpr float kLimit = 2147483520.0F;  // the largest float below 2^31
    if (!(v == v)) {
        return 0;
    }
    return static_cast<std::int64_t>(std::fmax(-kLimit, std::fmin(kLimit, v)));
}

std::int32_t to_int32(std::int64_t v) {
    constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(v > kMax ? kMax : (v < -kMax ? -kMax : v));
}

}  // namespace

std::int32_t pointer_movement(float pos, std::int32_t prev, std::int32_t size) noexcept {
    const float s = static_cast<float>(size);
    const std::int64_t p = prev;
    if (pos >= 0.0F && pos <= s && prev >= 0 && prev <= size) {
        return to_int32(trunc_sat(pos) - p);
    }
    if (pos >= s && prev <= size) {
        return to_int32(size - p);  // run up to the far edge
    }
    if (pos <= s && prev >= size) {
        return to_int32(trunc_sat(pos) - size);  // come back from the far edge
    }
    if (pos <= 0.0F && prev >= 0) {
        return to_int32(-p);  // run up to the near edge
    }
    if (pos >= 0.0F && prev <= 0) {
        return to_int32(trunc_sat(pos));  // come back from the near edge
    }
    return 0;  // both outside on the same side
}

velmo_mouse_obj::velmo_mouse_obj() noexcept { initial(); }

void velmo_mouse_obj::initial() noexcept {
    view_angle_rad = kViewAngleRad;
    pixels_per_rad = kPixelsPerRad;
    width = kDefaultWidth;
    height = kDefaultHeight;
    internal_x = 683.0F;
    internal_y = 384.0F;
    dx = 0;
    dy = 0;
    center_yaw_deg = 0.0F;
    center_pitch_deg = 0.0F;
    yaw_deg = 0.0F;
    pitch_deg = 0.0F;
    roll_deg = 0.0F;
    yaw_offset_deg = 0.0F;
    pitch_offset_deg = 0.0F;
    clamped_yaw_offset_deg = 0.0F;
    clamped_pitch_offset_deg = 0.0F;
    x = 683;
    y = 384;
    key_state = 0;
    recentre_pending = 0;
    std::memset(rate_rps, 0, sizeof rate_rps);
    std::memset(gyro_level_ring, 0, sizeof gyro_level_ring);
    gyro_level_mean = 0.0F;
}

void velmo_mouse_obj::center() noexcept {
    center_yaw_deg = yaw_deg;
    center_pitch_deg = pitch_deg;
    x = width / 2;
    y = height / 2;
    internal_x = static_cast<float>(width) * 0.5F;
    internal_y = static_cast<float>(height) * 0.5F;
}

int velmo_mouse_obj::update_resolution(float w, float h) noexcept {
    constexpr float kLargest = 1.0e7F;  // pixels; keeps every product in range
    if (!(w >= 1.0F && w <= kLargest && h >= 1.0F && h <= kLargest)) {
        return -22;
    }
    width = static_cast<std::int32_t>(w);
    height = static_cast<std::int32_t>(h);
    pixels_per_rad = static_cast<float>(width) / view_angle_rad;
    return 0;
}

double velmo_mouse_obj::absolute_x(double tan_x) const {
    return d(static_cast<float>(width)) * (std::tan(radians(clamped_yaw_offset_deg)) / tan_x + 0.5);
}

double velmo_mouse_obj::absolute_y(double tan_y) const {
    return d(static_cast<float>(height)) *
           (std::tan(radians(clamped_pitch_offset_deg)) / tan_y + 0.5);
}

void velmo_mouse_obj::place(double tan_x, double tan_y, float interval_us) {
    const float m = gyro_level_mean;
    if (m > kAbsoluteAbove) {
        internal_x = static_cast<float>(absolute_x(tan_x));
        internal_y = static_cast<float>(absolute_y(tan_y));
        return;
    }
    // The step angle is interval * rate / 1000, in single precision.
    const float step_x = interval_us * rate_rps[kXRate] / 1000.0F;
    const float step_y = interval_us * rate_rps[kYRate] / 1000.0F;
    const float rel_x = static_cast<float>(d(internal_x) + d(static_cast<float>(width)) *
                                                               std::tan(d(step_x)) / tan_x);
    const float rel_y = static_cast<float>(d(internal_y) + d(static_cast<float>(height)) *
                                                               std::tan(d(step_y)) / tan_y);
    if (m <= kRelativeBelow) {
        internal_x = rel_x;
        internal_y = rel_y;
        return;
    }
    const float w = (m - kRelativeBelow) / kRelativeBelow;
    internal_x = static_cast<float>(d(rel_x * (1.0F - w)) + absolute_x(tan_x) * d(w));
    internal_y = static_cast<float>(d(rel_y * (1.0F - w)) + absolute_y(tan_y) * d(w));
}

// Far outside the screen on the same side as last cycle, the position is
// taken from the direction of the phone again. A position that is not a
// number (bad input) is re-anchored too, or put at the centre.
void velmo_mouse_obj::reanchor(double tan_x, double tan_y) {
    const float w = static_cast<float>(width);
    const float h = static_cast<float>(height);
    const float px = static_cast<float>(x);
    const float py = static_cast<float>(y);
    if ((internal_x >= 1.2F * w && px >= 1.2F * w) ||
        (internal_x <= -0.2F * w && px <= -0.2F * w) || !std::isfinite(internal_x)) {
        internal_x = static_cast<float>(absolute_x(tan_x));
    }
    if ((internal_y >= 1.2F * h && py >= 1.2F * h) ||
        (internal_y <= -0.2F * h && py <= -0.2F * h) || !std::isfinite(internal_y)) {
        internal_y = static_cast<float>(absolute_y(tan_y));
    }
    if (!std::isfinite(internal_x) || !std::isfinite(internal_y)) {
        internal_x = w * 0.5F;
        internal_y = h * 0.5F;
    }
}

void velmo_mouse_obj::update(const IMU* imu, const SFC_OUT* out, int key,
                             std::int32_t interval_us) noexcept {
    if (imu == nullptr || out == nullptr) {
        return;
    }
    yaw_deg = out->euler[0];
    pitch_deg = out->euler[1];
    roll_deg = out->euler[2];
    key_state = key;

    // Roll compensation of the gyro x and z rates.
    const double r = radians(roll_deg);
    const double gx = d(imu->gyro[0]);
    const double gz = d(imu->gyro[2]);
    rate_rps[kXRate] = static_cast<float>(std::sin(r) * gx - std::cos(r) * gz);
    rate_rps[kYRate] = static_cast<float>(std::cos(r) * gx + std::sin(r) * gz);

    // Running mean of the last 30 gyro levels; a level that is not a
    // number enters as 0 so that the mean recovers.
    const float level = std::isfinite(out->gyro_level) ? out->gyro_level : 0.0F;
    gyro_level_mean += (level - gyro_level_ring[0]) / static_cast<float>(kGyroLevelRing);
    std::memmove(gyro_level_ring, gyro_level_ring + 1, sizeof(float) * (kGyroLevelRing - 1));
    gyro_level_ring[kGyroLevelRing - 1] = level;

    yaw_offset_deg = yaw_deg - center_yaw_deg;
    if (yaw_offset_deg > 180.0F) {
        yaw_offset_deg -= 360.0F;
    } else if (yaw_offset_deg < -180.0F) {
        yaw_offset_deg += 360.0F;
    }
    clamped_yaw_offset_deg = clamp_offset(yaw_offset_deg);
    pitch_offset_deg = pitch_deg - center_pitch_deg;
    clamped_pitch_offset_deg = clamp_offset(pitch_offset_deg);

    for (float& v : rate_rps) {
        if (-kDeadZoneRps < v && v < kDeadZoneRps) {
            v = 0.0F;
        }
    }
    const double tan_x = std::tan(d(static_cast<float>(width) / pixels_per_rad));
    const double tan_y = std::tan(d(static_cast<float>(height) / pixels_per_rad));
    place(tan_x, tan_y, static_cast<float>(interval_us));
    reanchor(tan_x, tan_y);
    dx = pointer_movement(internal_x, x, width);
    dy = pointer_movement(internal_y, y, height);
    x = to_int32(trunc_sat(internal_x));
    y = to_int32(trunc_sat(internal_y));
}

int velmo_mouse_obj::getdata(float* out) noexcept {
    if (out == nullptr) {
        return -22;
    }
    out[0] = static_cast<float>(dx);
    out[1] = static_cast<float>(dy);
    out[2] = static_cast<float>(key_state);
    report_mouse_event_to_system();
    return 0;
}

int velmo_mouse_obj::report_mouse_event_to_system() noexcept {
    if ((key_state & kKeyRecentre) != 0) {
        recentre_pending = 1;
        return 0;
    }
    if (recentre_pending == 1) {
        recentre_pending = 0;
        center();
        // Into the top-left corner, then to the middle of the screen.
        input_mouse_event(-width, -height, key_state);
        input_mouse_event(width / 2, height / 2, key_state);
        return 0;
    }
    input_mouse_event(dx, -dy, key_state);  // the system's y runs downwards
    return 0;
}

}  // namespace imu
