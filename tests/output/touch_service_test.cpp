// The virtual touch service: scaling to the device, the frames each gesture
// writes into the stand-in "VelmoVirtualTouch" node, and the commands sent
// to its socket.

#include "imu/touch_service.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/data_service_client.h"
#include "support/log_capture.h"
#include "support/output_event_reader.h"
#include "support/temp_root.h"

namespace {

using imu::test::Bytes;
using imu::test::InputEvent;
using imu::test::touch_frame;
using imu::test::wait_until;

constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr std::size_t kFrame = 13;  // events of a two-contact frame
constexpr std::size_t kTap = 14;    // events of a tap: one-contact frames down and up

std::vector<InputEvent> two(int down, int lx, int rx, int y) { return touch_frame(down, {{lx, y}, {rx, y}}); }
const std::vector<InputEvent> kRelease = two(0, 0, 0, 0);
std::vector<InputEvent> frame(const std::vector<InputEvent>& events, std::size_t i) {
    return {events.begin() + static_cast<std::ptrdiff_t>(i * kFrame),
            events.begin() + static_cast<std::ptrdiff_t>((i + 1) * kFrame)};
}
std::vector<InputEvent> tap(int x, int y) {
    auto out = touch_frame(1, {{x, y}});
    const auto up = touch_frame(0, {{x, y}});
    out.insert(out.end(), up.begin(), up.end());
    return out;
}
Bytes command(std::int32_t key_id, std::int32_t key_type) {
    return imu::test::bytes_of(vl_touch_sensors_event{key_id, key_type, {10, -20, 30, kIntMax}});
}

std::mutex g_mutex;
std::vector<Bytes> g_events;
void record_call(unsigned first, VLCONTROLLER_ID controller, const VLEvent& event) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_events.push_back(first == 0 && controller == VLCONTROLLER_ID_VELMO ? imu::test::bytes_of(event) : Bytes{});
}

// A root with the touch device at /dev/input/event5 and a reader on it.
struct Touch : testing::Test {
    bool bound() const {
        return wait_until([&] { return imu::test::is_socket(root.path("/data/velmo/touch_service")); });
    }
    bool send(const Bytes& b) const { return imu::test::send_datagram(root.path("/data/velmo/touch_service"), b); }

    imu::test::LogCapture log;
    imu::test::TempRoot root;
    imu::test::EventReader reader{
        (root.make_input_device("event5", "VelmoVirtualTouch"), root.path("/dev/input/event5"))};
};

