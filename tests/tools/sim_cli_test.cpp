// The imu-sim program: options, its messages, and the bundled demo, which
// the command in data/README.md must reproduce.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "support/temp_root.h"

namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Everything after the comment that names the scenario.
std::string body(const std::string& csv) { return csv.substr(csv.find('\n') + 1); }

class ImuSim : public testing::Test {
protected:
    // Runs imu-sim with args; returns its exit status, out_ and err_ hold
    // its stdout and stderr.
    int run(const std::string& args) {
        const std::string cmd = std::string(IMU_SIM_EXE) + " " + args + " >" + root.dir() +
                                "/out.txt 2>" + root.dir() + "/err.txt";
        const int raw = std::system(cmd.c_str());  // NOLINT(concurrency-mt-unsafe)
        out_ = slurp(root.dir() + "/out.txt");
        err_ = slurp(root.dir() + "/err.txt");
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }

    imu::test::TempRoot root;
    std::string out_, err_;
};

TEST_F(ImuSim, DemoScenarioFileMakesTheBundledRecording) {
    ASSERT_EQ(run(std::string(IMU_SOURCE_DIR) + "/data/demo.scenario"), 0) << err_;
    EXPECT_EQ(body(out_), body(slurp(IMU_SOURCE_DIR "/data/demo.csv")));
    EXPECT_EQ(err_, "");
}

TEST_F(ImuSim, OptionsOverrideTheScenario) {
    root.write("/s.scenario", "rate 200\nnoise 0\nstill 1\n");
    const std::string r = root.dir();
    ASSERT_EQ(run(r + "/s.scenario --rate 50 --mag-rate 10 --noise 2 --seed 9 -o " + r + "/x.csv"),
              0)
        << err_;
    EXPECT_EQ(out_, "");
    const std::string csv = slurp(r + "/x.csv");
    for (const char* part : {"# rate 50 Hz (acc, gyro), mag_rate 10 Hz, noise 2, seed 9\n",
                             "\n1000000000,gyro,", "\n20000000,acc,"}) {
        EXPECT_NE(csv.find(part), std::string::npos) << part;
    }
}

TEST_F(ImuSim, ErrorsSayWhatIsWrong) {
    const std::string r = root.dir();
    root.write("/bad.scenario", "still 1\nwalk 5\n");
    root.write("/fast.scenario", "rate 1000\nstill 600\nstill 400.001\n");
    const struct {
        std::string args;
        int status;
        std::string message;  // the first line of stderr
    } cases[] = {
        {"--rate abc", 2, "--rate must be a number from 20 to 1000, not 'abc'"},
        {"--seed -1", 2, "--seed must be a whole number from 0 to 4294967295, not '-1'"},
        {"--noise", 2, "--noise needs a value"},
        {"--bogus", 2, "unknown option '--bogus'"},
        {"demo demo", 2, "only one scenario, got 'demo' and 'demo'"},
        {"--rate 100 --mag-rate 200", 1, "demo: mag_rate must not exceed rate"},
        {r + "/none.scenario", 1,
         "cannot open scenario '" + r +
             "/none.scenario' (No such file or directory) and there is no built-in scenario of "
             "that name (demo)"},
        {r + "/bad.scenario", 1,
         r + "/bad.scenario:2: walk needs the phone held in the hand, but it is lying flat face "
             "up (pick_up first)"},
        {r + "/fast.scenario", 1,
         r + "/fast.scenario:3: the recording grows beyond 1000000 samples; shorten the "
             "scenario or lower the rate"},
        {"-o " + r + "/no/such/dir.csv", 1,
         "cannot write '" + r + "/no/such/dir.csv': No such file or directory"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(run(c.args), c.status) << c.args;
        EXPECT_EQ(err_.substr(0, err_.find('\n')), "imu-sim: " + c.message);
        EXPECT_EQ(out_, "");
    }
}

}  // namespace
