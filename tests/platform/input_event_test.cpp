// The input event records the virtual devices write, read back as raw
// bytes with the layout the phone's input layer expects.

#include "platform/input_event_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>

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

class InputEventRecord : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(::pipe(fds_), 0); }
    void TearDown() override {
        ::close(fds_[0]);
        ::close(fds_[1]);
    }
    int read_fd() const { return fds_[0]; }
    int write_fd() const { return fds_[1]; }

private:
    int fds_[2] = {-1, -1};
};

TEST_F(InputEventRecord, SizeIsTheProcessWordSize) {
    EXPECT_EQ(static_cast<long>(imu::platform::input_event_size()), kRecordBytes);
}

TEST_F(InputEventRecord, FieldsSitWhereTheReaderLooks) {
    struct Case {
        std::uint16_t type, code;
        std::int32_t value;
    };
    const Case cases[] = {
        {0x02, 0x08, -3},                // a wheel step down
        {0x03, 0x35, 1079},              // a touch position
        {0xFFFF, 0xFFFF, INT32_MIN},     // no sign spreads into the next field
        {0x0000, 0x0000, INT32_MAX},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        const std::int64_t before_us = now_us();
        ASSERT_EQ(imu::platform::write_input_event(write_fd(), c.type, c.code, c.value),
                  kRecordBytes);
        const std::int64_t after_us = now_us();

        unsigned char raw[64];
        ASSERT_EQ(::read(read_fd(), raw, sizeof raw), kRecordBytes);  // one record, no more
        TimeWord sec = 0;
        TimeWord usec = 0;
        std::uint16_t type = 0;
        std::uint16_t code = 0;
        std::int32_t value = 0;
        std::memcpy(&sec, raw, sizeof sec);
        std::memcpy(&usec, raw + sizeof(TimeWord), sizeof usec);
        std::memcpy(&type, raw + 2 * sizeof(TimeWord), sizeof type);
        std::memcpy(&code, raw + 2 * sizeof(TimeWord) + 2, sizeof code);
        std::memcpy(&value, raw + 2 * sizeof(TimeWord) + 4, sizeof value);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(value, c.value);
        EXPECT_GE(usec, 0);
        EXPECT_LT(usec, 1000000);
        const std::int64_t stamp_us = static_cast<std::int64_t>(sec) * 1000000 + usec;
        EXPECT_GE(stamp_us, before_us);
        EXPECT_LE(stamp_us, after_us);
    }
}

TEST_F(InputEventRecord, NoDeviceGivesMinusOne) {
    EXPECT_EQ(imu::platform::write_input_event(-1, 1, 2, 3), -1);
}

}  // namespace
