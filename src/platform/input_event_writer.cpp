#include "platform/input_event_writer.h"

#include <linux/input.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>

namespace imu::platform {

// The record a phone's input layer reads: seconds and microseconds as two
// longs, then type, code and value. A 32-bit process writes 16 bytes, a
// 64-bit one 24; a mismatch with the reader shifts every later record.
static_assert(sizeof(long) == 4 || sizeof(long) == 8, "ILP32 or LP64 only");
static_assert(sizeof(struct input_event) == 2 * sizeof(long) + 8,
              "input_event: two longs of time, 16-bit type and code, 32-bit value");
static_assert(offsetof(struct input_event, type) == 2 * sizeof(long));
static_assert(offsetof(struct input_event, code) == 2 * sizeof(long) + 2);
static_assert(offsetof(struct input_event, value) == 2 * sizeof(long) + 4);

std::size_t input_event_size() noexcept { return sizeof(struct input_event); }

long write_input_event(int fd, std::uint16_t type, std::uint16_t code,
                       std::int32_t value) noexcept {
    struct input_event ev {};
    struct timeval now {};
    ::gettimeofday(&now, nullptr);
    ev.input_event_sec = now.tv_sec;
    ev.input_event_usec = now.tv_usec;
    ev.type = type;
    ev.code = code;
    ev.value = value;
    return static_cast<long>(::write(fd, &ev, sizeof ev));
}

}  // namespace imu::platform
