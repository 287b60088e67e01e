#include "support/output_event_reader.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <stdexcept>

namespace imu::test {

std::ostream& operator<<(std::ostream& os, const InputEvent& e) {
    return os << "{type " << e.type << ", code " << e.code << ", value " << e.value << "}";
}

InputEvent syn() { return {EV_SYN, SYN_REPORT, 0}; }

InputEvent rel(int code, int value) { return {EV_REL, static_cast<std::uint16_t>(code), value}; }

InputEvent key(int code, int value) { return {EV_KEY, static_cast<std::uint16_t>(code), value}; }

InputEvent msc_scan(int value) { return {EV_MSC, MSC_SCAN, value}; }

EventReader::EventReader(const std::string& fifo_path)
    : fd_(::open(fifo_path.c_str(), O_RDONLY | O_NONBLOCK)) {
    if (fd_ < 0) {
        throw std::runtime_error("cannot open " + fifo_path);
    }
}

EventReader::~EventReader() { ::close(fd_); }

std::vector<InputEvent> EventReader::take() {
    std::vector<InputEvent> out;
    struct input_event ev {};
    while (::read(fd_, &ev, sizeof ev) == static_cast<ssize_t>(sizeof ev)) {
        out.push_back({ev.type, ev.code, ev.value});
        last_seconds_ = static_cast<std::int64_t>(ev.input_event_sec);
    }
    return out;
}

}  // namespace imu::test
