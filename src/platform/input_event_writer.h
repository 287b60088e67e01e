#pragma once
// Writing one input event record to an event device.

#include <cstddef>
#include <cstdint>

namespace imu::platform {

// Size of the platform's struct input_event (16 bytes on a 32-bit phone,
// 24 on a 64-bit host).
std::size_t input_event_size() noexcept;

// Fills one struct input_event (time from gettimeofday, then type, code,
// value) and writes it to fd with one write(2). Returns write's result: the
// bytes written, or -1 with errno set.
long write_input_event(int fd, std::uint16_t type, std::uint16_t code, std::int32_t value) noexcept;

}  // namespace imu::platform
