// The sensor poll thread: keeps the platform sensors switched on as the
// enable masks require and drops their events into the table.
//
//   starting -> polling (events pending: route them, 5 ms nap)
//            -> idle-active (nothing pending, a sensor on: 1 ms nap)
//            -> idle-empty (nothing pending, no sensor on: 500 ms + 1 ms naps)
//            -> ended (idle-empty with kill_flag set)

#include <android/log.h>
#include <android/looper.h>
#include <unistd.h>

#include "imu/calibration.h"
#include "imu/engine.h"
#include "platform/paths.h"
#include "platform/service_os.h"
#include "pointing/mouse_object.h"
#include "service/service_internal.h"
#include "service/velmofusion.h"

namespace imu {
namespace {

constexpr int kQueueIdent = 9;
constexpr std::int64_t kMotionPeriodNs = 5000000;
constexpr std::int32_t kSlowPeriodUs = 20000;  // light and proximity

constexpr std::uint32_t kNapAfterEventsUs = 5000;
constexpr std::uint32_t kNapIdleUs = 1000;
constexpr std::uint32_t kNapEmptyUs = 500000;

// The five platform sensors in reconcile order.
enum Platform { kAccSensor, kMagSensor, kGyroSensor, kLightSensor, kProximitySensor, kSensors };
constexpr int kFrameworkType[kSensors] = {ASENSOR_TYPE_ACCELEROMETER, ASENSOR_TYPE_MAGNETIC_FIELD,
                                          ASENSOR_TYPE_GYROSCOPE, ASENSOR_TYPE_LIGHT,
                                          ASENSOR_TYPE_PROXIMITY};
constexpr std::uint32_t kActiveBit[kSensors] = {kActiveAcc, kActiveMag, kActiveGyro, kActiveLight,
                                                kActiveProximity};

void copy3(float* dst, const float* src) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
}

}  // namespace

int velmofusion::sensorsPollThread(void* object) {
    return static_cast<velmofusion*>(object)->pollSensors();
}

void velmofusion::reconcile(ASensor const* const* sensors) {
    const std::atomic<std::uint32_t>* masks[kSensors] = {&acc_enabled, &mag_enabled, &gyro_enabled,
                                                         &light_enabled, &proximity_enabled};
    for (int s = 0; s < kSensors; ++s) {
        if (sensors[s] == nullptr) {
            continue;
        }
        const std::uint32_t active = sensors_active.load(std::memory_order_relaxed);
        const bool on = (active & kActiveBit[s]) != 0;
        const bool wanted = masks[s]->load(std::memory_order_relaxed) != 0;
        if (!on && wanted) {
            const std::int32_t period_us =
                s < kLightSensor ? static_cast<std::int32_t>(event_rate_ns / 1000) : kSlowPeriodUs;
            ASensorEventQueue_enableSensor(event_queue, sensors[s]);
            ASensorEventQueue_setEventRate(event_queue, sensors[s], period_us);
            sensors_active.store(active | kActiveBit[s], std::memory_order_relaxed);
        } else if (on && !wanted) {
            ASensorEventQueue_disableSensor(event_queue, sensors[s]);
            sensors_active.store(active & ~kActiveBit[s], std::memory_order_relaxed);
            if (s == kAccSensor) {
                acc_data_ready.store(0, std::memory_order_relaxed);
            } else if (s == kMagSensor) {
                mag_data_ready.store(0, std::memory_order_relaxed);
            }
        }
    }
}

