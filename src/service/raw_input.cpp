// Raw samples pushed by the caller, the interval between gyroscope samples,
// and the rule that decides when a gyroscope sample runs a fusion cycle.

#include <android/log.h>

#include "imu/calibration.h"
#include "platform/service_os.h"
#include "service/service_internal.h"
#include "service/velmofusion.h"

namespace imu {

int velmofusion::input_raw_data(int type, const float* data, long long timestamp) {
    if (data == nullptr) {
        return 0;
    }
    if (type == kAcceleration || type == kMagnetic) {
        Sensor_fusion_data_struct& slot = fusion_data[type];
        {
            // The poll thread writes the same raw triple in mode 0.
            const std::lock_guard<std::mutex> lock(data_mutex);
            slot.raw[0] = data[0];
            slot.raw[1] = data[1];
            slot.raw[2] = data[2];
            GetZarnCalibratedData(type, slot.raw, slot.report);
        }
        (type == kAcceleration ? acc_data_ready : mag_data_ready)
            .store(1, std::memory_order_relaxed);
        return 0;
    }
    if (type == kInputButton) {
        button_state = saturating_trunc(data[0]);
        const std::int32_t mode = fusiond_mode.load(std::memory_order_relaxed);
        if ((button_state & kButtonMouseMode) != 0 && mode == kModeMouse) {
            fusiond_mode.store(kModeCalibrate, std::memory_order_relaxed);
        } else if ((button_state & kButtonMouseMode) == 0 && mode == kModeCalibrate) {
            fusiond_mode.store(kModeMouse, std::memory_order_relaxed);
        }
        return 0;
    }
    if (type != kGyro) {
        return 0;
    }

    Sensor_fusion_data_struct& gyro = fusion_data[kGyro];
    gyro.raw[0] = data[0];
    gyro.raw[1] = data[1];
    gyro.raw[2] = data[2];
    GetZarnCalibratedData(kGyro, data, gyro.report);

    const std::int32_t mode = fusiond_mode.load(std::memory_order_relaxed);
    const bool interval_mode = mode == kModeInterval || mode == kModeIntervalCalibrate;
    if (mode < kModeNormal || mode > kModeMouse) {
        return 0;
    }
    if (calculate_time_diff(timestamp, interval_mode ? kTimingInterval : kTimingAbsolute) != 0) {
        return 0;
    }
    if (mode == kModeBox) {
        if (acc_data_ready.load(std::memory_order_relaxed) != 0) {
            calculate_box();
        }
        return 0;
    }
    const bool nothing_enabled = mEnabled.load(std::memory_order_relaxed) == 0;
    const bool gate_b = mode == kModeCalibrate || mode == kModeMouse;
    if (nothing_enabled && (!gate_b || (button_state & kButtonRunCycle) == 0)) {
        return 0;
    }
    const std::int32_t acc = acc_data_ready.load(std::memory_order_relaxed);
    const std::int32_t mag = mag_data_ready.load(std::memory_order_relaxed);
    if (acc != 0 && mag != 0) {
        calculate();
    } else {
        __android_log_print(kLogError, kTag,
                            "data_not_ready acc=%d mag=%d sfc_get_fusion_mode=%d fusiond_mode=%d",
                            static_cast<int>(acc), static_cast<int>(mag), engine_fusion_mode(),
                            static_cast<int>(mode));
    }
    return 0;
}

int velmofusion::calculate_time_diff(long long timestamp, int kind) {
    if (kind == kTimingAbsolute) {
        time_diff_us = 0;
        time_diff_ns = 0;
        if (last_timestamp > 0) {
            // Wrapping subtraction: a timestamp from the far past must not
            // overflow; the interval is then garbage and rejected or not
            // like any other.
            const auto d = static_cast<std::int64_t>(static_cast<std::uint64_t>(timestamp) -
                                                     static_cast<std::uint64_t>(last_timestamp));
            time_diff_us = static_cast<std::int32_t>(d / 1000);
            time_diff_ns = static_cast<std::int32_t>(static_cast<std::uint32_t>(d));
        }
        last_timestamp = timestamp;
    } else if (kind == kTimingInterval) {
        time_diff_ns = static_cast<std::int32_t>(static_cast<std::uint32_t>(timestamp));
        time_diff_us = time_diff_ns / 1000;
    }
    if (time_diff_us > kMaxIntervalUs) {
        __android_log_print(kLogError, kTag, "Time error =%dus", static_cast<int>(time_diff_us));
        return -1;
    }
    return 0;
}

int velmofusion::calculate() {
    calculate_fusion();
    save_log();
    calculate_gesture();
    return 0;
}

int velmofusion::calculate_box() {
    calculate_fusion();
    calculate_gesture();
    return 0;
}

std::int64_t velmofusion::getTimestamp() { return platform::monotonic_ns(); }

}  // namespace imu
