#include "platform/input_event_writer.h"

#include <linux/input.h>
#include <sys/time.h>
#include <unistd.h>

namespace imu::platform {

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
