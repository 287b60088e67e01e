#include "engine/fusion_engine.h"

#include <android/log.h>

#include <cmath>

#include "engine/matrix.h"
#include "imu/calibration.h"

namespace imu {
namespace {

constexpr const char* kTag = "VLM_SFC";
constexpr const char* kBuildDate = __DATE__ " " __TIME__;
constexpr float kNanosecondsPerSecond = 1e9F;

bool field_missing(const float* mag) {
    return std::fabs(mag[0]) < kFieldMissing && std::fabs(mag[1]) < kFieldMissing &&
           std::fabs(mag[2]) < kFieldMissing;
}

bool take_force_nan() {
    // Plain exported int written by the control path: access it atomically.
    if (__atomic_load_n(&qal_ForceNAN_flag, __ATOMIC_RELAXED) == 0) {
        return false;
    }
    __atomic_store_n(&qal_ForceNAN_flag, 0, __ATOMIC_RELAXED);
    return true;
}

void log_recovery(float dt, const IMU& s) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "ORI NAN Start ReInitial\n");
    __android_log_print(ANDROID_LOG_ERROR, kTag, "DT:%f,ax:%f,%f,%f,mx:%f,%f,%f,gx:%f,%f,%f\n",
                        static_cast<double>(dt), static_cast<double>(s.acc[0]),
                        static_cast<double>(s.acc[1]), static_cast<double>(s.acc[2]),
                        static_cast<double>(s.mag[0]), static_cast<double>(s.mag[1]),
                        static_cast<double>(s.mag[2]), static_cast<double>(s.gyro[0]),
                        static_cast<double>(s.gyro[1]), static_cast<double>(s.gyro[2]));
}

// The estimated down direction (the published gravity, a unit vector)
// lies more than 60 deg from the measured one (normalised by the filter).
bool far_off(const PostureFilter& filter, const float down[3]) {
    const float* g = filter.out.gravity;
    return g[0] * down[0] + g[1] * down[1] + g[2] * down[2] < kFarOffCosine;
}

}  // namespace

int Engine::update(IMU& sample, std::int32_t time_ns) noexcept {
    const float dt = static_cast<float>(time_ns) / kNanosecondsPerSecond;
    if (version_log_pending != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Version: %s", kEngineVersion);
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Build Date: %s", kBuildDate);
        version_log_pending = 0;
        check_calibration_file();
    }
    stats.update(sample.acc_raw, sample.gyro_raw);
    apply_calibration(&sample, stats.gyro_bias_estimate);

    // Filter frame; a is the measured down direction in units of g.
    float a[3];
    float m[3];
    float w[3];
    axis_transform(a, sample.acc);
    for (float& v : a) {
        v = v / -kStandardGravity;
    }
    axis_transform(m, sample.mag);
    axis_transform(w, sample.gyro);
    if (mode_needs_field(fusion_mode.load(std::memory_order_relaxed)) &&
        field_missing(sample.mag)) {
        return 1;
    }
    stats.clamp_rate(w);
    if (filter.reinit_pending != 0) {
        filter.initialise(a, m);
        return 1;
    }
    float measured[3] = {a[0], a[1], a[2]};
    if (!filter.filter(a, m, w, dt, take_force_nan())) {
        log_recovery(dt, sample);
        filter.re_initialize();
        filter.output_valid = 0;
        far_off_still_count = 0;
        return 0;
    }
    filter.output_valid = 1;
    const bool still = stats.acc_level < kStillAccLevel && stats.gyro_level < kStillGyroLevel;
    far_off_still_count = still && far_off(filter, a) ? far_off_still_count + 1 : 0;
    if (far_off_still_count >= kFarOffStillUpdates) {
        // The next update filters from the measured pose; the outputs of
        // this one stay as published.
        filter.initialise(measured, m);
        far_off_still_count = 0;
    }
    return 0;
}

}  // namespace imu
