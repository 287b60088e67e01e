// The virtual mouse device end to end through the stand-in /dev/input, and
// the device scan it shares with the touch service.

#include "output/virtual_mouse.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "imu/output.h"
#include "output/input_device_scan.h"
#include "support/log_capture.h"
#include "support/output_event_reader.h"
#include "support/temp_root.h"

namespace {

using imu::test::InputEvent;
using imu::test::key;
using imu::test::msc_scan;
using imu::test::rel;
using imu::test::syn;

struct MouseFixture : testing::Test {
    imu::test::TempRoot root;
    imu::test::LogCapture log;
    imu::test::EventReader reader{
        (root.make_input_device("event3", "VelmoVirtualMouse"), root.path("/dev/input/event3"))};
};

struct SequenceCase {
    const char* name;
    std::vector<int> keys;  // one call each; the first also moves by (2, -3)
    std::vector<InputEvent> expected;
};

class MouseSequence : public MouseFixture, public testing::WithParamInterface<SequenceCase> {};

TEST_P(MouseSequence, WritesExactlyTheseEvents) {
    bool first = true;
    for (const int keys : GetParam().keys) {
        EXPECT_EQ(input_mouse_event(first ? 2 : 0, first ? -3 : 0, keys), 0);
        first = false;
    }
    EXPECT_EQ(reader.take(), GetParam().expected);
}

const InputEvent kMove[] = {rel(REL_X, 2), rel(REL_Y, -3), syn()};
std::vector<InputEvent> moved(std::vector<InputEvent> then) {
    then.insert(then.begin(), std::begin(kMove), std::end(kMove));
    return then;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MouseSequence,
    testing::Values(
        SequenceCase{"Motion", {0x00}, moved({})},
        SequenceCase{"ButtonBitsNeedBit7", {0x07}, moved({})},
        SequenceCase{"LeftPressRelease", {0x81, 0x81, 0x00, 0x80, 0x80},
                     moved({msc_scan(0x90001), key(BTN_LEFT, 1), syn(), msc_scan(0x90001),
                            key(BTN_LEFT, 0), syn(), syn()})},
        SequenceCase{"RightPressRelease", {0x82, 0x80},
                     moved({msc_scan(0x90002), key(BTN_RIGHT, 1), syn(), msc_scan(0x90002),
                            key(BTN_RIGHT, 0), syn(), syn()})},
        SequenceCase{"WheelScrollsOnceUpThenOnceDown", {0x84, 0x84, 0x80, 0x80},
                     moved({msc_scan(0x90003), rel(REL_WHEEL, 1), syn(), msc_scan(0x90003),
                            rel(REL_WHEEL, -1), syn(), syn()})},
        SequenceCase{"BothButtonsEndEarly", {0x83},
                     moved({msc_scan(0x90001), key(BTN_LEFT, 1), syn(), msc_scan(0x90002),
                            key(BTN_RIGHT, 1), syn()})}),
    [](const auto& info) { return std::string(info.param.name); });

// The first call opens the node by name, once; after uninit_mouse_daemon
// writes fail without a new search.
TEST_F(MouseFixture, FirstCallOpensTheNodeByNameOnceUntilUninit) {
    root.make_input_device("event0", "SomeKeyboard");
    root.mkdir("/sys/class/input/input7");
    root.write("/sys/class/input/input7/name", "VelmoVirtualMouse\r\n");
    imu::test::EventReader other(root.path("/dev/input/event0"));
    input_mouse_event(1, 1, 0);
    input_mouse_event(1, 1, 0);
    const imu::VirtualMouseState& s = imu::virtual_mouse_state();
    EXPECT_EQ(std::string(s.device_path), root.path("/dev/input/event3"));
    EXPECT_EQ(std::string(s.class_path), root.path("/sys/class/input//input7/"));
    EXPECT_EQ(log.count("Opened device [VelmoVirtualMouse], path is " +
                        root.path("/dev/input/event3") + ", fd is " + std::to_string(s.fd) + "\n"),
              1);
    EXPECT_EQ(reader.take().size(), 6U);
    EXPECT_GT(reader.times().back(), 1600000000LL * 1000000);  // time of day
    EXPECT_TRUE(other.take().empty());
    EXPECT_EQ(imu::uninit_mouse_daemon(), 0);
    EXPECT_EQ(s.fd, -1);
    EXPECT_EQ(input_mouse_event(1, 2, 0), 0);
    EXPECT_EQ(log.count("Enter init_mouse_daemon\n"), 1);
    EXPECT_EQ(log.count("write report_mouse_rel error: -1 Bad file descriptor\n"), 2);
    EXPECT_EQ(log.count("write report_mouse_sync error: -1 Bad file descriptor\n"), 1);
    EXPECT_TRUE(reader.take().empty());
}

TEST(VirtualMouse, WithoutTheDeviceTheSearchIsLoggedOnceAndWritesFail) {
    imu::test::TempRoot root;
    root.make_input_device("event1", "NotTheMouse");
    ::symlink("/nonexistent/velmo", root.path("/dev/input/event0").c_str());  // dangling
    imu::test::LogCapture log;
    EXPECT_EQ(input_mouse_event(3, 4, 0x81), 0);
    EXPECT_EQ(input_mouse_event(3, 4, 0), 0);
    EXPECT_EQ(log.count("Enter init_mouse_daemon\n"), 1);
    EXPECT_EQ(log.count("Failed to open mouse: VelmoVirtualMouse\n"), 1);
    EXPECT_EQ(log.count("Cannot open device " + root.path("/dev/input/event0") +
                        ": No such file or directory\n"), 1);
    EXPECT_EQ(log.count("write report_mouse_msc error: -1 Bad file descriptor\n"), 1);
    EXPECT_EQ(log.count("write report_mouse_key error: -1 Bad file descriptor\n"), 1);
    EXPECT_EQ(imu::virtual_mouse_state().left_pressed, 1);  // the state machine still runs
}

TEST(VirtualMouse, MissingInputDirectoryIsLogged) {
    imu::test::TempRoot root;
    root.remove("/dev/input");
    imu::test::LogCapture log;
    EXPECT_EQ(imu::init_mouse_daemon(), -1);
    EXPECT_EQ(log.count("Directory " + root.path("/dev/input") + " open failed."), 1);
}

// The scan takes only an exact name (small buffers: see the touch tests).
TEST(InputDeviceScan, FindsOnlyTheExactNameWithinTheBuffer) {
    imu::test::TempRoot root;
    root.make_input_device("event0", "VelmoVirtualMouse2");
    char full[4096] = "";
    EXPECT_EQ(imu::open_input_device("VelmoVirtualMouse", O_RDWR, full, sizeof full), -1);
    EXPECT_EQ(imu::open_input_device(nullptr, O_RDWR, full, sizeof full), -1);
    root.make_input_device("event4", "VelmoVirtualMouse");
    const int fd = imu::open_input_device("VelmoVirtualMouse", O_RDWR, full, sizeof full);
    EXPECT_EQ(std::string(full), root.path("/dev/input/event4"));
    const int r = ::open(full, O_RDONLY | O_NONBLOCK);
    char c = 0;
    EXPECT_EQ(::write(fd, "x", 1), 1);  // the descriptor is the node's
    EXPECT_EQ(::read(r, &c, 1), 1);
    ::close(r);
    ::close(fd);
}

}  // namespace
