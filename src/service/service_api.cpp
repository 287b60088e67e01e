// The exported service API and the one service object of the process.

#include <android/log.h>

#include <mutex>
#include <new>

#include "imu/engine.h"
#include "imu/service.h"
#include "platform/service_os.h"
#include "service/service_internal.h"
#include "service/velmofusion.h"

namespace imu {
namespace {

// The service object, created by the first service call and never released
// by the library. The mutex serialises creation only.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<velmofusion*> g_service{nullptr};
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::mutex g_create_mutex;
// Serialises the service calls of the callers' threads: control, mode,
// sample input (and so the whole cycle) and slot reads. Recursive because
// control_fusiond calls set_library_time and Initialization. The poll
// thread never takes it.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::recursive_mutex g_call_mutex;

using CallLock = std::lock_guard<std::recursive_mutex>;

}  // namespace

velmofusion* service() noexcept {
    velmofusion* s = g_service.load(std::memory_order_acquire);
    if (s != nullptr) {
        return s;
    }
    const std::lock_guard<std::mutex> lock(g_create_mutex);
    s = g_service.load(std::memory_order_relaxed);
    if (s == nullptr) {
        s = new (std::nothrow) velmofusion();
        g_service.store(s, std::memory_order_release);
    }
    return s;
}

void destroy_service() noexcept {
    const std::lock_guard<std::mutex> lock(g_create_mutex);
    delete g_service.exchange(nullptr, std::memory_order_acq_rel);
}

int engine_fusion_mode() noexcept { return static_cast<int>(sfc_get_fusion_mode()); }

}  // namespace imu

extern "C" {

IMU_EXPORT int control_fusiond(int index, int enable) {
    const imu::CallLock lock(imu::g_call_mutex);
    imu::velmofusion* s = imu::service();
    if (s == nullptr) {
        return 0;
    }
    set_library_time();
    if (s->velmofusion_status() == 0 && enable != 0) {
        Initialization();
        __android_log_print(imu::kLogError, imu::kTag, "velmofusion init");
    }
    return s->control_velmofusion(index, enable);
}

IMU_EXPORT int get_fusiond_data(int index, float* out) {
    const imu::CallLock lock(imu::g_call_mutex);
    imu::velmofusion* s = imu::service();
    return s == nullptr ? 0 : s->get_Fusion_data(index, out);
}

IMU_EXPORT int set_fusiond_moed(int mode) {
    const imu::CallLock lock(imu::g_call_mutex);
    imu::velmofusion* s = imu::service();
    return s == nullptr ? 0 : s->set_fusiond_mode(mode);
}

IMU_EXPORT int input_raw_data(int type, float* data, long long timestamp) {
    const imu::CallLock lock(imu::g_call_mutex);
    imu::velmofusion* s = imu::service();
    return s == nullptr ? 0 : s->input_raw_data(type, data, timestamp);
}

IMU_EXPORT int Initialization(void) {
    const imu::CallLock lock(imu::g_call_mutex);
    sfc_re_initialize();
    return 0;
}

// The second names of three service functions: the same code.
IMU_EXPORT int control_SensorFusion(int index, int enable)
    __attribute__((alias("control_fusiond")));
IMU_EXPORT int get_SensorFusion_data(int index, float* out)
    __attribute__((alias("get_fusiond_data")));
IMU_EXPORT int set_SensorFusion_mode(int mode) __attribute__((alias("set_fusiond_moed")));

}  // extern "C"

IMU_EXPORT int set_library_time() {
    const imu::CallLock lock(imu::g_call_mutex);
    imu::velmofusion* s = imu::service();
    if (s == nullptr) {
        return 0;
    }
    imu::platform::LocalTime t{};
    imu::platform::local_time_now(&t);
    return s->set_now_time(t.year, t.month, t.day, t.hour, t.minute, t.second);
}
