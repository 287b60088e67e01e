#include "platform/service_os.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

namespace imu::platform {

int access_path(const char* path, int how) noexcept {
    return path == nullptr ? -1 : ::access(path, how);
}

int chmod_path(const char* path, unsigned mode) noexcept {
    return path == nullptr ? -1 : ::chmod(path, static_cast<mode_t>(mode));
}

bool local_time_now(LocalTime* out) noexcept {
    if (out == nullptr) {
        return false;
    }
    *out = LocalTime{0, 0, 0, 0, 0, 0};
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    if (now == static_cast<std::time_t>(-1) || ::localtime_r(&now, &tm) == nullptr) {
        return false;
    }
    *out =
        LocalTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    return true;
}

std::int64_t monotonic_ns() noexcept {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000LL +
           static_cast<std::int64_t>(ts.tv_nsec);
}

const char* error_text(int err, char* buf, std::size_t cap) noexcept {
    if (buf == nullptr || cap == 0) {
        return "";
    }
    buf[0] = '\0';
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
    return ::strerror_r(err, buf, cap);  // GNU: may return a static text
#else
    return ::strerror_r(err, buf, cap) == 0 ? buf : "Unknown error";
#endif
}

void sleep_us(std::uint32_t us) noexcept { ::usleep(us); }

}  // namespace imu::platform
