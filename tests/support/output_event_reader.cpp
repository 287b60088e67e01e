#include "support/output_event_reader.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace imu::test {

std::ostream& operator<<(std::ostream& os, const InputEvent& e) {
    return os << "{type " << e.type << ", code " << e.code << ", value " << e.value << "}";
}

InputEvent syn() { return {EV_SYN, SYN_REPORT, 0}; }
InputEvent rel(int code, int value) { return {EV_REL, static_cast<std::uint16_t>(code), value}; }
InputEvent key(int code, int value) { return {EV_KEY, static_cast<std::uint16_t>(code), value}; }
InputEvent msc_scan(int value) { return {EV_MSC, MSC_SCAN, value}; }

std::vector<InputEvent> touch_frame(int down, const std::vector<std::pair<int, int>>& contacts) {
    std::vector<InputEvent> out;
    int id = 0;
    for (const auto& [x, y] : contacts) {
        out.insert(out.end(), {{EV_ABS, ABS_MT_TOUCH_MAJOR, down}, {EV_KEY, BTN_TOUCH, down},
                               {EV_ABS, ABS_MT_POSITION_X, x}, {EV_ABS, ABS_MT_POSITION_Y, y},
                               {EV_ABS, ABS_MT_TRACKING_ID, id++}, {EV_SYN, SYN_MT_REPORT, 0}});
    }
    out.push_back(syn());
    return out;
}

EventReader::EventReader(const std::string& fifo_path)
    : fd_(::open(fifo_path.c_str(), O_RDONLY | O_NONBLOCK)) {
    if (fd_ < 0) {
        throw std::runtime_error("cannot open " + fifo_path);
    }
}

EventReader::~EventReader() { ::close(fd_); }

std::vector<InputEvent> EventReader::take(std::size_t n) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    struct input_event ev {};
    for (;;) {
        while (::read(fd_, &ev, sizeof ev) == static_cast<ssize_t>(sizeof ev)) {
            pending_.push_back({{ev.type, ev.code, ev.value},
                                static_cast<std::int64_t>(ev.input_event_sec) * 1000000 +
                                    static_cast<std::int64_t>(ev.input_event_usec)});
        }
        if (pending_.size() >= n || std::chrono::steady_clock::now() > deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto end = pending_.begin() +
                     static_cast<std::ptrdiff_t>(n == 0 ? pending_.size() : std::min(n, pending_.size()));
    std::vector<InputEvent> out;
    times_.clear();
    for (auto it = pending_.begin(); it != end; ++it) {
        out.push_back(it->first);
        times_.push_back(it->second);
    }
    pending_.erase(pending_.begin(), end);
    return out;
}

}  // namespace imu::test
