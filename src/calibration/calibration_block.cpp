// The calibration block, its file "/data/system/velmoGR.ini" and the
// correction of samples on the input path and inside each posture update.

#include "calibration/calibration_block.h"

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "imu/calibration.h"
#include "platform/paths.h"
#include "platform/replace_file.h"

namespace imu {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
CalibrationState g_calib;

constexpr const char* kTag = "VLM_SFC";
constexpr const char* kDefaultLine = "%f %f %f %f %f %f %f %f %f %f %f %f %f %f %f\n";
constexpr const char* kSaveLine =
    "%.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f %.5f\n";
// Fifteen "%.5f" fields of any float (at most 46 characters each).
constexpr std::size_t kLineMax = 1024;
constexpr const char* kReadLine = "%f %f %f %f %f %f %f %f %f %f %f %f %f %f %f\n";

using platform::FixedPath;

// out = (in - offset) * scale, per axis.
void correct(const float* in, const float* offset, const float* scale, float* out) {
    for (int i = 0; i < 3; ++i) {
        out[i] = (in[i] - offset[i]) * scale[i];
    }
}

void copy3(const float* in, float* out) { std::memcpy(out, in, 3 * sizeof(float)); }

void load_once(std::int32_t& loaded) {
    if (loaded == 0) {
        read_calibration();
        loaded = 1;
    }
}

// Scans the calibration line of f into block. Takes the leading fields that
// hold finite numbers and returns how many; when none, returns a negated
// errno: the stream's error, -ERANGE for a first number beyond float range,
// -EINVAL for no number at all.
int scan_block(std::FILE* f, float* block) {
    float v[kCalibFields];
    std::memcpy(v, block, sizeof v);
    const int n = std::fscanf(f, kReadLine, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7],
                              &v[8], &v[9], &v[10], &v[11], &v[12], &v[13], &v[14]);
    int taken = 0;
    while (taken < n && std::isfinite(v[taken])) {
        block[taken] = v[taken];
        ++taken;
    }
    if (taken > 0) {
        return taken;
    }
    if (n < 0 && std::ferror(f) != 0) {
        return -errno;
    }
    return n > 0 && std::isinf(v[0]) ? -ERANGE : -EINVAL;
}

}  // namespace

CalibrationState& calibration_state() noexcept { return g_calib; }

}  // namespace imu

using imu::g_calib;
using imu::platform::FixedPath;

extern "C" {

IMU_EXPORT void check_calibration_file(void) {
    if (g_calib.calib_file_created != 0 ||
        imu::platform::access_fixed(FixedPath::kCalibrationFile, R_OK | W_OK) == 0) {
        return;
    }
    char line[imu::kLineMax];
    const int len = std::snprintf(line, sizeof line, imu::kDefaultLine, 0.0, 0.0, 0.0, 0.0, 0.0,
                                  0.0, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0);
    g_calib.calib_file_created = 1;
    if (imu::platform::write_file_atomically(FixedPath::kCalibrationFile, line,
                                             static_cast<std::size_t>(len)) != 0) {
        char path[imu::platform::kPathMax];
        imu::platform::fixed_path(FixedPath::kCalibrationFile, path, sizeof path);
        __android_log_print(ANDROID_LOG_ERROR, imu::kTag, "Unable to open %s (%s)", path,
                            std::strerror(errno));
    }
}

IMU_EXPORT int read_calibration(void) {
    check_calibration_file();
    std::FILE* f = imu::platform::fopen_fixed(FixedPath::kCalibrationFile, "r");
    if (f == nullptr) {
        return -errno;
    }
    std::rewind(f);
    const int taken = imu::scan_block(f, g_calib.s_calib2);
    std::fclose(f);
    return taken > 0 ? 0 : taken;
}

IMU_EXPORT int save_calibration(void) {
    const float* c = g_calib.s_calib2;
    char line[imu::kLineMax];
    const int len = std::snprintf(line, sizeof line, imu::kSaveLine, static_cast<double>(c[0]), static_cast<double>(c[1]),
                 static_cast<double>(c[2]), static_cast<double>(c[3]), static_cast<double>(c[4]),
                 static_cast<double>(c[5]), static_cast<double>(c[6]), static_cast<double>(c[7]),
                 static_cast<double>(c[8]), static_cast<double>(c[9]), static_cast<double>(c[10]),
                 static_cast<double>(c[11]), static_cast<double>(c[12]), static_cast<double>(c[13]),
                 static_cast<double>(c[14]));
    if (imu::platform::write_file_atomically(FixedPath::kCalibrationFile, line,
                                             static_cast<std::size_t>(len)) != 0) {
        return -errno;
    }
    return 0;
}

IMU_EXPORT int set_calibrator_mode(int mode) {
    g_calib.calibrator_mode = mode;
    return 0;
}

IMU_EXPORT int set_sensitive(void* /*service*/) { return 0; }

IMU_EXPORT void apply_calibration(IMU* imu, const float* gyro_offset) {
    if (imu == nullptr || gyro_offset == nullptr) {
        return;
    }
    imu::load_once(g_calib.calib_loaded_fusion);
    float* c = g_calib.s_calib2;
    // Only x is compared: a new estimate is stored and saved when x moved.
    if (gyro_offset[0] != c[imu::kGyroOffset]) {
        imu::copy3(gyro_offset, c + imu::kGyroOffset);
        save_calibration();
    }
    for (int i = 0; i < 3; ++i) {
        imu->gyro[i] = imu->gyro_raw[i] - gyro_offset[i];
    }
    switch (g_calib.calibrator_mode) {
        case imu::kCalibrateNone:
            imu::copy3(imu->acc_raw, imu->acc);
            imu::copy3(imu->mag_raw, imu->mag);
            break;
        case imu::kCalibrateAcc:
            imu::correct(imu->acc_raw, c + imu::kAccOffset, c + imu::kAccScale, imu->acc);
            imu::copy3(imu->mag_raw, imu->mag);
            break;
        case imu::kCalibrateAccMag:
            imu::correct(imu->acc_raw, c + imu::kAccOffset, c + imu::kAccScale, imu->acc);
            imu::correct(imu->mag_raw, c + imu::kMagOffset, c + imu::kMagScale, imu->mag);
            break;
        default:
            break;  // unknown mode: acc and mag keep what they held
    }
}

IMU_EXPORT void GetZarnCalibratedData(int type, const float* in, float* out) {
    if (in == nullptr || out == nullptr) {
        return;
    }
    imu::load_once(g_calib.calib_loaded_input);
    const float* c = g_calib.s_calib2;
    const std::int32_t mode = g_calib.calibrator_mode;
    switch (type) {
        case 0:  // gyroscope: the offset applies in every mode
            for (int i = 0; i < 3; ++i) {
                out[i] = in[i] - c[imu::kGyroOffset + i];
            }
            break;
        case 6:  // accelerometer
            if (mode == imu::kCalibrateNone) {
                imu::copy3(in, out);
            } else if (mode == imu::kCalibrateAcc || mode == imu::kCalibrateAccMag) {
                imu::correct(in, c + imu::kAccOffset, c + imu::kAccScale, out);
            }
            break;
        case 7:  // magnetometer
            if (mode == imu::kCalibrateNone || mode == imu::kCalibrateAcc) {
                imu::copy3(in, out);
            } else if (mode == imu::kCalibrateAccMag) {
                imu::correct(in, c + imu::kMagOffset, c + imu::kMagScale, out);
            }
            break;
        default:
            break;
    }
}

}  // extern "C"