void velmofusion::route_event() {
    const std::int32_t mode = fusiond_mode.load(std::memory_order_relaxed);
    const bool motion = mode == kModeNormal;
    const bool ambient = motion || mode == kModeInterval || mode == kModeIntervalCalibrate;
    switch (event.type) {
        case ASENSOR_TYPE_ACCELEROMETER:
        case ASENSOR_TYPE_MAGNETIC_FIELD: {
            if (!motion) {
                return;
            }
            const bool acc = event.type == ASENSOR_TYPE_ACCELEROMETER;
            (acc ? acc_data_ready : mag_data_ready).store(1, std::memory_order_relaxed);
            const std::lock_guard<std::mutex> lock(data_mutex);
            copy3(fusion_data[acc ? kAcceleration : kMagnetic].raw, event.data);
            return;
        }
        case ASENSOR_TYPE_LIGHT:
        case ASENSOR_TYPE_PROXIMITY: {
            if (!ambient) {
                return;
            }
            const int slot = event.type == ASENSOR_TYPE_LIGHT ? kLight : kProximity;
            const std::lock_guard<std::mutex> lock(data_mutex);
            copy3(fusion_data[slot].report, event.data);
            return;
        }
        default:
            return;  // the gyroscope comes through input_raw_data only
    }
}

int velmofusion::pollSensors() {
    sensor_manager = ASensorManager_getInstance();
    ASensor const* sensors[kSensors];
    for (int s = 0; s < kSensors; ++s) {
        sensors[s] = ASensorManager_getDefaultSensor(sensor_manager, kFrameworkType[s]);
    }
    event_rate_ns = kMotionPeriodNs;
    looper = ALooper_prepare(ALOOPER_PREPARE_ALLOW_NON_CALLBACKS);
    event_queue =
        ASensorManager_createEventQueue(sensor_manager, looper, kQueueIdent, nullptr, nullptr);
    reconcile(sensors);
    acc_data_ready.store(0, std::memory_order_relaxed);
    mag_data_ready.store(0, std::memory_order_relaxed);
    __android_log_print(kLogError, kTag, "Start pollSensors");

    for (;;) {
        const int r = ALooper_pollAll(0, nullptr, nullptr, nullptr);
        if (r >= 0) {
            if (r == kQueueIdent) {
                while (ASensorEventQueue_getEvents(event_queue, &event, 1) > 0) {
                    route_event();
                }
            }
            platform::sleep_us(kNapAfterEventsUs);
            continue;
        }
        reconcile(sensors);
        if (sensors_active.load(std::memory_order_relaxed) == 0) {
            platform::sleep_us(kNapEmptyUs);
            if (kill_flag.load(std::memory_order_relaxed) != 0) {
                break;
            }
        }
        platform::sleep_us(kNapIdleUs);
    }

    poll_thread_started.store(false, std::memory_order_relaxed);
    __android_log_print(kLogError, kTag, "pollSensors Thread end");
    ASensorManager_destroyEventQueue(sensor_manager, event_queue);
    event_queue = nullptr;
    poll_thread_alive_.store(false, std::memory_order_release);  // last access to the object
    return 0;
}

int velmofusion::sensors_enable_initial(int index, int enable) {
    if (enable != 0) {
        startup_log_count = 0;
    }
    log_switch &= ~kConsoleLogOn;
    if (check_log_type() != 0) {
        log_switch |= kConsoleLogOn;
    }
    log_switch &= ~kSaveLogOn;
    if (platform::access_fixed(platform::FixedPath::kSaveLogSwitch, R_OK) == 0) {
        log_switch |= kSaveLogOn;
    }
    if (index == kCalibrationStatus) {
        if (enable != 0) {
            sfc_set_fusion_mode(kEngineNoMagnetometer);
            if (check_app_calibration_file() == 1) {
                init_zarncalibrator();
                app_calibration = 1;
            } else {
                app_calibration = 0;
            }
        } else {
            creat_app_calibration_file();
            app_calibration = 0;
            sfc_set_fusion_mode(kEngineDefault);
        }
    }
    if (index == kAirMouse) {
        load_screen_resolution();
        if (mouse) {
            mouse->update_resolution(static_cast<float>(screen_width),
                                     static_cast<float>(screen_height));
        }
    }
    if (index == kRaiseUp || index == kPutDown) {
        const std::uint32_t bit = index_bit(index);
        const std::uint32_t value = enable != 0 ? bit : 0U;
        for (auto* mask : {&light_enabled, &proximity_enabled}) {
            mask->store((mask->load(std::memory_order_relaxed) & ~bit) | value,
                        std::memory_order_relaxed);
        }
    }
    return 0;
}

}  // namespace imu
