// The service object: construction, the enable masks per service mode and
// the control path.

#include "service/velmofusion.h"

#include <android/log.h>
#include <utils/AndroidThreads.h>

#include <cstring>
#include <new>

#include "calibration/calibration_block.h"
#include "imu/calibration.h"
#include "platform/paths.h"
#include "platform/service_os.h"
#include "pointing/mouse_object.h"
#include "pointing/zoom_angle.h"
#include "service/service_internal.h"

namespace imu {

velmofusion::velmofusion() { initial(); }

velmofusion::~velmofusion() {
    kill_flag.store(1, std::memory_order_relaxed);
    __android_log_print(kLogError, kTag, "velmofusion kill");
    // The thread ends only from its idle state with no sensor active, so the
    // masks go to zero first; then wait for its last access to the object.
    for (auto* mask :
         {&acc_enabled, &mag_enabled, &gyro_enabled, &light_enabled, &proximity_enabled}) {
        mask->store(0, std::memory_order_relaxed);
    }
    while (poll_thread_alive_.load(std::memory_order_acquire)) {
        platform::sleep_us(kJoinPollUs);
    }
    close_save_log();
}

int velmofusion::initial() {
    fusiond_mode.store(kModeNormal, std::memory_order_relaxed);
    for (auto* mask : {&mEnabled, &sensors_active, &acc_enabled, &mag_enabled, &gyro_enabled,
                       &light_enabled, &proximity_enabled}) {
        mask->store(0, std::memory_order_relaxed);
    }
    log_type = 0;
    kill_flag.store(0, std::memory_order_relaxed);
    acc_data_ready.store(0, std::memory_order_relaxed);
    mag_data_ready.store(0, std::memory_order_relaxed);
    time_diff_us = 0;
    time_diff_ns = 0;
    last_timestamp = 0;
    log_switch = 0;
    log_file_open = 0;
    app_calibration = 0;
    button_state = 0;
    zoom_angle.reset(new (std::nothrow) zoom_angle_obj());
    mouse.reset(new (std::nothrow) velmo_mouse_obj());
    screen_width = kDefaultScreenWidth;
    screen_height = kDefaultScreenHeight;
    load_screen_resolution();
    char path[platform::kPathMax];
    if (platform::fixed_path(platform::FixedPath::kScreenResolution, path, sizeof path) >= 0) {
        change_File_mode(path);
    }
    startup_log_count = 0;
    std::memset(fusion_data, 0, sizeof fusion_data);
    log_file = nullptr;
    const int len =
        platform::fixed_path(platform::FixedPath::kSaveLogPrefix, log_path, sizeof log_path);
    log_path_len = len < 0 ? 0 : len;
    (void)std::snprintf(log_name, sizeof log_name, "%s", "default");
    return 0;
}

int velmofusion::velmofusion_status() const {
    return mEnabled.load(std::memory_order_relaxed) != 0 ? 1 : 0;
}

int velmofusion::set_fusiond_mode(int mode) {
    fusiond_mode.store(mode, std::memory_order_relaxed);
    __android_log_print(kLogError, kTag, "fusiond_mode=%d", mode);
    return 0;
}

int velmofusion::start_velmofusion() {
    if (poll_thread_started.load(std::memory_order_relaxed)) {
        return 0;
    }
    // A thread that is still winding down from an earlier start must be gone
    // before a new one takes over the object's poll state.
    while (poll_thread_alive_.load(std::memory_order_acquire)) {
        platform::sleep_us(kJoinPollUs);
    }
    poll_thread_alive_.store(true, std::memory_order_relaxed);
    const int created = androidCreateThread(&velmofusion::sensorsPollThread, this);
    if (created == 0) {
        poll_thread_alive_.store(false, std::memory_order_relaxed);
    }
    poll_thread_started.store(created != 0, std::memory_order_relaxed);
    return 0;
}

void velmofusion::stop_velmofusion() {}

int velmofusion::re_init_fusion() {
    sfc_re_initialize();
    return 0;
}

void velmofusion::update_masks(int index, int enable) {
    const std::uint32_t bit = index_bit(index);
    const std::uint32_t value = enable != 0 ? bit : 0U;
    for (auto* mask : {&mEnabled, &acc_enabled, &mag_enabled, &gyro_enabled}) {
        mask->store((mask->load(std::memory_order_relaxed) & ~bit) | value,
                    std::memory_order_relaxed);
    }
    if (mEnabled.load(std::memory_order_relaxed) != 0) {
        start_velmofusion();
    } else {
        stop_velmofusion();
    }
}

int velmofusion::control_velmofusion(int index, int enable) {
    sensors_enable_initial(index, enable);
    if (index == kGyro) {
        return 0;
    }
    if (index == kAcceleration) {
        acc_data_ready.store(0, std::memory_order_relaxed);
        return 0;
    }
    if (index == kSnap) {
        qal_ForceNAN();  // the filter's not-a-number recovery test
    }
    const std::int32_t mode = fusiond_mode.load(std::memory_order_relaxed);
    const bool magnetic = index == kMagnetic;
    switch (mode) {
        case kModeNormal:
            update_masks(index, enable);
            break;
        case kModeBox: {
            sfc_set_fusion_mode(kEngineNoMagnetometer);
            const std::uint32_t bit = index_bit(index);
            const std::uint32_t value = enable != 0 ? bit : 0U;
            mEnabled.store((mEnabled.load(std::memory_order_relaxed) & ~bit) | value,
                           std::memory_order_relaxed);
            break;
        }
        case kModeInterval:
            if (magnetic) {
                mag_data_ready.store(0, std::memory_order_relaxed);
                return 0;
            }
            update_masks(index, enable);
            break;
        case kModeCalibrate:
        case kModeIntervalCalibrate:
            set_calibrator_mode(kCalibrateAccMag);
            if (magnetic) {
                mag_data_ready.store(0, std::memory_order_relaxed);
                return 0;
            }
            update_masks(index, enable);
            set_calibrator_mode(kCalibrateNone);
            break;
        case kModeMouse:
            set_calibrator_mode(kCalibrateNone);
            if (magnetic) {
                mag_data_ready.store(0, std::memory_order_relaxed);
                return 0;
            }
            update_masks(index, enable);
            break;
        default:
            break;
    }
    if (mEnabled.load(std::memory_order_relaxed) == 0) {
        last_timestamp = 0;
        close_save_log();
    }
    __android_log_print(kLogError, kTag,
                        "control_velmofusion index=%d,enable=%d\tmEnabled=%d\t"
                        "sfc_set_fusion_mode=%d\tfusiond_mode=%d",
                        index, enable, static_cast<int>(mEnabled.load(std::memory_order_relaxed)),
                        engine_fusion_mode(), static_cast<int>(mode));
    return 0;
}

}  // namespace imu
