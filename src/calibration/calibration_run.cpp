// The calibration run: collection of samples at spread orientations, the
// run's states and the reference flip between the two halves.

#include "calibration/calibration_run.h"

#include <cstdio>

#include "calibration/fitting.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"

namespace imu {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
CalibrationRun g_run;

// Squared distances of the collector's gate: a step of about 3 to 18 deg.
constexpr double kMinStep = 0.002741;
constexpr double kMaxStep = 0.1;

constexpr std::int32_t kCollectFirstHalf = 0;
constexpr std::int32_t kCollectSecondHalf = 1;
constexpr std::int32_t kFitPending = 2;
constexpr std::int32_t kRunFinished = 3;

}  // namespace

CalibrationRun& calibration_run() noexcept {
    return g_run;
}

int collect(const IMU* imu, const float* matrix, float* reference) noexcept {
    if (imu == nullptr || matrix == nullptr || reference == nullptr) {
        return 0;
    }
    const float v[3] = {matrix[2], matrix[5], matrix[8]};
    double sum = 0.0;
    for (int k = 0; k < 3; ++k) {
        const float diff = v[k] - reference[k];
        sum += static_cast<double>(diff * diff);
    }
    const auto d = static_cast<float>(sum);
    if (static_cast<double>(d) > kMaxStep) {
        return 0;
    }
    if (static_cast<double>(d) > kMinStep) {
        save_acc_mag_raw(imu);  // a failed write still counts the sample
        ++g_run.data_collect_counter;
        for (int k = 0; k < 3; ++k) {
            reference[k] = v[k];
        }
    }
    std::printf("%+1.3f\t %3d\n", static_cast<double>(d), g_run.data_collect_counter);
    return g_run.data_collect_counter;
}

}  // namespace imu

using imu::g_run;

extern "C" {

IMU_EXPORT int init_zarncalibrator(void) {
    g_run.calibration_restart = 1;
    return 0;
}

IMU_EXPORT int sfc_update_sensor_calibration(const IMU* imu, const float* rotation_matrix) {
    if (g_run.calibration_restart != 0) {
        imu::run_file_state().raw_file_started = 0;
        g_run.calibration_state = imu::kCollectFirstHalf;
        g_run.data_collect_counter = 0;
        g_run.calibration_restart = 0;
        g_run.collect_reference[0] = 0.0F;
        g_run.collect_reference[1] = 0.0F;
        g_run.collect_reference[2] = 1.0F;
    }
    float* reference = g_run.collect_reference;
    switch (g_run.calibration_state) {
        case imu::kCollectFirstHalf:
            if (imu::collect(imu, rotation_matrix, reference) > imu::kFirstHalf - 1) {
                g_run.calibration_state = imu::kCollectSecondHalf;
                reference[2] = -1.0F;  // the second half comes from the other side
            }
            break;
        case imu::kCollectSecondHalf:
            if (imu::collect(imu, rotation_matrix, reference) > imu::kRunSamples - 1) {
                g_run.calibration_state = imu::kFitPending;
            }
            break;
        case imu::kFitPending: {
            g_run.calibration_state = imu::kRunFinished;
            const int result = imu::calculate_bias();
            if (result != 0) {
                g_run.calibration_state = result;
            }
            break;
        }
        default:
            break;
    }
    return g_run.calibration_state;
}

IMU_EXPORT int return_data_collect_counter(void) {
    return g_run.data_collect_counter;
}

}  // extern "C"
