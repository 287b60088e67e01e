// Fixed paths are looked up under the host root.

#include "platform/paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "imu/host.h"

namespace {

using imu::platform::FixedPath;

TEST(Paths, RootIsPrefixedToEveryPath) {
    char out[256];
    EXPECT_STREQ(imu_host_root(), "");
    EXPECT_EQ(imu::platform::fixed_path(FixedPath::kCalibrationFile, out, sizeof out), 24);
    EXPECT_STREQ(out, "/data/system/velmoGR.ini");
    imu_host_set_root("/tmp/r");
    imu::platform::fixed_path(FixedPath::kSysClassInputSlash, out, sizeof out);
    EXPECT_STREQ(out, "/tmp/r/sys/class/input/");
    imu::platform::fixed_path_join(FixedPath::kDevInput, "event3", out, sizeof out);
    EXPECT_STREQ(out, "/tmp/r/dev/input/event3");
    imu_host_set_root(nullptr);
    EXPECT_STREQ(imu_host_root(), "");
}

TEST(Paths, TooSmallBufferOrOverlongRootFailsCleanly) {
    char out[10] = "xxxxxxxxx";
    EXPECT_EQ(imu::platform::fixed_path(FixedPath::kTouchSocket, out, sizeof out), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(imu::platform::fixed_path_join(FixedPath::kVelmoDir, "abc", out, sizeof out), -1);
    EXPECT_STREQ(out, "");
    imu_host_set_root("/tmp/r");
    imu_host_set_root(std::string(5000, 'd').c_str());  // refused
    EXPECT_STREQ(imu_host_root(), "/tmp/r");
    imu_host_set_root(("/" + std::string(4080, 'x')).c_str());
    EXPECT_EQ(imu::platform::fopen_fixed(FixedPath::kAccMagRawFile, "r"), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(imu::platform::access_fixed(FixedPath::kAccMagRawFile, F_OK), -1);
}

}  // namespace
