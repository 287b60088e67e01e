#include "platform/paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/root.h"

namespace imu::platform {
namespace {

constexpr const char* kNames[] = {
    "/data/system/",
    "/data/system/velmoGR.ini",
    "/data/system/acc_mag_raw.txt",
    "/data/system/velmo_calibrator_s.ini",
    "/data/system/velmoAR.ini",
    "/data/system/show_velmo_log.ini",
    "/data/system/save_velmo_log.ini",
    "/data/system/velmoLOG",
    "/data/system/velmo_screen_resolution",
    "/data/velmo",
    "/data/velmo/service",
    "/data/velmo/calibrator_service",
    "/data/velmo/touch_service",
    "/dev/input",
    "/sys/class/input",
    "/sys/class/input/",
};
static_assert(sizeof(kNames) / sizeof(kNames[0]) ==
              static_cast<std::size_t>(FixedPath::kSysClassInputSlash) + 1);

// Appends text at out[len]; returns the new length or -1 when it does not fit.
int append(char* out, std::size_t cap, int len, const char* text) noexcept {
    const std::size_t n = std::strlen(text);
    if (len < 0 || static_cast<std::size_t>(len) + n >= cap) {
        return -1;
    }
    std::memcpy(out + len, text, n + 1);
    return len + static_cast<int>(n);
}

int fail(char* out, std::size_t cap) noexcept {
    if (cap > 0) {
        out[0] = '\0';
    }
    return -1;
}

}  // namespace

const char* fixed_path_name(FixedPath p) noexcept { return kNames[static_cast<int>(p)]; }

int fixed_path(FixedPath p, char* out, std::size_t cap) noexcept {
    if (out == nullptr || cap == 0) {
        return -1;
    }
    const int len = append(out, cap, copy_root(out, cap), fixed_path_name(p));
    return len < 0 ? fail(out, cap) : len;
}

int fixed_path_join(FixedPath dir, const char* name, char* out, std::size_t cap) noexcept {
    if (name == nullptr) {
        return fail(out, cap);
    }
    int len = fixed_path(dir, out, cap);
    len = append(out, cap, len, "/");
    len = append(out, cap, len, name);
    return len < 0 ? fail(out, cap) : len;
}

std::FILE* fopen_fixed(FixedPath p, const char* mode) noexcept {
    char path[kPathMax];
    if (fixed_path(p, path, sizeof path) < 0) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return std::fopen(path, mode);
}

int access_fixed(FixedPath p, int how) noexcept {
    char path[kPathMax];
    if (fixed_path(p, path, sizeof path) < 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return ::access(path, how);
}

int chmod_fixed(FixedPath p, unsigned mode) noexcept {
    char path[kPathMax];
    if (fixed_path(p, path, sizeof path) < 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return ::chmod(path, static_cast<mode_t>(mode));
}

}  // namespace imu::platform
