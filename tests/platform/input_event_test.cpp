// The input event records the virtual devices write, read back as raw
// bytes with the layout the phone's input layer expects.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>

#include "platform/input_event_writer.h"

namespace {

// Seconds and microseconds are longs: 16-byte records in a 32-bit process,
// 24-byte ones in a 64-bit process.
#if defined(__LP64__)
using TimeWord = std::int64_t;
constexpr long kRecordBytes = 24;
#else
using TimeWord = std::int32_t;
constexpr long kRecordBytes = 16;
#endif

std::int64_t now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

template <typename T>
T at(const unsigned char* raw, std::size_t offset) {
    T v{};
    std::memcpy(&v, raw + offset, sizeof v);
    return v;
}

TEST(InputEventRecord, FieldsSitWhereTheReaderLooks) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    EXPECT_EQ(static_cast<long>(imu::platform::input_event_size()), kRecordBytes);
    const struct {
        std::uint16_t type, code;
        std::int32_t value;
    } cases[] = {{0x02, 0x08, -3},
                 {0x03, 0x35, 1079},
                 {0xFFFF, 0xFFFF, INT32_MIN},  // no sign spreads into the next field
                 {0x0000, 0x0000, INT32_MAX}};
    for (const auto& c : cases) {
        const std::int64_t before_us = now_us();
        ASSERT_EQ(imu::platform::write_input_event(fds[1], c.type, c.code, c.value), kRecordBytes);
        const std::int64_t after_us = now_us();
        unsigned char raw[64];
        ASSERT_EQ(::read(fds[0], raw, sizeof raw), kRecordBytes);  // one record, no more
        const std::size_t t = sizeof(TimeWord);
        EXPECT_EQ(at<std::uint16_t>(raw, 2 * t), c.type);
        EXPECT_EQ(at<std::uint16_t>(raw, 2 * t + 2), c.code);
        EXPECT_EQ(at<std::int32_t>(raw, 2 * t + 4), c.value);
        const auto usec = at<TimeWord>(raw, t);
        EXPECT_TRUE(usec >= 0 && usec < 1000000) << usec;
        const std::int64_t stamp_us =
            static_cast<std::int64_t>(at<TimeWord>(raw, 0)) * 1000000 + usec;
        EXPECT_TRUE(stamp_us >= before_us && stamp_us <= after_us) << c.value;
    }
    EXPECT_EQ(imu::platform::write_input_event(-1, 1, 2, 3), -1);
    ::close(fds[0]);
    ::close(fds[1]);
}

}  // namespace
