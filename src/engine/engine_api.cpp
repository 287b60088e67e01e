// The exported engine functions: shims over the process's one engine.

#include <cstdint>

#include "engine/fusion_engine.h"
#include "imu/engine.h"

namespace imu {
namespace {

// One engine per process: the exported update and getters share it.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
Engine g_engine;

constexpr std::int32_t kNanosecondsPerMicrosecond = 1000;
constexpr float kGravityScale = 9.8066F;

}  // namespace

Engine& engine() noexcept { return g_engine; }

}  // namespace imu

using imu::g_engine;

extern "C" {

// Test hook read by the next filtering update.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
IMU_EXPORT int32_t qal_ForceNAN_flag = 0;

IMU_EXPORT int sfc_update_posture(IMU* imu, int32_t time_ns) {
    return imu == nullptr ? imu::kEinval : g_engine.update(*imu, time_ns);
}

IMU_EXPORT int run_library(const float* sample, int microseconds) {
    if (sample == nullptr) {
        return imu::kEinval;
    }
    IMU record;
    for (int i = 0; i < 3; ++i) {
        record.acc[i] = record.acc_raw[i] = sample[i];
        record.gyro[i] = record.gyro_raw[i] = sample[3 + i];
        record.mag[i] = record.mag_raw[i] = sample[6 + i];
        record.light[i] = record.proximity[i] = 0.0F;
    }
    // The 32-bit product wraps for intervals beyond 2147 s, as on the phone.
    const auto ns = static_cast<std::uint32_t>(microseconds) *
                    static_cast<std::uint32_t>(imu::kNanosecondsPerMicrosecond);
    return g_engine.update(record, static_cast<int32_t>(ns));
}

IMU_EXPORT int sfc_re_initialize(void) {
    g_engine.filter.re_initialize();
    return 0;
}

IMU_EXPORT void sfc_set_fusion_mode(int32_t mode) {
    g_engine.fusion_mode.store(mode, std::memory_order_relaxed);
}

IMU_EXPORT int32_t sfc_get_fusion_mode(void) {
    return g_engine.fusion_mode.load(std::memory_order_relaxed);
}

IMU_EXPORT void set_fusion_mode(const int32_t* mode) {
    if (mode != nullptr) {
        g_engine.fusion_mode.store(*mode, std::memory_order_relaxed);
    }
}

IMU_EXPORT int qal_ForceNAN(void) {
    __atomic_store_n(&qal_ForceNAN_flag, 1, __ATOMIC_RELAXED);
    return 0;
}

IMU_EXPORT int sfc_get_euler_angle(float* out) { return imu::euler_angle(g_engine.filter, out); }

IMU_EXPORT int sfc_get_rotation_vector(float* out) {
    return imu::rotation_vector(g_engine.filter, out);
}

IMU_EXPORT int sfc_get_quaternion(float* out) { return imu::quaternion(g_engine.filter, out); }

IMU_EXPORT int sfc_get_linear_acceleration(float* out) {
    return imu::linear_acceleration(g_engine.filter, g_engine.outputs, out);
}

IMU_EXPORT int sfc_get_gravity(float* out) { return imu::gravity(g_engine.filter, out); }

IMU_EXPORT int sfc_get_rotation_matrix(float* out) {
    return imu::rotation_matrix(g_engine.filter, out);
}

IMU_EXPORT int sfc_get_global_acceleration(float* out) {
    return imu::global_acceleration(g_engine.filter, out);
}

IMU_EXPORT int sfc_get_compass_heading(float* out) {
    return imu::compass_heading(g_engine.filter, g_engine.outputs, out);
}

// The whole record in one call; the validity-checking getters that fail
// leave euler and global_acc as they were and linear_acc at 0.
IMU_EXPORT int sfc_get_sfc_out(SFC_OUT* out) {
    if (out == nullptr) {
        return imu::kEinval;
    }
    float temp[3] = {0.0F, 0.0F, 0.0F};
    sfc_get_euler_angle(out->euler);
    sfc_get_linear_acceleration(temp);
    for (int i = 0; i < 3; ++i) {
        out->linear_acc[i] = temp[i] * imu::kGravityScale;
    }
    sfc_get_rotation_vector(out->rotation_vector);
    sfc_get_gravity(temp);
    for (int i = 0; i < 3; ++i) {
        out->gravity[i] = temp[i] * imu::kGravityScale;
    }
    sfc_get_rotation_matrix(out->rotation_matrix);
    sfc_get_global_acceleration(out->global_acc);
    out->acc_level = g_engine.stats.acc_level;
    out->gyro_level = g_engine.stats.gyro_level;
    return 0;
}

IMU_EXPORT void get_quaternion(float* out) {
    if (out == nullptr) {
        return;
    }
    for (int i = 0; i < 4; ++i) {
        out[i] = g_engine.filter.out.quat[i];
    }
}

IMU_EXPORT int get_gravity(float* out) { return sfc_get_gravity(out); }

IMU_EXPORT int get_rotation_vector(float* out) { return sfc_get_rotation_vector(out); }

IMU_EXPORT int get_linear_acceleration(float* out) { return sfc_get_linear_acceleration(out); }

IMU_EXPORT int get_euler_angles(float* out) { return sfc_get_euler_angle(out); }

IMU_EXPORT void sfc_set_center_yaw_angle(float yaw) { g_engine.filter.out.centre_yaw = yaw; }

IMU_EXPORT void sfc_gyro_filter(IMU* imu, float threshold_dps) {
    if (imu != nullptr) {
        imu::gyro_filter(*imu, threshold_dps);
    }
}

}  // extern "C"
