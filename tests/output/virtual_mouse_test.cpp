// The virtual mouse device end to end: the library finds the stand-in node
// by name and writes struct input_event records into it.

#include "output/virtual_mouse.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imu/output.h"
#include "support/log_capture.h"
#include "support/output_event_reader.h"
#include "support/temp_root.h"

namespace {

using imu::test::EventReader;
using imu::test::InputEvent;
using imu::test::key;
using imu::test::LogCapture;
using imu::test::msc_scan;
using imu::test::rel;
using imu::test::syn;
using imu::test::TempRoot;

constexpr const char* kName = "VelmoVirtualMouse";

// A root with the mouse at /dev/input/event3 and a reader on it.
struct MouseFixture : testing::Test {
    TempRoot root;
    LogCapture log;
    EventReader reader{(root.make_input_device("event3", kName), root.path("/dev/input/event3"))};
};

bool logged_with_prefix(const LogCapture& log, const std::string& prefix) {
    const auto texts = log.texts();
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string& t) { return t.rfind(prefix, 0) == 0; });
}

struct Call {
    int dx;
    int dy;
    int keys;
};

struct SequenceCase {
    const char* name;
    std::vector<Call> calls;
    std::vector<InputEvent> expected;
};

class MouseSequence : public MouseFixture, public testing::WithParamInterface<SequenceCase> {};

TEST_P(MouseSequence, WritesExactlyTheseEvents) {
    const SequenceCase& c = GetParam();
    for (const Call& call : c.calls) {
        EXPECT_EQ(input_mouse_event(call.dx, call.dy, call.keys), 0);
    }
    EXPECT_EQ(reader.take(), c.expected);
}

const int kL = BTN_LEFT;
const int kR = BTN_RIGHT;

INSTANTIATE_TEST_SUITE_P(
    Cases, MouseSequence,
    testing::Values(
        SequenceCase{"NoMotionNoKeys", {{0, 0, 0x00}}, {}},
        SequenceCase{"Motion", {{5, -3, 0x00}}, {rel(REL_X, 5), rel(REL_Y, -3), syn()}},
        SequenceCase{"MotionOnOneAxis", {{0, 7, 0x00}}, {rel(REL_X, 0), rel(REL_Y, 7), syn()}},
        SequenceCase{"ButtonBitsIgnoredWithoutBit7", {{0, 0, 0x07}}, {}},
        SequenceCase{"LeftPressRelease",
                     {{0, 0, 0x81}, {0, 0, 0x81}, {0, 0, 0x80}, {0, 0, 0x80}},
                     {msc_scan(0x90001), key(kL, 1), syn(),  // press
                      msc_scan(0x90001), key(kL, 0), syn(), syn()}},
        SequenceCase{
            "RightPressRelease",
            {{0, 0, 0x82}, {0, 0, 0x80}},
            {msc_scan(0x90002), key(kR, 1), syn(), msc_scan(0x90002), key(kR, 0), syn(), syn()}},
        SequenceCase{
            "ReleaseNeedsBit7",
            {{0, 0, 0x81}, {0, 0, 0x00}, {0, 0, 0x80}},
            {msc_scan(0x90001), key(kL, 1), syn(), msc_scan(0x90001), key(kL, 0), syn(), syn()}},
        SequenceCase{"WheelHeldScrollsOnceUpThenOnceDown",
                     {{0, 0, 0x84}, {0, 0, 0x84}, {0, 0, 0x80}, {0, 0, 0x80}},
                     {msc_scan(0x90003), rel(REL_WHEEL, 1), syn(),  // press
                      msc_scan(0x90003), rel(REL_WHEEL, -1), syn(), syn()}},
        // The wheel is not held, so the call ends before its final report.
        SequenceCase{"BothButtonsEndEarly",
                     {{0, 0, 0x83}},
                     {msc_scan(0x90001), key(kL, 1), syn(), msc_scan(0x90002), key(kR, 1), syn()}},
        SequenceCase{"AllThreeAtOnce",
                     {{0, 0, 0x87}},
                     {msc_scan(0x90001), key(kL, 1), syn(), msc_scan(0x90002), key(kR, 1), syn(),
                      msc_scan(0x90003), rel(REL_WHEEL, 1), syn()}},
        SequenceCase{"MotionThenPress",
                     {{2, 3, 0x81}},
                     {rel(REL_X, 2), rel(REL_Y, 3), syn(), msc_scan(0x90001), key(kL, 1), syn()}}),
    [](const testing::TestParamInfo<SequenceCase>& info) { return std::string(info.param.name); });

TEST_F(MouseFixture, FirstCallOpensTheNodeByNameAndLogsIt) {
    root.make_input_device("event0", "SomeKeyboard");
    EventReader other(root.path("/dev/input/event0"));
    input_mouse_event(1, 1, 0);
    input_mouse_event(1, 1, 0);

    const imu::VirtualMouseState& s = imu::virtual_mouse_state();
    EXPECT_GE(s.fd, 0);
    EXPECT_TRUE(s.opened);
    EXPECT_EQ(std::string(s.device_path), root.path("/dev/input/event3"));
    EXPECT_EQ(log.count("Enter init_mouse_daemon\n"), 1);  // searched once
    EXPECT_EQ(log.count("Opened device [VelmoVirtualMouse], path is " +
                        root.path("/dev/input/event3") + ", fd is " + std::to_string(s.fd) + "\n"),
              1);
    EXPECT_TRUE(logged_with_prefix(log, "open mouse device " + root.path("/dev/input/event3")));
    EXPECT_EQ(reader.take().size(), 6U);
    EXPECT_GT(reader.last_seconds(), 1600000000);  // stamped with the time of day
    EXPECT_TRUE(other.take().empty());             // the other device was closed untouched
}

