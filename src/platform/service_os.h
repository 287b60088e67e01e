#pragma once
// Operating-system facilities of the fusion service that the fixed-path
// helpers do not cover: files named at run time (the save log), the local
// time, the monotonic clock and sleeping.

#include <cstddef>
#include <cstdint>

namespace imu::platform {

// access(2) of a path built at run time: 0, or -1 with errno set.
int access_path(const char* path, int how) noexcept;

// chmod(2) of a path built at run time: 0, or -1 with errno set.
int chmod_path(const char* path, unsigned mode) noexcept;

// The local calendar time, month 1 to 12. False when the clock or the time
// zone conversion fails (the fields are then all 0).
struct LocalTime {
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;
};
bool local_time_now(LocalTime* out) noexcept;

// CLOCK_MONOTONIC as seconds * 1e9 + nanoseconds.
std::int64_t monotonic_ns() noexcept;

// The text of an errno value, written into buf when the C library needs it.
const char* error_text(int err, char* buf, std::size_t cap) noexcept;

// Sleeps the calling thread for us microseconds.
void sleep_us(std::uint32_t us) noexcept;

}  // namespace imu::platform
