// The air mouse's settings file "/data/system/velmoAR.ini": one line
// "<position> <width> <height>", created with defaults when missing.

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "imu/pointing.h"
#include "platform/paths.h"
#include "platform/replace_file.h"
#include "pointing/air_mouse.h"

namespace imu {
namespace {

constexpr const char* kAirTag = "AirMouseAlgorithm";
constexpr int kSettings = 3;  // position, width, height

using platform::FixedPath;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
bool g_default_file_created = false;

// Three "%.1f" fields of any float (at most 41 characters each) and a newline.
constexpr std::size_t kSettingsLineMax = 160;

const char* settings_path(char* buf, std::size_t size) {
    platform::fixed_path(FixedPath::kAirMouseSettings, buf, size);
    return buf;
}

// Creates the file with "0 1680 1050\n" when it is not readable and
// writable. Tried once per process: after a failed creation as well.
void check_calibration_file() {
    if (g_default_file_created ||
        platform::access_fixed(FixedPath::kAirMouseSettings, R_OK | W_OK) == 0) {
        return;
    }
    static constexpr char kDefaults[] = "0 1680 1050\n";
    g_default_file_created = true;
    if (platform::write_file_atomically(FixedPath::kAirMouseSettings, kDefaults,
                                        sizeof kDefaults - 1) != 0) {
        char path[platform::kPathMax];
        __android_log_print(ANDROID_LOG_ERROR, kAirTag, "Unable to open %s (%s)",
                            settings_path(path, sizeof path), std::strerror(errno));
    }
}

// Takes the leading fields of the line that hold finite numbers. Returns
// how many, or a negated errno when none: the stream's error, -ERANGE for
// a first number beyond float range, -EINVAL for no number at all.
int scan_settings(std::FILE* f, float* values) {
    float v[kSettings] = {values[0], values[1], values[2]};
    errno = 0;
    const int n = std::fscanf(f, "%f %f %f\n", &v[0], &v[1], &v[2]);
    const int err = errno;
    int taken = 0;
    while (taken < n && std::isfinite(v[taken])) {
        values[taken] = v[taken];
        ++taken;
    }
    if (taken > 0) {
        return taken;
    }
    if (n < 0 && std::ferror(f) != 0 && err != 0) {
        return -err;
    }
    return n > 0 && std::isinf(v[0]) ? -ERANGE : -EINVAL;
}

// (int)v, saturating; not-a-number gives 0.
int to_int(float v) {
    if (!(v == v)) {
        return 0;
    }
    if (v >= 2147483520.0F) {  // the largest float below 2^31
        return INT_MAX;
    }
    return v <= -2147483648.0F ? INT_MIN : static_cast<int>(v);
}

}  // namespace
}  // namespace imu

using imu::kAirTag;
using imu::platform::FixedPath;

extern "C" {

IMU_EXPORT int write_screen_position_resolution(const float* values) {
    if (values == nullptr) {
        return -22;
    }
    imu::check_calibration_file();
    char line[imu::kSettingsLineMax];
    const int len = std::snprintf(line, sizeof line, "%.1f %.1f %.1f\n",
                                  static_cast<double>(values[0]), static_cast<double>(values[1]),
                                  static_cast<double>(values[2]));
    if (imu::platform::write_file_atomically(FixedPath::kAirMouseSettings, line,
                                             static_cast<std::size_t>(len)) != 0) {
        const int err = errno;
        char path[imu::platform::kPathMax];
        __android_log_print(ANDROID_LOG_ERROR, kAirTag, "open file '%s' failed: %s\n",
                            imu::settings_path(path, sizeof path), std::strerror(err));
        return -err;
    }
    return 0;
}

IMU_EXPORT int read_screen_position_resolution(float* values) {
    if (values == nullptr) {
        return -22;
    }
    imu::check_calibration_file();
    char path[imu::platform::kPathMax];
    if (imu::platform::access_fixed(FixedPath::kAirMouseSettings, R_OK | W_OK) != 0) {
        const int err = errno;
        __android_log_print(ANDROID_LOG_ERROR, kAirTag, "Cannot access \"%s\": %s",
                            imu::settings_path(path, sizeof path), std::strerror(err));
        return -err;
    }
    std::FILE* f = imu::platform::fopen_fixed(FixedPath::kAirMouseSettings, "r");
    if (f == nullptr) {
        const int err = errno;
        __android_log_print(ANDROID_LOG_ERROR, kAirTag, "open File failed: %s\n",
                            std::strerror(err));
        return -err;
    }
    std::rewind(f);
    const int taken = imu::scan_settings(f, values);
    (void)std::fclose(f);
    if (taken > 0) {
        return 0;
    }
    __android_log_print(ANDROID_LOG_ERROR, kAirTag, "%s\n", std::strerror(-taken));
    return taken;
}

IMU_EXPORT int set_screen_position_resolution(void) {
    imu::AirMouseState& s = imu::air_mouse_state();
    // Entries the file does not supply keep the current settings.
    float values[imu::kSettings] = {static_cast<float>(s.position_mode), s.screen_width,
                                    s.screen_height};
    read_screen_position_resolution(values);
    set_position(imu::to_int(values[0]));
    input_screen_resolution(std::trunc(values[1]), std::trunc(values[2]));
    __android_log_print(ANDROID_LOG_ERROR, kAirTag, "Load position: %f screen_resolution=(%f,%f)\n",
                        static_cast<double>(values[0]), static_cast<double>(values[1]),
                        static_cast<double>(values[2]));
    return 0;
}

}  // extern "C"