TEST_F(MouseFixture, SysfsDirectoryIsFoundByItsNameFile) {
    root.mkdir("/sys/class/input/input2");  // no name file: logged and skipped
    root.mkdir("/sys/class/input/input5");
    root.write("/sys/class/input/input5/name", "OtherDevice\n");
    root.mkdir("/sys/class/input/input7");
    root.write("/sys/class/input/input7/name", "VelmoVirtualMouse\r\n");
    ASSERT_EQ(imu::init_mouse_daemon(), 0);
    const std::string expected = root.path("/sys/class/input//input7/");
    EXPECT_EQ(std::string(imu::virtual_mouse_state().class_path), expected);
    EXPECT_EQ(
        log.count("get_mouse_class_path, classpath is " + expected + ", name is VelmoVirtualMouse"),
        1);
    EXPECT_EQ(log.count("File " + root.path("/sys/class/input//input2/name") + " open failed."), 1);
}

TEST_F(MouseFixture, WithoutSysfsEntryTheClassPathIsEmpty) {
    ASSERT_EQ(imu::init_mouse_daemon(), 0);
    EXPECT_STREQ(imu::virtual_mouse_state().class_path, "");
}

TEST_F(MouseFixture, UninitClosesAndLaterWritesFailWithoutReopening) {
    input_mouse_event(1, 2, 0);
    ASSERT_EQ(reader.take().size(), 3U);
    EXPECT_EQ(imu::uninit_mouse_daemon(), 0);
    EXPECT_EQ(log.count("Enter uninit_mouse_daemon.\n"), 1);
    EXPECT_EQ(imu::virtual_mouse_state().fd, -1);
    log.clear();
    EXPECT_EQ(input_mouse_event(1, 2, 0), 0);
    EXPECT_EQ(log.count("Enter init_mouse_daemon\n"), 0);
    EXPECT_EQ(log.count("write report_mouse_rel error: -1 Bad file descriptor\n"), 2);
    EXPECT_EQ(log.count("write report_mouse_sync error: -1 Bad file descriptor\n"), 1);
    EXPECT_TRUE(reader.take().empty());
}

TEST(VirtualMouse, WithoutTheDeviceTheSearchIsLoggedOnceAndWritesFail) {
    TempRoot root;
    root.make_input_device("event1", "NotTheMouse");
    LogCapture log;
    EXPECT_EQ(input_mouse_event(3, 4, 0x81), 0);
    EXPECT_EQ(log.count("Failed to open mouse: VelmoVirtualMouse\n"), 1);
    EXPECT_TRUE(logged_with_prefix(log, "open mouse device " + root.path("/dev/input/event1")));
    EXPECT_EQ(log.count("write report_mouse_msc error: -1 Bad file descriptor\n"), 1);
    EXPECT_EQ(log.count("write report_mouse_key error: -1 Bad file descriptor\n"), 1);
    EXPECT_EQ(input_mouse_event(3, 4, 0), 0);
    EXPECT_EQ(log.count("Enter init_mouse_daemon\n"), 1);   // not searched again
    EXPECT_EQ(imu::virtual_mouse_state().left_pressed, 1);  // the state machine still runs
}

TEST(VirtualMouse, MissingInputDirectoryIsLoggedAndNotSearched) {
    TempRoot root;
    root.remove("/dev/input");
    LogCapture log;
    EXPECT_EQ(imu::init_mouse_daemon(), -1);
    EXPECT_EQ(log.count("Directory " + root.path("/dev/input") + " open failed."), 1);
    EXPECT_EQ(log.count("Failed to open mouse: VelmoVirtualMouse\n"), 1);
    EXPECT_FALSE(logged_with_prefix(log, "open mouse device"));
}

TEST(VirtualMouse, NodeThatCannotBeOpenedIsLoggedAndSkipped) {
    TempRoot root;
    ::symlink("/nonexistent/velmo", root.path("/dev/input/event0").c_str());  // dangling
    root.make_input_device("event3", kName);
    LogCapture log;
    EXPECT_EQ(imu::init_mouse_daemon(), 0);
    EXPECT_EQ(log.count("Cannot open device " + root.path("/dev/input/event0") +
                        ": No such file or directory\n"),
              1);
}

TEST(VirtualMouse, WriterReportsAFailedWrite) {
    TempRoot root;
    LogCapture log;
    imu::virtual_mouse_state().fd = -1;
    EXPECT_EQ(imu::report_mouse_sync(), -1);
    EXPECT_EQ(imu::report_mouse_key(BTN_LEFT, 1), -1);
    EXPECT_EQ(imu::report_mouse_rel(REL_X, 1), -1);
    EXPECT_EQ(imu::report_mouse_msc(MSC_SCAN, 1), -1);
    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"write report_mouse_sync error: -1 Bad file descriptor\n",
                                        "write report_mouse_key error: -1 Bad file descriptor\n",
                                        "write report_mouse_rel error: -1 Bad file descriptor\n",
                                        "write report_mouse_msc error: -1 Bad file descriptor\n"}));
}

}  // namespace
