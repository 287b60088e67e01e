// The exported tap and pedometer functions, each over its one process-wide
// instance. The motion class and the tilt detector keep their own files.

#include "gestures/detector.h"
#include "gestures/pedometer.h"
#include "gestures/taps.h"

namespace {
// Detector state lives for the whole process; there is no reset. All of it
// is constant-initialised and runs on the fusion cycle's thread.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
imu::HandTap g_hand_tap;
imu::DeskTap g_desk_tap;
imu::PocketTap g_pocket_tap;
imu::Pedometer g_pedometer;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

// With no time passed (dt_g == 0) these detectors return at once and leave
// the slot as it was.
template <class Detector>
int run_unless_no_time(Detector& detector, float* out) noexcept {
    if (out != nullptr && dt_g == 0.0F) {
        return 0;
    }
    return imu::run_detector(detector, out);
}
}  // namespace

namespace imu {
HandTap& hand_tap() noexcept { return g_hand_tap; }
DeskTap& desk_tap() noexcept { return g_desk_tap; }
PocketTap& pocket_tap() noexcept { return g_pocket_tap; }
Pedometer& pedometer() noexcept { return g_pedometer; }
}  // namespace imu

extern "C" {

IMU_EXPORT int sfc_get_tap(float* out) { return run_unless_no_time(g_hand_tap, out); }

IMU_EXPORT int sfc_get_tap_desk(float* out) { return run_unless_no_time(g_desk_tap, out); }

IMU_EXPORT int sfc_get_tap_pocket(float* out) { return imu::run_detector(g_pocket_tap, out); }

IMU_EXPORT int sfc_get_pedometer(float* out) { return run_unless_no_time(g_pedometer, out); }

}  // extern "C"
