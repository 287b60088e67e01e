// The exported gesture functions: the pipeline and the detectors of pose
// changes and wrist movements, each over its one process-wide instance.

#include "gestures/detector.h"
#include "gestures/feature_pipeline.h"
#include "gestures/orientation_gestures.h"
#include "gestures/shake_snap.h"

namespace {
// Detector and pipeline state lives for the whole process; there is no reset.
// All of it is constant-initialised and runs on the fusion cycle's thread.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
imu::MotionLevel g_motion_level;
imu::PutDown g_put_down;
imu::RaiseUp g_raise_up;
imu::TurnOver g_turn_over;
imu::DoubleFlip g_double_flip;
imu::Rolling g_rolling;
imu::HandHeld g_hand_held;
imu::Shake g_shake;
imu::Snap g_snap;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
}  // namespace

extern "C" {

IMU_EXPORT void sfc_update_gesture(IMU* imu, SFC_OUT* out, int dt_us) {
    if (imu == nullptr || out == nullptr) {
        return;
    }
    imu::update_gesture_signals(*imu, *out, dt_us, g_motion_level);
}

IMU_EXPORT int sfc_get_put_down(float* out) { return imu::run_detector(g_put_down, out); }

IMU_EXPORT int sfc_get_raise_up(float* out) { return imu::run_detector(g_raise_up, out); }

IMU_EXPORT int sfc_get_turn_over(float* out) { return imu::run_detector(g_turn_over, out); }

IMU_EXPORT int sfc_get_double_flip(float* out) { return imu::run_detector(g_double_flip, out); }

IMU_EXPORT int sfc_get_rolling(float* out) { return imu::run_detector(g_rolling, out); }

IMU_EXPORT int sfc_get_hand_held(float* out) { return imu::run_detector(g_hand_held, out); }

// A placeholder that reports "not handled": nothing is written.
// NOLINTNEXTLINE(readability-non-const-parameter): every detector takes float*
IMU_EXPORT int sfc_get_rotate(float* out) { return out == nullptr ? imu::kNullSlot : 1; }

IMU_EXPORT int sfc_get_shake(float* out) { return imu::run_detector(g_shake, out); }

IMU_EXPORT int sfc_get_snap(float* out) { return imu::run_detector(g_snap, out); }

}  // extern "C"
