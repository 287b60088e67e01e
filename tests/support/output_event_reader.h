#pragma once
// Reads back the input event records the library writes into a test's
// stand-in device (a FIFO made by TempRoot::make_input_device).

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace imu::test {

struct InputEvent {
    std::uint16_t type;
    std::uint16_t code;
    std::int32_t value;
    bool operator==(const InputEvent& o) const {
        return type == o.type && code == o.code && value == o.value;
    }
};

std::ostream& operator<<(std::ostream& os, const InputEvent& e);

InputEvent syn();
InputEvent rel(int code, int value);
InputEvent key(int code, int value);
InputEvent msc_scan(int value);
// One touch frame: per contact (tracking id 0, 1, ...) TOUCH_MAJOR, BTN_TOUCH,
// POSITION_X, POSITION_Y, TRACKING_ID, SYN_MT_REPORT; then SYN_REPORT.
std::vector<InputEvent> touch_frame(int down, const std::vector<std::pair<int, int>>& contacts);

class EventReader {
public:
    explicit EventReader(const std::string& fifo_path);  // opens without blocking
    ~EventReader();
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    // The records written since the last call; with n > 0, waits (20 s at
    // most) for n of them and keeps any beyond the n-th for the next call.
    std::vector<InputEvent> take(std::size_t n = 0);
    // The gettimeofday stamps (microseconds) of the records last taken.
    const std::vector<std::int64_t>& times() const { return times_; }

private:
    int fd_;
    std::vector<std::pair<InputEvent, std::int64_t>> pending_;
    std::vector<std::int64_t> times_;
};

}  // namespace imu::test
