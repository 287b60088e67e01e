// The touch service's device side: finding "VelmoVirtualTouch", scaling
// gesture coordinates to the device, and the frames each gesture writes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "imu/touch_service.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/touch_frames.h"

namespace {

using imu::test::Contact;
using imu::test::InputEvent;
using imu::test::one_contact_frame;
using imu::test::StampedReader;
using imu::test::two_contact_frame;

constexpr const char* kName = "VelmoVirtualTouch";
constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr int kIntMin = std::numeric_limits<int>::min();

// A root with the touch device at /dev/input/event5 and a reader on it.
struct TouchDevice : testing::Test {
    imu::test::LogCapture log;
    imu::test::TempRoot root;
    StampedReader reader{(root.make_input_device("event5", kName), root.path("/dev/input/event5"))};

    // The sysfs name file of input entry.
    void write_name_file(const std::string& entry, const std::string& content) const {
        root.mkdir("/sys/class/input/" + entry);
        root.write("/sys/class/input/" + entry + "/name", content);
    }
};

// ---- coordinates ---------------------------------------------------------

struct ConvertCase {
    const char* what;
    bool x_axis;
    int in;
    int out;
};

void PrintTo(const ConvertCase& c, std::ostream* os) { *os << c.what; }

class TouchConvert : public TouchDevice, public testing::WithParamInterface<ConvertCase> {};

// 1280 x 800 -> 1500 x 1000, truncated, held within the device.
TEST_P(TouchConvert, ScalesTruncatesAndHolds) {
    const ConvertCase& c = GetParam();
    touch_service s;
    EXPECT_EQ(c.x_axis ? s.convert_x(c.in) : s.convert_y(c.in), c.out) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TouchConvert,
    testing::Values(
        ConvertCase{"x centre", true, 640, 750}, ConvertCase{"x tap", true, 500, 585},
        ConvertCase{"x edge", true, 1280, 1500}, ConvertCase{"x below", true, -5, 0},
        ConvertCase{"x beyond", true, 2000, 1500}, ConvertCase{"x int max", true, kIntMax, 1500},
        ConvertCase{"x int min", true, kIntMin, 0}, ConvertCase{"x truncates 1.17", true, 1, 1},
        ConvertCase{"y centre", false, 400, 500}, ConvertCase{"y tap", false, 500, 625},
        ConvertCase{"y edge", false, 800, 1000}, ConvertCase{"y beyond", false, 801, 1000},
        ConvertCase{"y below", false, -1, 0}),
    [](const auto& info) {
        std::string n = info.param.what;
        for (char& ch : n) {
            ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
        }
        return n;
    });

// The sizes are public fields: whatever a host puts there, the result is a
// device coordinate within [0, device size], or 0.
TEST_F(TouchDevice, DegenerateSizesGiveADefinedCoordinate) {
    touch_service s;
    s.input_width = 0.0F;
    EXPECT_EQ(s.convert_x(0), 0);     // 0 * inf
    EXPECT_EQ(s.convert_x(7), 1500);  // inf, held at the edge
    EXPECT_EQ(s.convert_x(-7), 0);
    s.input_width = 1280.0F;
    s.device_width = std::nanf("");
    EXPECT_EQ(s.convert_x(640), 0);
    s.device_width = std::numeric_limits<float>::infinity();
    EXPECT_EQ(s.convert_x(640), 0);
    s.device_width = -1500.0F;
    EXPECT_EQ(s.convert_x(640), 0);
    s.input_height = std::nanf("");
    EXPECT_EQ(s.convert_y(400), 0);
}

// ---- chomp -----------------------------------------------------------------

TEST(TouchChomp, StripsOnlyTrailingLineEnds) {
    struct Case {
        const char* in;
        int length;
        const char* out;
    };
    const Case cases[] = {
        {"Velmo\r\n", 7, "Velmo"}, {"Velmo\n\n\r", 8, "Velmo"}, {"a\nb", 3, "a\nb"},
        {"\n\r\n", 3, ""},         {"Velmo\n", 0, "Velmo\n"},   {"Velmo\n", 5, "Velmo\n"},
    };
    for (const Case& c : cases) {
        char buf[16] = {};
        std::strncpy(buf, c.in, sizeof buf - 1);
        EXPECT_EQ(touch_service::chomp(buf, c.length), 0) << c.in;
        EXPECT_STREQ(buf, c.out) << c.in;
    }
    char buf[] = "x\n";
    EXPECT_EQ(touch_service::chomp(nullptr, 2), -1);
    EXPECT_EQ(touch_service::chomp(buf, -1), -1);
    EXPECT_STREQ(buf, "x\n");
}

// ---- the device --------------------------------------------------------------

TEST_F(TouchDevice, ConstructorOpensTheNamedNodeAndItsClassPath) {
    root.make_input_device("event1", "Keyboard");
    write_name_file("input2", "Keyboard\n");
    write_name_file("input5", "VelmoVirtualTouch\n");
    touch_service s;
    EXPECT_STREQ(s.touch.name, kName);
    EXPECT_GE(s.touch.fd, 0);
    EXPECT_EQ(s.touch.device_path, root.path("/dev/input/event5"));
    EXPECT_EQ(s.touch.class_path, root.path("/sys/class/input/input5/"));
    EXPECT_EQ(log.count("get_class_path, classpath is " + root.path("/sys/class/input/input5/") +
                        ", name is VelmoVirtualTouch"),
              1);
    EXPECT_EQ(log.count("Failed to open sensor: VelmoVirtualTouch\n"), 0);
}

TEST(TouchNoDevice, EveryWriteFailsAndIsLogged) {
    imu::test::LogCapture log;
    imu::test::TempRoot root;
    root.make_input_device("event1", "VelmoVirtualMouse");
    touch_service s;
    EXPECT_EQ(s.touch.fd, -1);
    EXPECT_STREQ(s.touch.class_path, "");
    EXPECT_EQ(log.count("Failed to open sensor: VelmoVirtualTouch\n"), 1);
    EXPECT_EQ(s.touch_point(10, 10, 0), 0);
    EXPECT_EQ(s.report_sync(), -1);
    EXPECT_EQ(log.count("write error: -1 Bad file descriptor\n"), 15);
    touch_sensor_fd dev{};
    dev.name = kName;
    EXPECT_EQ(touch_service::open_sensor(&dev), -1);
    EXPECT_EQ(touch_service::open_sensor(nullptr), -1);
}

// The sysfs name file decides the class path: read up to 255 bytes, the
// last byte read dropped, trailing line ends removed.
TEST_F(TouchDevice, ClassPathFromNameFileContents) {
    struct Case {
        const char* what;
        const char* content;  // nullptr: no name file
        bool found;
    };
    const Case cases[] = {
        {"newline", "VelmoVirtualTouch\n", true},
        {"crlf", "VelmoVirtualTouch\r\n", true},
        {"no newline: last byte dropped", "VelmoVirtualTouch", false},
        {"missing", nullptr, false},
        {"empty", "", false},
        {"garbage", "\x01\xff\n", false},
        {"longer name", "VelmoVirtualTouchpad\n", false},
    };
    for (const Case& c : cases) {
        root.remove("/sys/class/input/input9");
        root.mkdir("/sys/class/input/input9");
        if (c.content != nullptr) {
            write_name_file("input9", c.content);
        }
        char class_path[4096] = "stale";
        EXPECT_EQ(touch_service::get_class_path(class_path, kName, sizeof class_path),
                  c.found ? 0 : -1)
            << c.what;
        EXPECT_EQ(std::string(class_path),
                  c.found ? root.path("/sys/class/input/input9/") : std::string())
            << c.what;
    }
    EXPECT_EQ(log.count("File " + root.path("/sys/class/input/input9/name") + " open failed."), 1);
}

// Path buffers are bounded: a size that cannot hold the path finds nothing
// and writes nothing beyond it.
TEST_F(TouchDevice, SmallOrNegativeBuffersAreNeverOverrun) {
    write_name_file("input5", "VelmoVirtualTouch\n");
    char path[8] = "keep";
    for (const int size : {-1, 0, 8}) {
        EXPECT_EQ(touch_service::open_input_device(kName, O_RDWR, path, size), -1) << size;
        EXPECT_STREQ(path, "keep") << size;
        EXPECT_EQ(touch_service::get_class_path(path, kName, size), -1) << size;
    }
    EXPECT_STREQ(path, "");  // size 8 clears the class path rather than cutting it
    char full[4096];
    const int fd = touch_service::open_input_device(kName, O_RDWR, full, sizeof full);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(full, root.path("/dev/input/event5"));
    ::close(fd);
}

// ---- gestures ------------------------------------------------------------------

struct Frame {
    Contact left;
    Contact right;
};

std::vector<InputEvent> frames_then_release(const std::vector<Frame>& frames) {
    std::vector<InputEvent> out;
    for (const Frame& f : frames) {
        const auto e = two_contact_frame(1, f.left, f.right);
        out.insert(out.end(), e.begin(), e.end());
    }
    const auto release = two_contact_frame(0, {0, 0}, {0, 0});
    out.insert(out.end(), release.begin(), release.end());
    return out;
}

struct GestureCase {
    const char* what;
    std::function<void(touch_service&)> run;
    std::vector<Frame> frames;  // device coordinates, before the release frame
};

void PrintTo(const GestureCase& c, std::ostream* os) { *os << c.what; }

class TouchGesture : public TouchDevice, public testing::WithParamInterface<GestureCase> {};

TEST_P(TouchGesture, WritesTheseFramesThenTheRelease) {
    const GestureCase& c = GetParam();
    touch_service s;
    c.run(s);
    const auto expected = frames_then_release(c.frames);
    const auto got = imu::test::events_of(reader.take());
    EXPECT_EQ(got, expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Cases, TouchGesture,
                         testing::Values(
                             // left = max(2 - 5, 0) = 0 and right = 7 close in and stop at 2.
                             GestureCase{"narrow stops at the centre",
                                         [](touch_service& s) { s.narrow(2, 8, 5); },
                                         {{{1, 10}, {7, 10}},
                                          {{2, 10}, {5, 10}},
                                          {{2, 10}, {4, 10}},
                                          {{2, 10}, {3, 10}},
                                          {{2, 10}, {2, 10}}}},
                             // left -6, -7, -8 stick to 0; right 16, 17, 18.
                             GestureCase{
                                 "enlarge below zero sticks to the edge",
                                 [](touch_service& s) { s.enlarge(5, 16, 3); },
                                 {{{0, 20}, {18, 20}}, {{0, 20}, {19, 20}}, {{0, 20}, {21, 20}}}},
                             GestureCase{"enlarge without steps releases only",
                                         [](touch_service& s) { s.enlarge(5, 16, 0); },
                                         {}},
                             GestureCase{"narrow with negative steps releases only",
                                         [](touch_service& s) { s.narrow(5, 16, -3); },
                                         {}},
                             // Coordinates at the int limits saturate instead of overflowing.
                             GestureCase{"enlarge at int max",
                                         [](touch_service& s) { s.enlarge(kIntMax, 0, 2); },
                                         {{{1500, 0}, {1500, 0}}, {{1500, 0}, {1500, 0}}}},
                             GestureCase{"narrow at int max starts right at the input width",
                                         [](touch_service& s) { s.narrow(kIntMax, 0, 2); },
                                         {{{1500, 0}, {1498, 0}}, {{1500, 0}, {1497, 0}}}},
                             GestureCase{"narrow at int min",
                                         [](touch_service& s) { s.narrow(kIntMin, 0, 2); },
                                         {{{1, 0}, {0, 0}}, {{2, 0}, {0, 0}}}}),
                         [](const auto& info) { return "case" + std::to_string(info.index); });

// One frame, no release; the down value is written as given, and only 0
// zeroes the positions.
TEST_F(TouchDevice, MultiPointFrameWritesDownAsGiven) {
    touch_service s;
    EXPECT_EQ(s.touch_muti_point(1280, 800, -4, 400, 1, 0), 0);
    EXPECT_EQ(s.touch_muti_point(1280, 800, -4, 400, 3, -5), 0);
    EXPECT_EQ(s.touch_muti_point(1280, 800, -4, 400, 0, 0), 0);
    auto expected = two_contact_frame(1, {1500, 1000}, {0, 500});
    for (const auto& f :
         {two_contact_frame(3, {1500, 1000}, {0, 500}), two_contact_frame(0, {0, 0}, {0, 0})}) {
        expected.insert(expected.end(), f.begin(), f.end());
    }
    EXPECT_EQ(imu::test::events_of(reader.take()), expected);
}

// The right finger starts at the input width (1280), not at 1200 + 200,
// and reaches the centre after 80 frames; the left one after 200.
TEST_F(TouchDevice, NarrowNearTheEdgeStartsAtTheInputWidth) {
    touch_service s;
    s.narrow(1200, 40, 200);
    const auto frames = imu::test::frames_of(imu::test::events_of(reader.take()));
    ASSERT_EQ(frames.size(), 201U);
    EXPECT_EQ(frames[0], two_contact_frame(1, {1173, 50}, {1498, 50}));    // 1001, 1279
    EXPECT_EQ(frames[78], two_contact_frame(1, {1264, 50}, {1407, 50}));   // 1079, 1201
    EXPECT_EQ(frames[79], two_contact_frame(1, {1265, 50}, {1406, 50}));   // 1080, 1200
    EXPECT_EQ(frames[199], two_contact_frame(1, {1406, 50}, {1406, 50}));  // 1200, 1200
    EXPECT_EQ(frames[200], two_contact_frame(0, {0, 0}, {0, 0}));
}

// A tap is one contact down, the hold, the same contact up.
TEST_F(TouchDevice, TouchPointHoldsBetweenDownAndUp) {
    touch_service s;
    EXPECT_EQ(s.touch_point(1280, -3, 30), 0);
    const auto got = reader.take();
    ASSERT_EQ(got.size(), 2 * imu::test::kTapFrameEvents);
    auto expected = one_contact_frame(1, {1500, 0});
    const auto up = one_contact_frame(0, {1500, 0});
    expected.insert(expected.end(), up.begin(), up.end());
    EXPECT_EQ(imu::test::events_of(got), expected);
    EXPECT_GE(got[7].time_us - got[6].time_us, 30000);
}

}  // namespace
