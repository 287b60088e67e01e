// The virtual sensor table and the fusion cycle that refreshes it.

#include <android/log.h>

#include "imu/calibration.h"
#include "imu/gestures.h"
#include "pointing/mouse_object.h"
#include "pointing/zoom_angle.h"
#include "service/service_internal.h"
#include "service/velmofusion.h"

namespace imu {
namespace {

constexpr const char* kSlotNames[kSlotCount] = {
    "Gyro",
    "LinearAcceleration",
    "Gravity",
    "RotationVector",
    "Orientation",
    "",
    "Acceleration",
    "Magnetic",
    "Light",
    "Proximity",
    "Snap",
    "Shake",
    "Tap",
    "Turn_Over",
    "Rolling",
    "Double_Flip",
    "Raise_Up",
    "Put_Down",
    "Rotate",
    "Air_Mouse",
    "Corrected_Gyro",
    "Tap_Desk",
    "Tap_Pocket",
    "Motion_Detection",
    "Pedometer",
    "Zoom_In_Out",
    "Hand_Held",
};

// Truncation steps of the fixed outputs.
constexpr float kDegreeStep = 0.1F;
constexpr float kUnitStep = 0.001F;

// Slot 5 while no calibration run has been requested.
constexpr float kNoCalibrationRun[3] = {999.0F, 99.0F, 9.0F};

// The detectors of the cycle, in dispatch order: those before the air
// mouse, then those after it.
struct Detector {
    int index;
    int (*get)(float* out);
};
constexpr Detector kFirstDetectors[] = {
    {kSnap, sfc_get_snap},        {kShake, sfc_get_shake},
    {kTap, sfc_get_tap},          {kTurnOver, sfc_get_turn_over},
    {kRolling, sfc_get_rolling},  {kDoubleFlip, sfc_get_double_flip},
    {kRaiseUp, sfc_get_raise_up}, {kPutDown, sfc_get_put_down},
    {kRotate, sfc_get_rotate},
};
constexpr Detector kLaterDetectors[] = {
    {kTapDesk, sfc_get_tap_desk},
    {kTapPocket, sfc_get_tap_pocket},
    {kMotionDetection, sfc_get_motion_detection},
    {kPedometer, sfc_get_pedometer},
    {kHandHeld, sfc_get_hand_held},
};

// Runs each detector whose bit is set into the report of its slot.
template <std::size_t N>
void run_detectors(std::uint32_t enabled, const Detector (&detectors)[N],
                   Sensor_fusion_data_struct* table) {
    for (const Detector& d : detectors) {
        if ((enabled & index_bit(d.index)) != 0) {
            d.get(table[d.index].report);
        }
    }
}

// Cycles logged after an enabling control call.
constexpr std::int32_t kStartupLogCycles = 10;

void copy3(float* dst, const float* src) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
}

}  // namespace

const char* slot_name(int index) noexcept {
    return index >= 0 && index < kSlotCount ? kSlotNames[index] : "";
}

int velmofusion::get_Fusion_data(int index, float* out) {
    if (out == nullptr || index < 0 || index >= kSlotCount) {
        return 0;
    }
    if (index >= kAcceleration && index <= kProximity) {
        // The poll thread writes these slots; read a whole triple.
        const std::lock_guard<std::mutex> lock(data_mutex);
        copy3(out, fusion_data[index].report);
        return 0;
    }
    copy3(out, fusion_data[index].report);
    return 0;
}

int velmofusion::adjust_accuracy(Sensor_fusion_data_struct* slot, float step) {
    for (int j = 2; j >= 0; --j) {
        slot->report[j] = static_cast<float>(saturating_trunc(slot->raw[j] / step)) * step;
    }
    return 0;
}

int velmofusion::calculate_fusion() {
    {
        const std::lock_guard<std::mutex> lock(data_mutex);
        copy3(imu.acc_raw, fusion_data[kAcceleration].raw);
        copy3(imu.mag_raw, fusion_data[kMagnetic].raw);
        copy3(imu.light, fusion_data[kLight].report);
        copy3(imu.proximity, fusion_data[kProximity].report);
    }
    copy3(imu.gyro_raw, fusion_data[kGyro].raw);
    copy3(imu.gyro, fusion_data[kGyro].raw);

    if (startup_log_count < kStartupLogCycles) {
        ++startup_log_count;
        __android_log_print(
            kLogError, kTag,
            "show_loge_count=%d\tacc=%.2f\t%.2f\t%.2f\tmag=%.2f\t%.2f\t%.2f\t"
            "gyro=%.2f\t%.2f\t%.2f\t",
            static_cast<int>(startup_log_count), static_cast<double>(imu.acc_raw[0]),
            static_cast<double>(imu.acc_raw[1]), static_cast<double>(imu.acc_raw[2]),
            static_cast<double>(imu.mag_raw[0]), static_cast<double>(imu.mag_raw[1]),
            static_cast<double>(imu.mag_raw[2]), static_cast<double>(imu.gyro_raw[0]),
            static_cast<double>(imu.gyro_raw[1]), static_cast<double>(imu.gyro_raw[2]));
    }

    sfc_update_posture(&imu, time_diff_ns);
    sfc_get_sfc_out(&sfc_out);
    sfc_out_time_diff_us = time_diff_us;

    copy3(fusion_data[kOrientation].raw, sfc_out.euler);
    copy3(fusion_data[kRotationVector].raw, sfc_out.rotation_vector);
    copy3(fusion_data[kLinearAcceleration].raw, sfc_out.linear_acc);
    copy3(fusion_data[kGravity].raw, sfc_out.gravity);
    adjust_accuracy(&fusion_data[kOrientation], kDegreeStep);
    adjust_accuracy(&fusion_data[kLinearAcceleration], kUnitStep);
    adjust_accuracy(&fusion_data[kRotationVector], kUnitStep);
    adjust_accuracy(&fusion_data[kGravity], kUnitStep);

    if ((mEnabled.load(std::memory_order_relaxed) & index_bit(kCalibrationStatus)) != 0) {
        float* status = fusion_data[kCalibrationStatus].report;
        if (app_calibration != 0) {
            status[0] =
                static_cast<float>(sfc_update_sensor_calibration(&imu, sfc_out.rotation_matrix));
            status[1] = static_cast<float>(return_data_collect_counter());
            status[2] = 0.0F;
        } else {
            copy3(status, kNoCalibrationRun);
        }
    }
    return 0;
}

int velmofusion::calculate_gesture() {
    sfc_update_gesture(&imu, &sfc_out, time_diff_us);
    const std::uint32_t enabled = mEnabled.load(std::memory_order_relaxed);
    run_detectors(enabled, kFirstDetectors, fusion_data);
    const std::int32_t mode = fusiond_mode.load(std::memory_order_relaxed);
    if (mouse &&
        (mode == kModeCalibrate || mode == kModeMouse || (enabled & index_bit(kAirMouse)) != 0)) {
        mouse->update(&imu, &sfc_out, button_state, sfc_out_time_diff_us);
        mouse->getdata(fusion_data[kAirMouse].report);
    }
    run_detectors(enabled, kLaterDetectors, fusion_data);
    if (zoom_angle && (enabled & index_bit(kZoomInOut)) != 0) {
        zoom_angle->update(&imu, &sfc_out);
        zoom_angle->getdata(fusion_data[kZoomInOut].report);
    }
    if ((log_switch & kConsoleLogOn) != 0) {
        show_log();
    }
    return 0;
}

}  // namespace imu
