// The tilt detector: a phone held tilted by more than 10 degrees for seven
// calls in a row raises the flag of the tilt's direction. Angles come from
// the host; the library never calls these functions itself.
//
//   flags[0] / flags[1]: tilted about angles[1], positive / negative
//   flags[3] / flags[2]: tilted about angles[0], positive / negative
//   flags[4]: never set by detection

#include <cmath>
#include <cstdint>

#include "imu/gestures.h"

extern "C" {
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
IMU_EXPORT imu_motion_record motion = {{0, 0, 0, 0, 0}, 0};
}

namespace {

constexpr float kTiltDeg = 10.0F;
constexpr int32_t kSettleCalls = 6;  // tilted calls before the flag is raised
constexpr double kPi = 3.14159265358979323846;

// Counts one tilted call; true from the seventh in a row on.
bool tilt_held() {
    const int32_t before = motion.count;
    motion.count = before + (before < INT32_MAX ? 1 : 0);
    return before >= kSettleCalls;
}

bool tan_positive(float deg) { return std::tan(static_cast<double>(deg) * kPi / 180.0) > 0.0; }

}  // namespace

extern "C" IMU_EXPORT void imu_motion_detect(float* angles) {
    if (angles == nullptr) {
        return;
    }
    float a = angles[0];
    if (a > 180.0F) {
        a -= 360.0F;
    } else if (a < -180.0F) {
        a += 360.0F;
    }
    if (std::fabs(angles[1]) > kTiltDeg) {
        if (!tilt_held()) {
            return;
        }
        motion.flags[tan_positive(angles[1]) ? 0 : 1] = 1;
        motion.flags[2] = 0;
        motion.flags[3] = 0;
    } else if (std::fabs(a) > kTiltDeg) {
        if (!tilt_held()) {
            return;
        }
        motion.flags[tan_positive(a) ? 3 : 2] = 1;
        motion.flags[0] = 0;
        motion.flags[1] = 0;
    } else {
        motion.count = 0;
        for (int i = 0; i < 4; ++i) {
            motion.flags[i] = 0;
        }
    }
}

extern "C" IMU_EXPORT int imu_motion_is_detected(int index) {
    if (index < 0 || index >= IMU_MOTION_FLAGS) {
        return 0;
    }
    return motion.flags[index];
}

extern "C" IMU_EXPORT void imu_motion_reset(void) {
    motion = imu_motion_record{{0, 0, 0, 0, 0}, 0};
}
