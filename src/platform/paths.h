#pragma once
// The library's fixed paths. Every file, socket and device path of the
// library is one of these, looked up under the host root (include/imu/host.h)
// so that tests and replays never touch the real /data. On the phone the
// root is empty and the paths are used as they are.

#include <cstddef>
#include <cstdio>

namespace imu::platform {

enum class FixedPath {
    kSystemDir,           // "/data/system/"
    kCalibrationFile,     // "/data/system/velmoGR.ini"
    kAccMagRawFile,       // "/data/system/acc_mag_raw.txt"
    kCalibratorRequest,   // "/data/system/velmo_calibrator_s.ini"
    kAirMouseSettings,    // "/data/system/velmoAR.ini"
    kShowLogSwitch,       // "/data/system/show_velmo_log.ini"
    kSaveLogSwitch,       // "/data/system/save_velmo_log.ini"
    kSaveLogPrefix,       // "/data/system/velmoLOG" (a time name follows)
    kScreenResolution,    // "/data/system/velmo_screen_resolution"
    kVelmoDir,            // "/data/velmo"
    kServiceSocket,       // "/data/velmo/service"
    kCalibratorSocket,    // "/data/velmo/calibrator_service"
    kTouchSocket,         // "/data/velmo/touch_service"
    kDevInput,            // "/dev/input"
    kSysClassInput,       // "/sys/class/input"
    kSysClassInputSlash,  // "/sys/class/input/"
};

// Longest path the library builds (PATH_MAX).
inline constexpr std::size_t kPathMax = 4096;

// The path as the phone knows it, without the root.
const char* fixed_path_name(FixedPath p) noexcept;

// Writes root + fixed path into out (cap bytes, terminator included).
// Returns the length, or -1 when it does not fit (out is then "").
int fixed_path(FixedPath p, char* out, std::size_t cap) noexcept;

// Writes root + fixed path + "/" + name. Returns the length or -1 (out "").
int fixed_path_join(FixedPath dir, const char* name, char* out, std::size_t cap) noexcept;

// fopen of a fixed path. Null (errno ENAMETOOLONG) when the path does not fit.
std::FILE* fopen_fixed(FixedPath p, const char* mode) noexcept;

// access(2) and chmod(2) of a fixed path: 0, or -1 with errno set.
int access_fixed(FixedPath p, int how) noexcept;
int chmod_fixed(FixedPath p, unsigned mode) noexcept;

}  // namespace imu::platform