// 1280 x 800 -> 1500 x 1000, truncated and held within the device, or 0
// whatever sizes a host puts into the public fields.
TEST_F(Touch, ConvertScalesTruncatesAndHolds) {
    touch_service s;
    const struct { int in, x, y; } cases[] = {
        {640, 750, 800}, {500, 585, 625}, {1, 1, 1}, {800, 937, 1000}, {1280, 1500, 1000},
        {2000, 1500, 1000}, {-5, 0, 0}, {kIntMax, 1500, 1000}, {kIntMin, 0, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(s.convert_x(c.in), c.x) << c.in;
        EXPECT_EQ(s.convert_y(c.in), c.y) << c.in;
    }
    s.input_width = 0.0F;
    EXPECT_EQ(s.convert_x(0), 0);
    EXPECT_EQ(s.convert_x(7), 1500);
    EXPECT_EQ(s.convert_x(-7), 0);
    s.input_width = 1280.0F;
    for (const float bad : {std::nanf(""), std::numeric_limits<float>::infinity(), -1500.0F}) {
        s.device_width = bad;
        EXPECT_EQ(s.convert_x(640), 0) << bad;
    }
    s.input_height = std::nanf("");
    EXPECT_EQ(s.convert_y(400), 0);
}

TEST_F(Touch, ConstructorOpensTheNamedNodeOrLogsItsAbsence) {
    root.make_input_device("event1", "Keyboard");
    root.mkdir("/sys/class/input/event5");  // not an "input" entry
    root.write("/sys/class/input/event5/name", "VelmoVirtualTouch\n");
    root.mkdir("/sys/class/input/input5");
    root.write("/sys/class/input/input5/name", "VelmoVirtualTouch\n");
    touch_service s;
    EXPECT_GE(s.touch.fd, 0);
    EXPECT_EQ(s.touch.device_path, root.path("/dev/input/event5"));
    EXPECT_EQ(s.touch.class_path, root.path("/sys/class/input/input5/"));
    EXPECT_EQ(log.count("get_class_path, classpath is " + root.path("/sys/class/input/input5/") +
                        ", name is VelmoVirtualTouch"), 1);
    root.remove("/dev/input/event5");  // without the node every write fails and is logged
    touch_service none;
    EXPECT_EQ(none.touch.fd, -1);
    EXPECT_EQ(log.count("Failed to open sensor: VelmoVirtualTouch\n"), 1);
    EXPECT_EQ(none.touch_point(10, 10, 0), 0);
    EXPECT_EQ(log.count("write error: -1 Bad file descriptor\n"), 14);
    EXPECT_EQ(touch_service::open_sensor(nullptr), -1);
    EXPECT_EQ(touch_service::pollSensors_server(nullptr), -22);
}

// The sysfs name file decides the class path (bad contents find nothing),
// and a buffer too small for a path finds nothing and is never overrun.
TEST_F(Touch, ClassPathFromNameFileAndBoundedBuffers) {
    const std::string long_name(5000, 'A');
    const struct { const char* content; bool found; } cases[] = {  // nullptr: no name file
        {"VelmoVirtualTouch\n", true}, {"VelmoVirtualTouch\r\n", true},
        {"VelmoVirtualTouch", false},  // the last byte read gives way to the terminator
        {nullptr, false}, {"", false}, {"\x01\xff\n", false}, {"VelmoVirtualTouchpad\n", false},
        {long_name.c_str(), false}};
    for (const auto& c : cases) {
        root.remove("/sys/class/input/input9");
        root.mkdir("/sys/class/input/input9");
        if (c.content != nullptr) root.write("/sys/class/input/input9/name", c.content);
        char out[4096] = "stale";
        EXPECT_EQ(touch_service::get_class_path(out, "VelmoVirtualTouch", sizeof out), c.found ? 0 : -1);
        EXPECT_EQ(std::string(out), c.found ? root.path("/sys/class/input/input9/") : "");
    }
    EXPECT_EQ(log.count("File " + root.path("/sys/class/input/input9/name") + " open failed."), 1);
    root.write("/sys/class/input/input9/name", "VelmoVirtualTouch\n");
    char path[8] = "keep";
    for (const int size : {-1, 0, 8}) {
        EXPECT_EQ(touch_service::open_input_device("VelmoVirtualTouch", O_RDWR, path, size), -1) << size;
        EXPECT_STREQ(path, "keep") << size;
        EXPECT_EQ(touch_service::get_class_path(path, "VelmoVirtualTouch", size), -1) << size;
    }
    EXPECT_STREQ(path, "");  // cleared rather than cut
    root.remove("/sys/class/input");
    EXPECT_EQ(touch_service::get_class_path(path, "VelmoVirtualTouch", sizeof path), -1);
    EXPECT_EQ(touch_service::chomp(nullptr, 2), -1);
    EXPECT_EQ(touch_service::chomp(path, -1), -1);
}

// Each gesture writes its frames (device coordinates) and the release.
TEST_F(Touch, GesturesWriteTheirFramesThenTheRelease) {
    const struct {
        std::function<void(touch_service&)> run;
        std::vector<std::vector<int>> frames;  // left x, right x, y
    } cases[] = {
        {[](touch_service& s) { s.narrow(2, 8, 5); },  // stops at the centre
         {{1, 7, 10}, {2, 5, 10}, {2, 4, 10}, {2, 3, 10}, {2, 2, 10}}},
        {[](touch_service& s) { s.enlarge(5, 16, 3); }, {{0, 18, 20}, {0, 19, 20}, {0, 21, 20}}},
        {[](touch_service& s) { s.enlarge(5, 16, 0); }, {}},
        {[](touch_service& s) { s.narrow(5, 16, -3); }, {}},
        {[](touch_service& s) { s.enlarge(kIntMax, 0, 2); }, {{1500, 1500, 0}, {1500, 1500, 0}}},
        {[](touch_service& s) { s.narrow(kIntMax, 0, 2); }, {{1500, 1498, 0}, {1500, 1497, 0}}},
        {[](touch_service& s) { s.narrow(kIntMin, 0, 2); }, {{1, 0, 0}, {2, 0, 0}}}};
    touch_service s;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        cases[i].run(s);
        std::vector<InputEvent> expected;
        for (const auto& f : cases[i].frames) {
            const auto e = two(1, f[0], f[1], f[2]);
            expected.insert(expected.end(), e.begin(), e.end());
        }
        expected.insert(expected.end(), kRelease.begin(), kRelease.end());
        EXPECT_EQ(reader.take(), expected) << "case " << i;
    }
    // The right finger starts at the input width, not at 1200 + 200.
    s.narrow(1200, 40, 200);
    const auto got = reader.take();
    ASSERT_EQ(got.size(), 201 * kFrame);
    EXPECT_EQ(frame(got, 0), two(1, 1173, 1498, 50));
    EXPECT_EQ(frame(got, 79), two(1, 1265, 1406, 50));
    EXPECT_EQ(frame(got, 199), two(1, 1406, 1406, 50));
    // A multi-point frame writes down as given; only 0 zeroes the positions.
    for (const int down : {1, 3, 0}) EXPECT_EQ(s.touch_muti_point(1280, 800, -4, 400, down, 0), 0);
    std::vector<InputEvent> expected = touch_frame(1, {{1500, 1000}, {0, 500}});
    const auto three = touch_frame(3, {{1500, 1000}, {0, 500}});
    expected.insert(expected.end(), three.begin(), three.end());
    expected.insert(expected.end(), kRelease.begin(), kRelease.end());
    EXPECT_EQ(reader.take(), expected);
    EXPECT_EQ(s.touch_point(1280, -3, 30), 0);
    EXPECT_EQ(reader.take(), tap(1500, 0));
    EXPECT_GE(reader.times()[7] - reader.times()[6], 30000);
}

