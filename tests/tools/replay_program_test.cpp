// The program as a user runs it: exit codes, the message for a bad command
// line or file, the summary of a replay, and the CSV on stdout.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/replay_csv.h"

namespace {

struct ProgramRun {
    int code = -1;
    std::string out;
};

// Runs imu-replay with args (shell words) and the given redirections.
ProgramRun run(const std::string& args, const char* redirect = "2>&1") {
    const std::string cmd =
        std::string(IMU_REPLAY_BINARY) + " --no-progress " + args + " " + redirect;
    ProgramRun r;
    std::FILE* p = ::popen(cmd.c_str(), "r");
    char buf[4096];
    for (std::size_t n = 0; p != nullptr && (n = std::fread(buf, 1, sizeof buf, p)) > 0;) {
        r.out.append(buf, n);
    }
    const int status = p != nullptr ? ::pclose(p) : -1;
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

std::string read_line(const std::string& path) {
    char line[128] = {};
    std::FILE* f = std::fopen(path.c_str(), "r");
    if (f != nullptr) {
        line[0] = std::fgets(line, sizeof line, f) != nullptr ? line[0] : '\0';
        std::fclose(f);
    }
    return line;
}

TEST(ProgramTest, RefusesWithExitCodeAndMessage) {
    const std::string bad = imu::test::write_temp_file("0,acc,0,0,9.8\n5,gyro,0,x,0\n");
    const struct {
        std::string args;
        int code;
        std::string out;
    } cases[] = {
        {"--mode 9", 2,
         "imu-replay: --mode takes 0 to 5, not '9' (imu-replay --help lists the options)\n"},
        {"/nonexistent/r.csv", 1,
         "imu-replay: /nonexistent/r.csv: cannot open (No such file or directory)\n"},
        {bad, 1, "imu-replay: " + bad + ":2: column 4 (y): bad number 'x'\n"},
    };
    for (const auto& c : cases) {
        const ProgramRun r = run(c.args);
        EXPECT_EQ(r.code, c.code) << c.args;
        EXPECT_EQ(r.out, c.out);
    }
    std::remove(bad.c_str());
}

// The CSV goes to stdout and the summary to stderr, so they can be split;
// the library's files go under --root (kept afterwards), made if missing.
TEST(ProgramTest, CsvOnStdoutSummaryOnStderrFilesUnderTheRoot) {
    std::string text = "0,acc,0,0,9.80665\n0,mag,0,20,-40\n";
    for (int i = 0; i < 200; ++i) {
        text += std::to_string(i * 5000000LL) + ",gyro,0,0,0\n";
    }
    const std::string rec = imu::test::write_temp_file(text);
    const std::string root = rec + ".root";
    const ProgramRun csv = run("-s Orientation -o - --root " + root + " " + rec, "2>/dev/null");
    const ProgramRun summary = run("-s Orientation,Tap -o - " + rec, "2>&1 >/dev/null");
    std::remove(rec.c_str());
    EXPECT_EQ(read_line(root + "/data/system/velmo_screen_resolution"),
              "screen_resolution:1280\t720\n");
    EXPECT_EQ(std::system(("rm -rf " + root).c_str()), 0);
    EXPECT_EQ(csv.code, 0);
    EXPECT_EQ(csv.out.rfind("t_s,Orientation_0,Orientation_1,Orientation_2\n0.000000,", 0), 0U);
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 201);
    EXPECT_EQ(summary.code, 0);
    for (const char* line : {"cycles        200\n", "mode          0, enabled: Orientation Tap\n",
                             "gestures      0\n"}) {
        EXPECT_NE(summary.out.find(line), std::string::npos) << summary.out;
    }
}

// Without a recording the demo is replayed; its plot goes where --plot says
// (without --plot, next to the demo: data/demo.png, which git ignores).
TEST(ProgramTest, ReplaysTheDemoWithoutARecording) {
    const std::string demo = std::string(IMU_SOURCE_DIR) + "/data/demo.csv";
    const std::string png = imu::test::write_temp_file("", ".png");
    const ProgramRun r = run("--plot " + png);
    const std::string magic = read_line(png).substr(0, 4);
    std::remove(png.c_str());
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_EQ(r.out.rfind("recording     " + demo + " (event stream)\n", 0), 0U) << r.out;
    EXPECT_NE(r.out.find("plot          " + png + "\n"), std::string::npos) << r.out;
    EXPECT_EQ(magic, "\x89PNG");
}

}  // namespace
