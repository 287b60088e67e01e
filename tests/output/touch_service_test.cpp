// The touch service on its socket: commands sent to
// "/data/velmo/touch_service" become gestures on the device, or callbacks
// when one is registered.

#include "imu/touch_service.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/touch_frames.h"

namespace {

using imu::test::Bytes;
using imu::test::kFrameEvents;
using imu::test::kTapFrameEvents;
using imu::test::StampedReader;
using imu::test::two_contact_frame;
using imu::test::wait_until;

constexpr const char* kSocket = "/data/velmo/touch_service";

Bytes command_bytes(std::int32_t key_id, std::int32_t key_type,
                    std::vector<std::int32_t> data = {0, 0, 0, 0}) {
    vl_touch_sensors_event e{key_id, key_type, {data[0], data[1], data[2], data[3]}};
    const auto* p = reinterpret_cast<const unsigned char*>(&e);
    return Bytes(p, p + sizeof e);
}

struct Call {
    unsigned first;
    VLCONTROLLER_ID controller;
    Bytes event;  // the whole VLEvent
};

// The callbacks seen so far; each test runs in a process of its own.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::mutex g_calls_mutex;
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::vector<Call> g_calls;

void record_call(unsigned first, VLCONTROLLER_ID controller, const VLEvent& event) {
    const auto* p = reinterpret_cast<const unsigned char*>(&event);
    const std::lock_guard<std::mutex> lock(g_calls_mutex);
    g_calls.push_back({first, controller, Bytes(p, p + sizeof event)});
}

std::vector<Call> calls() {
    const std::lock_guard<std::mutex> lock(g_calls_mutex);
    return g_calls;
}

class TouchService : public testing::Test {
protected:
    bool bound() const {
        return wait_until([&] { return imu::test::is_socket(root.path(kSocket)); });
    }
    bool send(const Bytes& datagram) const {
        return imu::test::send_datagram(root.path(kSocket), datagram);
    }
    bool logged(const std::string& line) const {
        return wait_until([&] { return log.count(line) >= 1; });
    }

    imu::test::LogCapture log;
    imu::test::TempRoot root;
    StampedReader reader{
        (root.make_input_device("event2", "VelmoVirtualTouch"), root.path("/dev/input/event2"))};
};

// Command (1, 1), sent by another object's send_clien_data: 7 events down
// at device (585, 625), 100 ms, 7 events up.
TEST_F(TouchService, TapCommandWritesDownHoldUp) {
    touch_service service;
    service.start_service();
    ASSERT_TRUE(bound());
    touch_service client;
    vl_touch_sensors_event tap{1, 1, {0, 0, 0, 0}};
    EXPECT_EQ(client.send_clien_data(&tap), 0);

    const auto got = reader.take(2 * kTapFrameEvents);
    ASSERT_EQ(got.size(), 2 * kTapFrameEvents);
    auto expected = imu::test::one_contact_frame(1, {585, 625});
    const auto up = imu::test::one_contact_frame(0, {585, 625});
    expected.insert(expected.end(), up.begin(), up.end());
    EXPECT_EQ(imu::test::events_of(got), expected);
    EXPECT_GE(got[kTapFrameEvents].time_us - got[kTapFrameEvents - 1].time_us, 100000);
    EXPECT_EQ(log.count("key_id=1 key_type=1"), 1);

    vl_touch_sensors_event last{};
    EXPECT_EQ(service.get_data(&last), 0);
    EXPECT_EQ(last.key_id, 1);
    EXPECT_EQ(last.key_type, 1);
}

struct Sweep {
    const char* what;
    std::int32_t key_type;
    int y;  // device y of every contact
    int first_left, first_right;
    int last_left, last_right;
};

void PrintTo(const Sweep& c, std::ostream* os) { *os << c.what; }

class TouchSweep : public TouchService, public testing::WithParamInterface<Sweep> {};

// Commands (1, 2) and (1, 3): 200 frames, then one release frame, each
// step 2 ms apart at least.
TEST_P(TouchSweep, CommandWritesTwoHundredFramesAndTheRelease) {
    const Sweep& c = GetParam();
    touch_service service;
    service.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(command_bytes(1, c.key_type)));

    const auto got = reader.take(201 * kFrameEvents);
    const auto frames = imu::test::frames_of(imu::test::events_of(got));
    ASSERT_EQ(frames.size(), 201U) << c.what;
    EXPECT_EQ(frames[0], two_contact_frame(1, {c.first_left, c.y}, {c.first_right, c.y}));
    EXPECT_EQ(frames[199], two_contact_frame(1, {c.last_left, c.y}, {c.last_right, c.y}));
    EXPECT_EQ(frames[200], two_contact_frame(0, {0, 0}, {0, 0}));
    for (std::size_t i = 0; i < 200; ++i) {
        ASSERT_EQ(frames[i][0].value, 1) << "frame " << i << " is down";
    }
    EXPECT_GE(got.back().time_us - got.front().time_us, 200 * 2000) << c.what;
    EXPECT_TRUE(reader.take().empty());
}

INSTANTIATE_TEST_SUITE_P(Commands, TouchSweep,
                         testing::Values(
                             // enlarge(200, 200, 200): left 189 .. -10, right 211 .. 410.
                             Sweep{"spread", 2, 250, 221, 247, 0, 480},
                             // narrow(600, 600, 200): left 401 .. 600, right 799 .. 600.
                             Sweep{"pinch", 3, 750, 469, 936, 703, 703}),
                         [](const auto& info) { return std::string(info.param.what); });

