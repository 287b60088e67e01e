#pragma once
// Reading back what the touch service writes into its stand-in device: the
// records with their time stamps, and the multi-touch frames they form.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/output_event_reader.h"

namespace imu::test {

// One record as written, with its gettimeofday stamp in microseconds.
struct StampedEvent {
    InputEvent event;
    std::int64_t time_us;
};

class StampedReader {
public:
    // Opens the FIFO for reading, without blocking.
    explicit StampedReader(const std::string& fifo_path);
    ~StampedReader();
    StampedReader(const StampedReader&) = delete;
    StampedReader& operator=(const StampedReader&) = delete;

    // Every whole record written since the last call, in order.
    std::vector<StampedEvent> take();
    // Reads until n records have come (or 20 s passed) and returns them
    // all; a record beyond the n-th is kept for the next call.
    std::vector<StampedEvent> take(std::size_t n);

private:
    int fd_;
    std::vector<StampedEvent> pending_;
};

std::vector<InputEvent> events_of(const std::vector<StampedEvent>& stamped);

// A contact as the device sees it.
struct Contact {
    int x;
    int y;
};

// The 13 events of one two-contact frame: for tracking ids 0 and 1,
// TOUCH_MAJOR, BTN_TOUCH, POSITION_X, POSITION_Y, TRACKING_ID, SYN_MT_REPORT;
// then SYN_REPORT.
std::vector<InputEvent> two_contact_frame(int down, Contact first, Contact second);
inline constexpr std::size_t kFrameEvents = 13;

// The 7 events of one contact (tracking id 0) and its SYN_REPORT.
std::vector<InputEvent> one_contact_frame(int down, Contact c);
inline constexpr std::size_t kTapFrameEvents = 7;

// Cuts events into frames of kFrameEvents.
std::vector<std::vector<InputEvent>> frames_of(const std::vector<InputEvent>& events);

}  // namespace imu::test
