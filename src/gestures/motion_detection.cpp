// A coarse motion class from the slow motion level of the pipeline:
// 0 still and lying flat, 1 moving, 2 moving strongly.

#include "gestures/detector.h"
#include "imu/gestures.h"

namespace {

constexpr double kStillLevel = 7.0;      // gyro_static_level_g below: at rest
constexpr double kFlatGravity = 8.5;     // |gravity z| above, m/s^2: lying flat
constexpr double kStrongLevel = 1000.0;  // gyro_static_level_g above: moving strongly

constexpr float kMoving = 1.0F;
constexpr float kMovingStrongly = 2.0F;

}  // namespace

extern "C" IMU_EXPORT int sfc_get_motion_detection(float* out) {
    if (out == nullptr) {
        return imu::kNullSlot;
    }
    imu::clear_slot(out);
    const float level = gyro_static_level_g;
    if (imu::under(level, kStillLevel) && imu::over(gravity_g_abs[2], kFlatGravity)) {
        return 0;
    }
    out[imu::kRecognised] = imu::over(level, kStrongLevel) ? kMovingStrongly : kMoving;
    return 0;
}
