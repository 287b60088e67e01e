// The scan of /dev/input by device name and the sysfs lookup, shared by
// the virtual mouse and the virtual touch service.

#include "output/input_device_scan.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::LogCapture;
using imu::test::TempRoot;

TEST(InputDeviceScan, FindsTheNamedNodeAmongOthers) {
    TempRoot root;
    root.make_input_device("event0", "Keyboard");
    root.make_input_device("event4", "VelmoVirtualTouch");
    root.make_input_device("event9", "Touchpad");
    char path[4096] = "untouched";
    bool dir_opened = false;
    const int fd =
        imu::open_input_device("VelmoVirtualTouch", O_RDWR, path, sizeof path, &dir_opened);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(dir_opened);
    EXPECT_EQ(std::string(path), root.path("/dev/input/event4"));
    // The descriptor is the node's: what is written comes out of the FIFO.
    const int r = ::open(path, O_RDONLY | O_NONBLOCK);
    ASSERT_EQ(::write(fd, "x", 1), 1);
    char c = 0;
    EXPECT_EQ(::read(r, &c, 1), 1);
    ::close(r);
    ::close(fd);
}

TEST(InputDeviceScan, NoMatchGivesMinusOneAndTheLastPathTried) {
    TempRoot root;
    root.make_input_device("event0", "Keyboard");
    char path[4096] = "";
    EXPECT_EQ(imu::open_input_device("VelmoVirtualTouch", O_RDWR, path, sizeof path), -1);
    EXPECT_EQ(std::string(path), root.path("/dev/input/event0"));
}

TEST(InputDeviceScan, EmptyDirectoryLeavesThePathAsItWas) {
    TempRoot root;
    char path[16] = "as it was";
    EXPECT_EQ(imu::open_input_device("VelmoVirtualMouse", O_RDWR, path, sizeof path), -1);
    EXPECT_STREQ(path, "as it was");
}

TEST(InputDeviceScan, PathThatDoesNotFitIsSkippedNotCut) {
    TempRoot root;
    root.make_input_device("event3", "VelmoVirtualMouse");
    char path[8] = "short";
    EXPECT_EQ(imu::open_input_device("VelmoVirtualMouse", O_RDWR, path, sizeof path), -1);
    EXPECT_STREQ(path, "short");
}

TEST(InputDeviceScan, NamePrefixIsNotAMatch) {
    TempRoot root;
    root.make_input_device("event3", "VelmoVirtualMouse2");
    char path[4096];
    EXPECT_EQ(imu::open_input_device("VelmoVirtualMouse", O_RDWR, path, sizeof path), -1);
}

TEST(InputDeviceScan, NullNameFindsNothing) {
    TempRoot root;
    char path[4096];
    bool dir_opened = true;
    EXPECT_EQ(imu::open_input_device(nullptr, O_RDWR, path, sizeof path, &dir_opened), -1);
    EXPECT_FALSE(dir_opened);
}

TEST(InputClassPath, WithoutSlashDirectoryUsesASingleSlash) {
    TempRoot root;
    root.mkdir("/sys/class/input/input3");
    root.write("/sys/class/input/input3/name", "VelmoVirtualTouch\n");
    root.mkdir("/sys/class/input/event3");  // not an "input" entry
    root.write("/sys/class/input/event3/name", "VelmoVirtualTouch\n");
    LogCapture log;
    char out[4096];
    EXPECT_EQ(imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput,
                                         "VelmoVirtualTouch", out, sizeof out, "get_class_path"),
              0);
    EXPECT_EQ(std::string(out), root.path("/sys/class/input/input3/"));
    EXPECT_EQ(log.count("get_class_path, classpath is " + root.path("/sys/class/input/input3/") +
                        ", name is VelmoVirtualTouch"),
              1);
}

TEST(InputClassPath, NameFileContentsDecideTheMatch) {
    struct Case {
        const char* content;
        int result;
    };
    // The last byte read gives way to the terminator, so a name without
    // its newline loses its last letter.
    const Case cases[] = {{"VelmoVirtualTouch\n", 0},
                          {"VelmoVirtualTouch\n\n\r", 0},
                          {"VelmoVirtualTouch", -1},
                          {"", -1},
                          {"\n", -1}};
    for (const Case& c : cases) {
        TempRoot root;
        root.mkdir("/sys/class/input/input1");
        root.write("/sys/class/input/input1/name", c.content);
        char out[4096] = "stale";
        EXPECT_EQ(imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput,
                                             "VelmoVirtualTouch", out, sizeof out, "x"),
                  c.result)
            << '"' << c.content << '"';
        if (c.result != 0) {
            EXPECT_STREQ(out, "");
        }
    }
}

TEST(InputClassPath, LongNameFileIsCutAtTheBuffer) {
    TempRoot root;
    root.mkdir("/sys/class/input/input1");
    root.write("/sys/class/input/input1/name", std::string(5000, 'A'));
    char out[4096];
    EXPECT_EQ(imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput,
                                         std::string(254, 'A').c_str(), out, sizeof out, "x"),
              0);
}

TEST(InputClassPath, MissingDirectoryAndSmallBuffer) {
    TempRoot root;
    root.mkdir("/sys/class/input/input1");
    root.write("/sys/class/input/input1/name", "VelmoVirtualTouch\n");
    char tiny[8] = "stale";
    EXPECT_EQ(imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput,
                                         "VelmoVirtualTouch", tiny, sizeof tiny, "x"),
              -1);
    EXPECT_STREQ(tiny, "");
    root.remove("/sys/class/input");
    LogCapture log;
    char out[4096];
    EXPECT_EQ(imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput,
                                         "VelmoVirtualTouch", out, sizeof out, "x"),
              -1);
    EXPECT_EQ(log.count("Directory " + root.path("/sys/class/input") + " open failed."), 1);
}

TEST(Chomp, StripsTrailingLineEndsOnly) {
    char s[] = "name\r\n\n";
    EXPECT_EQ(imu::chomp(s, static_cast<int>(std::strlen(s))), 0);
    EXPECT_STREQ(s, "name");
    char t[] = "a\nb";
    EXPECT_EQ(imu::chomp(t, 3), 0);
    EXPECT_STREQ(t, "a\nb");
    char e[] = "";
    EXPECT_EQ(imu::chomp(e, 0), 0);
    EXPECT_EQ(imu::chomp(nullptr, 3), -1);
    EXPECT_EQ(imu::chomp(t, -1), -1);
}

}  // namespace
