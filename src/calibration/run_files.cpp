// The raw sample file and the request file of a calibration run.

#include "calibration/run_files.h"

#include <android/log.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "calibration/fitting.h"
#include "imu/calibration.h"
#include "platform/paths.h"
#include "platform/replace_file.h"

namespace imu {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
RunFileState g_run_files;

constexpr const char* kTag = "VLM_SFC";
constexpr const char* kRawWrite = "%.5f\t%.5f\t%.5f\t%.5f\t%.5f\t%.5f\n";
// Six "%.5f" fields of any float (at most 46 characters each).
constexpr std::size_t kRawLineMax = 512;
constexpr const char* kRawRead = "%f\t%f\t%f\t%f\t%f\t%f\n";
constexpr const char* kOpenMode = "0777";  // the request file's mode, as text in base 8

using platform::FixedPath;

// The result when the numbers end: the stream's errno, or -ENODATA when
// nothing set one (the end of the input, or text that is not a number).
int no_number() {
    return errno != 0 ? -errno : -ENODATA;
}

// Reads a decimal integer as "%d" does (leading white space, an optional
// sign, digits), clamping a number beyond int range to its nearest end.
// Returns 1 when it converted a number, 0 when not, EOF at the end of input.
int scan_int(std::FILE* f, int* out) {
    int c = std::fgetc(f);
    while (c != EOF && std::isspace(c) != 0) {
        c = std::fgetc(f);
    }
    if (c == EOF) {
        return EOF;
    }
    const bool negative = c == '-';
    if (c == '-' || c == '+') {
        c = std::fgetc(f);
    }
    if (c == EOF || std::isdigit(c) == 0) {
        return 0;
    }
    long long value = 0;  // clamped once it passes INT_MAX + 1
    for (; c != EOF && std::isdigit(c) != 0; c = std::fgetc(f)) {
        value = std::min(value * 10 + (c - '0'), static_cast<long long>(INT_MAX) + 1);
    }
    if (negative) {
        value = -value;
    }
    *out = static_cast<int>(std::max<long long>(INT_MIN, std::min<long long>(INT_MAX, value)));
    return 1;
}

}  // namespace

RunFileState& run_file_state() noexcept {
    return g_run_files;
}

int save_acc_mag_raw(const IMU* imu) noexcept {
    if (imu == nullptr) {
        return -EINVAL;
    }
    auto mode = platform::WriteMode::kAppend;
    if (g_run_files.raw_file_started == 0) {
        g_run_files.raw_file_started = 1;
        mode = platform::WriteMode::kReplace;  // the first sample of a run replaces the last run's file
    }
    const float* a = imu->acc_raw;
    const float* m = imu->mag_raw;
    char line[kRawLineMax];
    const int len =
        std::snprintf(line, sizeof line, kRawWrite, static_cast<double>(a[0]),
                      static_cast<double>(a[1]), static_cast<double>(a[2]),
                      static_cast<double>(m[0]), static_cast<double>(m[1]), static_cast<double>(m[2]));
    if (platform::write_file_atomically(FixedPath::kAccMagRawFile, line,
                                        static_cast<std::size_t>(len), mode) != 0) {
        return -errno;
    }
    return 0;
}

int read_acc_mag_raw() noexcept {
    std::FILE* f = platform::fopen_fixed(FixedPath::kAccMagRawFile, "r");
    if (f == nullptr) {
        return -errno;
    }
    std::rewind(f);
    errno = 0;
    CalibratorSample* table = calibrator_workspace().sample;
    for (int i = 0; i < kCalibSamples; ++i) {
        float* a = table[i].acc;
        float* m = table[i].mag;
        const int n = std::fscanf(f, kRawRead, &a[0], &a[1], &a[2], &m[0], &m[1], &m[2]);
        if (n <= 0) {
            const int result = no_number();
            std::fclose(f);
            return result;
        }
    }
    std::fclose(f);
    return 0;
}

int changeFile_mode() noexcept {
    const auto mode = static_cast<unsigned>(std::strtol(kOpenMode, nullptr, 8) & 0xFFFF);
    if (platform::chmod_fixed(FixedPath::kCalibratorRequest, mode) == 0) {
        return 0;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "change file failed.\n");
    return -1;
}

}  // namespace imu

using imu::platform::FixedPath;

extern "C" {

IMU_EXPORT int creat_app_calibration_file(void) {
    if (imu::platform::write_file_atomically(FixedPath::kCalibratorRequest, "0\n", 2) != 0) {
        const int err = errno;
        char path[imu::platform::kPathMax];
        imu::platform::fixed_path(FixedPath::kCalibratorRequest, path, sizeof path);
        __android_log_print(ANDROID_LOG_ERROR, imu::kTag, "Unable to open %s (%s)", path,
                            std::strerror(err));
        return -err;
    }
    return imu::changeFile_mode();
}

IMU_EXPORT int check_app_calibration_file(void) {
    std::FILE* f = imu::platform::fopen_fixed(FixedPath::kCalibratorRequest, "r");
    if (f == nullptr) {
        return -errno;
    }
    std::rewind(f);
    errno = 0;
    int value = 0;
    const int n = imu::scan_int(f, &value);
    const int result = imu::no_number();
    std::fclose(f);
    if (n != 1) {
        return result;
    }
    __android_log_print(ANDROID_LOG_ERROR, imu::kTag, "check_app_calibration_file = %d", value);
    return value;
}

}  // extern "C"