// Unknown commands and short datagrams are logged and write nothing: the
// only events that arrive are those of the tap sent last.
TEST_F(TouchService, UnknownCommandsAreOnlyLogged) {
    touch_service service;
    service.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(command_bytes(2, 1)));
    ASSERT_TRUE(send(command_bytes(1, 0)));
    ASSERT_TRUE(send(command_bytes(1, 4)));
    ASSERT_TRUE(send(command_bytes(-1, 3)));
    ASSERT_TRUE(send(Bytes{7, 0, 0, 0}));  // key_id 7, key_type as left by (-1, 3)
    ASSERT_TRUE(send(Bytes{}));            // the latest record as it was
    ASSERT_TRUE(send(command_bytes(1, 1)));
    const auto got = reader.take(2 * kTapFrameEvents);
    EXPECT_EQ(got.size(), 2 * kTapFrameEvents);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.take().empty());
    for (const char* line : {"key_id=2 key_type=1", "key_id=1 key_type=0", "key_id=1 key_type=4",
                             "key_id=-1 key_type=3", "key_id=1 key_type=1"}) {
        EXPECT_EQ(log.count(line), 1) << line;
    }
    EXPECT_EQ(log.count("key_id=7 key_type=3"), 2);
}

// With a callback registered, a tap command goes to the callback as a
// VLEvent of type 2 and nothing is written to the device.
TEST_F(TouchService, CallbackTakesCommandsInsteadOfGestures) {
    const int before = imu::test::thread_count();
    touch_service service;
    EXPECT_EQ(service.Init(record_call), 0);
    EXPECT_EQ(service.callback_set.load(), 1);
    EXPECT_FALSE(service.running.load());  // Init does not start the service
    EXPECT_EQ(imu::test::thread_count(), before);
    service.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(command_bytes(1, 1, {10, -20, 30, 0x7fffffff})));
    ASSERT_TRUE(wait_until([] { return calls().size() == 1; }));

    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // longer than a tap
    EXPECT_TRUE(reader.take().empty());
    EXPECT_EQ(log.count("key_id=1 key_type=1"), 0);
    const auto c = calls();
    ASSERT_EQ(c.size(), 1U);
    EXPECT_EQ(c[0].first, 0U);
    EXPECT_EQ(c[0].controller, VLCONTROLLER_ID_VELMO);
    Bytes expected(sizeof(VLEvent), 0);
    expected[0] = 2;
    const Bytes record = command_bytes(1, 1, {10, -20, 30, 0x7fffffff});
    std::copy(record.begin(), record.end(), expected.begin() + 16);
    EXPECT_EQ(c[0].event, expected);
    EXPECT_EQ(service.Exit(), 0);
}

TEST_F(TouchService, NullArgumentsAreRefused) {
    touch_service service;
    EXPECT_EQ(service.Init(nullptr), -22);
    EXPECT_EQ(service.callback_set.load(), 0);
    EXPECT_EQ(service.get_data(nullptr), -22);
    EXPECT_EQ(service.send_clien_data(nullptr), -22);
    EXPECT_EQ(service.update_service_path(nullptr), -22);
    EXPECT_EQ(touch_service::pollSensors_server(nullptr), -22);
}

// Another path takes effect at the next start; one that does not fit a
// socket address is refused and the path stays.
TEST_F(TouchService, UpdatedPathIsBoundAndSentTo) {
    touch_service service;
    std::string too_long(200, 'x');
    EXPECT_EQ(service.update_service_path(too_long.data()), -36);
    EXPECT_EQ(std::string(service.socket_path), root.path(kSocket));
    std::string other = root.path("/data/velmo/other");
    EXPECT_EQ(service.update_service_path(other.data()), 0);
    service.start_service();
    ASSERT_TRUE(wait_until([&] { return imu::test::is_socket(other); }));
    vl_touch_sensors_event tap{1, 1, {0, 0, 0, 0}};
    EXPECT_EQ(service.send_clien_data(&tap), 0);  // to itself
    EXPECT_EQ(reader.take(2 * kTapFrameEvents).size(), 2 * kTapFrameEvents);
    EXPECT_FALSE(imu::test::is_socket(root.path(kSocket)));
}

// Stopping, or destroying, the service while a gesture runs waits for the
// gesture and ends the thread; a restart rebinds and takes commands again.
TEST_F(TouchService, StopDuringAGestureEndsAfterItAndRestarts) {
    const int before = imu::test::thread_count();
    {
        touch_service service;
        service.start_service();
        ASSERT_TRUE(bound());
        ASSERT_TRUE(send(command_bytes(1, 3)));
        ASSERT_EQ(reader.take(kFrameEvents).size(), kFrameEvents);  // the pinch has begun
        service.stop_service();
        ASSERT_TRUE(logged("Server_end :0"));
        EXPECT_EQ(reader.take(200 * kFrameEvents).size(), 200 * kFrameEvents);

        service.start_service();
        ASSERT_TRUE(wait_until([&] { return send(command_bytes(1, 2)); }));
        EXPECT_EQ(reader.take(kFrameEvents).size(), kFrameEvents);
    }  // destroyed during the spread
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(log.count("daemond_data_service kill"), 1);
    EXPECT_EQ(log.count("Server_end :0"), 2);
}

}  // namespace
