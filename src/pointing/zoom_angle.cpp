#include "pointing/zoom_angle.h"

#include <cmath>

namespace imu {
namespace {

constexpr float kStandardG = 9.8066F;         // m/s^2
constexpr double kPiF = 3.1415927410125732;   // pi as a float holds it
constexpr std::int32_t kFaceDownCycles = 10;  // more than this continues past 90

// tilt = asin(g / G) in whole degrees, truncated toward zero; face down for
// long enough it runs on to 180 - tilt, wrapped into (-180, 180].
float tilt(float g, float z, std::int32_t& face_down) {
    if (g >= kStandardG) {
        return 90.0F;
    }
    if (g <= -kStandardG) {
        return -90.0F;
    }
    const double a = std::asin(static_cast<double>(g / kStandardG));
    if (z < 0.0F && face_down > kFaceDownCycles) {
        float t = static_cast<float>(std::trunc(a * 180.0 / -kPiF + 180.0));
        if (t > 180.0F) {
            t -= 360.0F;
        }
        return t;
    }
    face_down = z < 0.0F ? face_down + 1 : 0;
    return static_cast<float>(std::trunc(a * 180.0 / kPiF));
}

}  // namespace

int zoom_angle_obj::update(const IMU* /*imu*/, const SFC_OUT* out) noexcept {
    if (out == nullptr) {
        return 0;
    }
    const float z = out->gravity[2];
    // Not-a-number gravity fails every test above and would be published;
    // such a cycle keeps the last angles instead.
    if (std::isnan(out->gravity[0]) || std::isnan(out->gravity[1]) || std::isnan(z)) {
        return 0;
    }
    y_tilt_deg = tilt(out->gravity[1], z, y_face_down);
    x_tilt_deg = tilt(out->gravity[0], z, x_face_down);
    return 0;
}

int zoom_angle_obj::getdata(float* out) const noexcept {
    if (out == nullptr) {
        return -22;
    }
    out[0] = zoom_value;
    out[1] = x_tilt_deg;
    out[2] = y_tilt_deg;
    return 0;
}

}  // namespace imu
