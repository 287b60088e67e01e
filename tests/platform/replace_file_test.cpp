// Whole-file writes: the text replaces the file (or follows its contents)
// by rename, keeping the permissions, failing as fopen would, leaving no
// temporary file, and never showing a reader part of a file.

#include "platform/replace_file.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "support/temp_root.h"

namespace {

using imu::platform::WriteMode;
using imu::test::TempRoot;

constexpr const char* kFile = "/data/system/velmoAR.ini";
constexpr const char* kText = "1.0 1920.0 1080.0\n";

int write(const std::string& text, WriteMode mode) {
    return imu::platform::write_file_atomically(imu::platform::FixedPath::kAirMouseSettings,
                                                text.data(), text.size(), mode);
}

// Names in /data/system: the file and nothing beside it.
int entries(const TempRoot& root) {
    int n = 0;
    DIR* d = ::opendir(root.path("/data/system").c_str());
    while (const dirent* e = d != nullptr ? ::readdir(d) : nullptr)
        n += e->d_name[0] != '.' ? 1 : 0;
    if (d != nullptr) {
        ::closedir(d);
    }
    return n;
}

TEST(ReplaceFile, WritesTheWholeTextAndKeepsThePermissions) {
    const mode_t mask = ::umask(022);
    ::umask(mask);
    const struct {
        const char* before;  // nullptr: absent
        unsigned before_mode;
        WriteMode mode;
        std::string after;
    } cases[] = {{nullptr, 0, WriteMode::kReplace, kText},
                 {"0 1680 1050\n", 0777, WriteMode::kReplace, kText},
                 {"garbage", 0600, WriteMode::kReplace, kText},
                 {"a\nb\n", 0640, WriteMode::kAppend, std::string("a\nb\n") + kText},
                 {nullptr, 0, WriteMode::kAppend, kText}};
    for (const auto& c : cases) {
        TempRoot root;
        if (c.before != nullptr) {
            root.write(kFile, c.before);
            ::chmod(root.path(kFile).c_str(), c.before_mode);
        }
        ASSERT_EQ(write(kText, c.mode), 0);
        EXPECT_EQ(root.read(kFile), c.after);
        struct stat st {};
        ASSERT_EQ(::stat(root.path(kFile).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, c.before != nullptr ? c.before_mode : 0666U & ~mask)
            << c.after;
        EXPECT_EQ(entries(root), 1) << "a temporary file is left";
    }
}

// Where fopen fails, so does the write, with fopen's errno, and the place
// is left as it was.
TEST(ReplaceFileFailure, FailsWithTheErrnoFopenGives) {
    TempRoot root;
    root.mkdir(kFile);
    errno = 0;
    EXPECT_EQ(write("x\n", WriteMode::kReplace), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(entries(root), 1);
    root.remove(kFile);
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
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(write(i % 2 == 0 ? b : a, WriteMode::kReplace), 0);
    done = true;
    reader.join();
    EXPECT_EQ(bad.load(), 0);
}

}  // namespace
