#pragma once
// Reads back the input event records the library writes into a test's
// stand-in device (a FIFO made by TempRoot::make_input_device).

#include <cstdint>
#include <ostream>
#include <string>
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

// Shorthands for the events of the virtual mouse.
InputEvent syn();
InputEvent rel(int code, int value);
InputEvent key(int code, int value);
InputEvent msc_scan(int value);

class EventReader {
public:
    // Opens the FIFO for reading, without blocking.
    explicit EventReader(const std::string& fifo_path);
    ~EventReader();
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    // Every whole record written since the last call, in order.
    std::vector<InputEvent> take();
    // Seconds field of the last record taken (gettimeofday at writing).
    std::int64_t last_seconds() const { return last_seconds_; }

private:
    int fd_;
    std::int64_t last_seconds_ = 0;
};

}  // namespace imu::test
