#include "support/touch_frames.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace imu::test {

StampedReader::StampedReader(const std::string& fifo_path)
    : fd_(::open(fifo_path.c_str(), O_RDONLY | O_NONBLOCK)) {
    if (fd_ < 0) {
        throw std::runtime_error("cannot open " + fifo_path);
    }
}

StampedReader::~StampedReader() { ::close(fd_); }

std::vector<StampedEvent> StampedReader::take() {
    std::vector<StampedEvent> out;
    out.swap(pending_);
    struct input_event ev {};
    while (::read(fd_, &ev, sizeof ev) == static_cast<ssize_t>(sizeof ev)) {
        const std::int64_t us = static_cast<std::int64_t>(ev.input_event_sec) * 1000000 +
                                static_cast<std::int64_t>(ev.input_event_usec);
        out.push_back({{ev.type, ev.code, ev.value}, us});
    }
    return out;
}

std::vector<StampedEvent> StampedReader::take(std::size_t n) {
    std::vector<StampedEvent> out;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (out.size() < n && std::chrono::steady_clock::now() < deadline) {
        const auto more = take();
        out.insert(out.end(), more.begin(), more.end());
        if (more.empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    if (out.size() > n) {
        pending_.assign(out.begin() + static_cast<std::ptrdiff_t>(n), out.end());
        out.resize(n);
    }
    return out;
}

std::vector<InputEvent> events_of(const std::vector<StampedEvent>& stamped) {
    std::vector<InputEvent> out;
    out.reserve(stamped.size());
    for (const StampedEvent& s : stamped) {
        out.push_back(s.event);
    }
    return out;
}

namespace {

void append_contact(std::vector<InputEvent>& out, int down, Contact c, int id) {
    out.push_back({EV_ABS, ABS_MT_TOUCH_MAJOR, down});
    out.push_back({EV_KEY, BTN_TOUCH, down});
    out.push_back({EV_ABS, ABS_MT_POSITION_X, c.x});
    out.push_back({EV_ABS, ABS_MT_POSITION_Y, c.y});
    out.push_back({EV_ABS, ABS_MT_TRACKING_ID, id});
    out.push_back({EV_SYN, SYN_MT_REPORT, 0});
}

}  // namespace

std::vector<InputEvent> two_contact_frame(int down, Contact first, Contact second) {
    std::vector<InputEvent> out;
    append_contact(out, down, first, 0);
    append_contact(out, down, second, 1);
    out.push_back({EV_SYN, SYN_REPORT, 0});
    return out;
}

std::vector<InputEvent> one_contact_frame(int down, Contact c) {
    std::vector<InputEvent> out;
    append_contact(out, down, c, 0);
    out.push_back({EV_SYN, SYN_REPORT, 0});
    return out;
}

std::vector<std::vector<InputEvent>> frames_of(const std::vector<InputEvent>& events) {
    std::vector<std::vector<InputEvent>> out;
    for (std::size_t i = 0; i + kFrameEvents <= events.size(); i += kFrameEvents) {
        out.emplace_back(events.begin() + static_cast<std::ptrdiff_t>(i),
                         events.begin() + static_cast<std::ptrdiff_t>(i + kFrameEvents));
    }
    return out;
}

}  // namespace imu::test
