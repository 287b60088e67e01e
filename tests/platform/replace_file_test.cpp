// Whole-file writes: the text replaces the file (or follows its contents)
// by rename, keeping the permissions, failing as fopen would, leaving no
// temporary file, and never showing a reader part of a file.

#include "platform/replace_file.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <ostream>
#include <string>
#include <thread>

#include "support/temp_root.h"

namespace {

using imu::platform::FixedPath;
using imu::platform::WriteMode;
using imu::platform::write_file_atomically;
using imu::test::TempRoot;

constexpr const char* kFile = "/data/system/velmoAR.ini";
constexpr const char* kAbsent = "<absent>";

int write(const std::string& text, WriteMode mode) {
    return write_file_atomically(FixedPath::kAirMouseSettings, text.data(), text.size(), mode);
}

unsigned mode_of(const TempRoot& root, const char* rel) {
    struct stat st {};
    return ::stat(root.path(rel).c_str(), &st) == 0 ? st.st_mode & 07777 : 0U;
}

// Names in /data/system: the file and nothing beside it.
int entries(const TempRoot& root) {
    int n = 0;
    DIR* d = ::opendir(root.path("/data/system").c_str());
    while (const dirent* e = d != nullptr ? ::readdir(d) : nullptr) {
        n += e->d_name[0] != '.' ? 1 : 0;
    }
    if (d != nullptr) {
        ::closedir(d);
    }
    return n;
}

struct Case {
    const char* name;
    const char* before;  // contents, or kAbsent
    unsigned before_mode;
    WriteMode mode;
    const char* after;
};

class ReplaceFile : public testing::TestWithParam<Case> {};

TEST_P(ReplaceFile, WritesTheWholeTextAndKeepsThePermissions) {
    const Case& c = GetParam();
    TempRoot root;
    const mode_t mask = ::umask(022);
    ::umask(mask);
    if (std::string(c.before) != kAbsent) {
        root.write(kFile, c.before);
        ::chmod(root.path(kFile).c_str(), c.before_mode);
    }
    ASSERT_EQ(write("1.0 1920.0 1080.0\n", c.mode), 0);
    EXPECT_EQ(root.read(kFile), c.after);
    const unsigned expected = std::string(c.before) == kAbsent ? 0666U & ~mask : c.before_mode;
    EXPECT_EQ(mode_of(root, kFile), expected);
    EXPECT_EQ(entries(root), 1) << "no temporary file is left";
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

INSTANTIATE_TEST_SUITE_P(
    Cases, ReplaceFile,
    testing::Values(Case{"NewFile", kAbsent, 0, WriteMode::kReplace, "1.0 1920.0 1080.0\n"},
                    Case{"ReplacesOpenFile", "0 1680 1050\n", 0777, WriteMode::kReplace,
                         "1.0 1920.0 1080.0\n"},
                    Case{"ReplacesPrivateFile", "garbage", 0600, WriteMode::kReplace,
                         "1.0 1920.0 1080.0\n"},
                    Case{"AppendsToLines", "a\nb\n", 0640, WriteMode::kAppend,
                         "a\nb\n1.0 1920.0 1080.0\n"},
                    Case{"AppendCreates", kAbsent, 0, WriteMode::kAppend, "1.0 1920.0 1080.0\n"}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

// Where fopen fails, so does the write, with fopen's errno, and the
// place is left as it was.
TEST(ReplaceFileFailure, FailsWithTheErrnoFopenGives) {
    TempRoot root;
    root.mkdir(kFile);
    errno = 0;
    EXPECT_EQ(write("x\n", WriteMode::kReplace), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(entries(root), 1);
    root.remove("/data/system/velmoAR.ini");
    root.remove("/data/system");
    errno = 0;
    EXPECT_EQ(write("x\n", WriteMode::kAppend), -1);
    EXPECT_EQ(errno, ENOENT);
}

// A reader that opens the file while it is rewritten over and over sees
// one of the two texts whole, never an empty or cut file.
TEST(ReplaceFileReader, NeverSeesPartOfTheFile) {
    TempRoot root;
    const std::string a = "0 1680 1050\n";
    const std::string b(3000, 'x');  // several blocks
    ASSERT_EQ(write(a, WriteMode::kReplace), 0);
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::thread reader([&] {
        while (!done.load()) {
            const std::string seen = root.read(kFile);
            bad += seen != a && seen != b ? 1 : 0;
        }
    });
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(write(i % 2 == 0 ? b : a, WriteMode::kReplace), 0);
    }
    done = true;
    reader.join();
    EXPECT_EQ(bad.load(), 0);
}

}  // namespace
