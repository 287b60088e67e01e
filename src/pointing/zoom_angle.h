#pragma once
// The fusion service's zoom sensor (virtual sensor 25): two whole-degree
// tilt angles from the gravity vector, continuing towards +-180 instead of
// folding back once the screen has faced down for more than ten cycles.

#include <cstdint>

#include "imu/engine.h"

namespace imu {

class zoom_angle_obj {
public:
    zoom_angle_obj() noexcept = default;

    // Recomputes the y tilt, then the x tilt, from out->gravity. imu is not
    // read. A null out leaves the object as it was. Returns 0.
    int update(const IMU* imu, const SFC_OUT* out) noexcept;
    // out (3 floats) = (zoom value, x tilt, y tilt). -22 for a null out.
    int getdata(float* out) const noexcept;

    float zoom_value = 0.0F;  // published first; nothing changes it
    float x_tilt_deg = 0.0F;  // whole degrees, (-180, 180]
    float y_tilt_deg = 0.0F;
    std::int32_t x_face_down = 0;  // consecutive face-down cycles, up to 11
    std::int32_t y_face_down = 0;
};

}  // namespace imu
