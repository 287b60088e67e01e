// The program as a user runs it: exit codes, the message for a bad command
// line or file, the summary of a replay, and the CSV on stdout.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/replay_csv.h"

namespace {

struct ProgramRun {
    int code = -1;
    std::string out;
};

// Runs imu-replay with args (shell words); stderr joins stdout when
// merge is set.
ProgramRun run(const std::string& args, bool merge = true) {
    const std::string cmd = std::string(IMU_REPLAY_BINARY) + " --no-progress " + args +
                            (merge ? " 2>&1" : " 2>/dev/null");
    ProgramRun r;
    std::FILE* p = ::popen(cmd.c_str(), "r");
    if (p == nullptr) {
        return r;
    }
    char buf[4096];
    std::size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) {
        r.out.append(buf, n);
    }
    const int status = ::pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

struct ProgramCase {
    const char* label;
    const char* args;
    int code;
    const char* output;  // the whole output
};

class ProgramTest : public testing::TestWithParam<ProgramCase> {};

TEST_P(ProgramTest, ExitsWithItsCodeAndMessage) {
    const ProgramRun r = run(GetParam().args);
    EXPECT_EQ(r.code, GetParam().code);
    EXPECT_EQ(r.out, GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    Program, ProgramTest,
    testing::Values(
        ProgramCase{"bad_mode", "--mode 9", 2,
                    "imu-replay: --mode takes 0 to 5, not '9' (imu-replay --help lists the "
                    "options)\n"},
        ProgramCase{"missing_file", "/nonexistent/r.csv", 1,
                    "imu-replay: /nonexistent/r.csv: cannot open (No such file or directory)\n"}),
    [](const testing::TestParamInfo<ProgramCase>& i) { return std::string(i.param.label); });

TEST(ProgramTest, BrokenFileIsNamedWithLineAndColumn) {
    const std::string path = imu::test::write_temp_file("0,acc,0,0,9.8\n5,gyro,0,x,0\n");
    const ProgramRun r = run(path);
    std::remove(path.c_str());
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.out, "imu-replay: " + path + ":2: column 4 (y): bad number 'x'\n");
}

// The library's files go under --root (kept afterwards), made if missing.
TEST(ProgramTest, LibraryFilesGoUnderTheRoot) {
    const std::string rec = imu::test::write_temp_file("0,acc,0,0,9.8\n0,mag,0,20,-40\n5,gyro,0,0,0\n");
    const std::string root = rec + ".root";
    const ProgramRun r = run("-s Orientation --root " + root + " " + rec);
    std::remove(rec.c_str());
    EXPECT_EQ(r.code, 0) << r.out;
    std::FILE* f = std::fopen((root + "/data/system/velmo_screen_resolution").c_str(), "r");
    ASSERT_NE(f, nullptr);
    char line[64] = {};
    EXPECT_NE(std::fgets(line, sizeof line, f), nullptr);
    std::fclose(f);
    EXPECT_STREQ(line, "screen_resolution:1280\t720\n");
    EXPECT_EQ(std::system(("rm -rf " + root).c_str()), 0);
}

// The CSV goes to stdout and the summary to stderr, so they can be split.
TEST(ProgramTest, CsvOnStdoutAndSummaryElsewhere) {
    std::string text = "0,acc,0,0,9.80665\n0,mag,0,20,-40\n";
    for (int i = 0; i < 200; ++i) {
        text += std::to_string(i * 5000000LL) + ",gyro,0,0,0\n";
    }
    const std::string path = imu::test::write_temp_file(text);
    const ProgramRun csv = run("-s Orientation -o - " + path, false);
    const ProgramRun all = run("-s Orientation,Tap " + path);
    std::remove(path.c_str());
    EXPECT_EQ(csv.code, 0);
    EXPECT_EQ(csv.out.rfind("t_s,Orientation_0,Orientation_1,Orientation_2\n0.000000,", 0), 0U);
    std::size_t rows = 0;
    for (const char c : csv.out) {
        rows += c == '\n' ? 1U : 0U;
    }
    EXPECT_EQ(rows, 201U);
    EXPECT_EQ(all.code, 0);
    EXPECT_NE(all.out.find("cycles        200\n"), std::string::npos) << all.out;
    EXPECT_NE(all.out.find("mode          0, enabled: Orientation Tap\n"), std::string::npos);
    EXPECT_NE(all.out.find("gestures      0\n"), std::string::npos);
}

}  // namespace

namespace {

// Without a recording the demo is replayed; its plot goes where --plot says
// (without --plot, next to the demo: data/demo.png, which git ignores).
TEST(ProgramDemoTest, ReplaysTheDemoWithoutARecording) {
    const std::string demo = std::string(IMU_SOURCE_DIR) + "/data/demo.csv";
    const std::string png = imu::test::write_temp_file("", ".png");
    const ProgramRun r = run("--plot " + png);
    std::FILE* f = std::fopen(png.c_str(), "rb");
    char magic[4] = {};
    const std::size_t got = f != nullptr ? std::fread(magic, 1, 4, f) : 0;
    if (f != nullptr) {
        std::fclose(f);
    }
    std::remove(png.c_str());
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_EQ(r.out.rfind("recording     " + demo + " (event stream)\n", 0), 0U) << r.out;
    EXPECT_NE(r.out.find("plot          " + png + "\n"), std::string::npos) << r.out;
    EXPECT_EQ(got, 4U);
    EXPECT_EQ(std::string(magic + 1, 3), "PNG");
}

}  // namespace