// Command (1, 1), sent by another object: the tap at device (585, 625)
// with 100 ms between down and up. (1, 2) spreads from (200, 200), (1, 3)
// pinches from (600, 600): 200 frames at least 2 ms apart, then the release.
// Unknown commands and short datagrams are only logged.
TEST_F(Touch, CommandsWriteTheirGestures) {
    touch_service service;
    service.start_service();
    ASSERT_TRUE(bound());
    vl_touch_sensors_event cmd{1, 1, {0, 0, 0, 0}};
    EXPECT_EQ(touch_service().send_clien_data(&cmd), 0);
    EXPECT_EQ(reader.take(kTap), tap(585, 625));
    EXPECT_GE(reader.times()[7] - reader.times()[6], 100000);
    EXPECT_EQ(log.count("key_id=1 key_type=1"), 1);
    vl_touch_sensors_event last{};
    EXPECT_EQ(service.get_data(&last), 0);
    EXPECT_EQ(last.key_type, 1);
    const struct { int type, y, first_l, first_r, last_l, last_r; } cases[] = {
        {2, 250, 221, 247, 0, 480}, {3, 750, 469, 936, 703, 703}};
    for (const auto& c : cases) {
        ASSERT_TRUE(send(command(1, c.type)));
        const auto got = reader.take(201 * kFrame);
        ASSERT_EQ(got.size(), 201 * kFrame) << c.type;
        EXPECT_EQ(frame(got, 0), two(1, c.first_l, c.first_r, c.y));
        EXPECT_EQ(frame(got, 199), two(1, c.last_l, c.last_r, c.y));
        EXPECT_EQ(frame(got, 200), kRelease);
        EXPECT_GE(reader.times().back() - reader.times().front(), 200 * 2000);
    }
    for (const Bytes& b : {command(2, 1), command(1, 4), Bytes{7, 0, 0, 0}, Bytes{}}) ASSERT_TRUE(send(b));
    ASSERT_TRUE(send(command(1, 1)));
    EXPECT_EQ(reader.take(kTap).size(), kTap);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.take().empty());
    EXPECT_EQ(log.count("key_id=2 key_type=1"), 1);
    EXPECT_EQ(log.count("key_id=1 key_type=4"), 1);
    EXPECT_EQ(log.count("key_id=7 key_type=4"), 2);
}

// With a callback registered, a command goes to it as a VLEvent of type 2
// and nothing is written to the device.
TEST_F(Touch, CallbackTakesCommandsInsteadOfGestures) {
    touch_service service;
    EXPECT_EQ(service.Init(nullptr), -22);
    EXPECT_EQ(service.Init(record_call), 0);
    EXPECT_FALSE(service.running.load());  // Init does not start the service
    service.start_service();
    ASSERT_TRUE(bound());
    ASSERT_TRUE(send(command(1, 1)));
    ASSERT_TRUE(wait_until([] { const std::lock_guard<std::mutex> l(g_mutex); return !g_events.empty(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // longer than a tap
    EXPECT_TRUE(reader.take().empty());
    Bytes expected(sizeof(VLEvent), 0);
    expected[0] = 2;
    const Bytes record = command(1, 1);
    std::copy(record.begin(), record.end(), expected.begin() + 16);
    const std::lock_guard<std::mutex> lock(g_mutex);
    EXPECT_EQ(g_events, std::vector<Bytes>{expected});
}

// Stopping or destroying the service during a gesture lets the gesture end;
// a restart takes commands again, on the path set meanwhile.
TEST_F(Touch, StopDuringAGestureEndsAfterItAndRestarts) {
    const int before = imu::test::thread_count();
    {
        touch_service service;
        service.start_service();
        ASSERT_TRUE(bound());
        ASSERT_TRUE(send(command(1, 3)));
        ASSERT_EQ(reader.take(kFrame).size(), kFrame);  // the pinch has begun
        service.stop_service();
        ASSERT_TRUE(wait_until([&] { return log.count("Server_end :0") == 1; }));
        EXPECT_EQ(reader.take(200 * kFrame).size(), 200 * kFrame);
        std::string other = root.path("/data/velmo/other");
        std::string too_long(200, 'x');
        EXPECT_EQ(service.update_service_path(too_long.data()), -36);
        EXPECT_EQ(service.update_service_path(other.data()), 0);
        service.start_service();
        ASSERT_TRUE(wait_until([&] { return imu::test::send_datagram(other, command(1, 2)); }));
        EXPECT_EQ(reader.take(kFrame).size(), kFrame);
    }  // destroyed during the spread
    EXPECT_EQ(imu::test::thread_count(), before);
    EXPECT_EQ(log.count("Server_end :0"), 2);
}

}  // namespace
