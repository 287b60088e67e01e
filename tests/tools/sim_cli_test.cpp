// The imu-sim program: options, its messages, and the bundled demo, which
// the command in data/README.md must reproduce.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "support/temp_root.h"

namespace {

struct SimRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

class ImuSim : public testing::Test {
protected:
    SimRun run(const std::string& args) const {
        const std::string out = root.dir() + "/out.txt";
        const std::string err = root.dir() + "/err.txt";
        const std::string cmd = std::string(IMU_SIM_EXE) + " " + args + " >" + out + " 2>" + err;
        SimRun r;
        // One test case per process, nothing else running: system() is safe.
        const int raw = std::system(cmd.c_str());  // NOLINT(concurrency-mt-unsafe)
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(out);
        r.err = slurp(err);
        return r;
    }

    imu::test::TempRoot root;
};

// Everything after the comment that names the scenario.
std::string body(const std::string& csv) { return csv.substr(csv.find('\n') + 1); }

TEST_F(ImuSim, DemoScenarioFileMakesTheBundledRecording) {
    const SimRun r = run(std::string(IMU_SOURCE_DIR) + "/data/demo.scenario");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(body(r.out), body(slurp(IMU_SOURCE_DIR "/data/demo.csv")));
    EXPECT_EQ(r.err, "");
}

TEST_F(ImuSim, OptionsOverrideTheScenario) {
    root.write("/s.scenario", "rate 200\nnoise 0\nstill 1\n");
    const std::string file = root.dir() + "/s.scenario";
    const SimRun r =
        run(file + " --rate 50 --mag-rate 10 --noise 2 --seed 9 -o " + root.dir() + "/x.csv");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    const std::string csv = slurp(root.dir() + "/x.csv");
    EXPECT_NE(csv.find("# rate 50 Hz (acc, gyro), mag_rate 10 Hz, noise 2, seed 9\n"),
              std::string::npos);
    EXPECT_NE(csv.find("\n1000000000,gyro,"), std::string::npos);
    EXPECT_NE(csv.find("\n20000000,acc,"), std::string::npos);
}

struct BadRun {
    const char* args;
    int status;
    const char* message;  // the first line of stderr
};

void PrintTo(const BadRun& c, std::ostream* os) { *os << c.args; }

class ImuSimErrors : public ImuSim, public testing::WithParamInterface<BadRun> {};

TEST_P(ImuSimErrors, SayWhatIsWrong) {
    root.write("/bad.scenario", "still 1\nwalk 5\n");
    root.write("/fast.scenario", "rate 1000\nstill 600\nstill 400.001\n");
    std::string args = GetParam().args;
    std::string message = GetParam().message;
    for (std::string* s : {&args, &message}) {
        for (std::size_t at = s->find("ROOT"); at != std::string::npos; at = s->find("ROOT")) {
            s->replace(at, 4, root.dir());
        }
    }
    const SimRun r = run(args);
    EXPECT_EQ(r.status, GetParam().status);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')), message);
    EXPECT_EQ(r.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Table, ImuSimErrors,
    testing::Values(
        BadRun{"--rate abc", 2, "imu-sim: --rate must be a number from 20 to 1000, not 'abc'"},
        BadRun{"--seed -1", 2,
               "imu-sim: --seed must be a whole number from 0 to 4294967295, not '-1'"},
        BadRun{"--noise", 2, "imu-sim: --noise needs a value"},
        BadRun{"--bogus", 2, "imu-sim: unknown option '--bogus'"},
        BadRun{"demo demo", 2, "imu-sim: only one scenario, got 'demo' and 'demo'"},
        BadRun{"--rate 100 --mag-rate 200", 1, "imu-sim: demo: mag_rate must not exceed rate"},
        BadRun{"ROOT/none.scenario", 1,
               "imu-sim: cannot open scenario 'ROOT/none.scenario' (No such file or directory) "
               "and there is no built-in scenario of that name (demo)"},
        BadRun{"ROOT/bad.scenario", 1,
               "imu-sim: ROOT/bad.scenario:2: walk needs the phone held in the hand, but it is "
               "lying flat face up (pick_up first)"},
        BadRun{"ROOT/fast.scenario", 1,
               "imu-sim: ROOT/fast.scenario:3: the recording grows beyond 1000000 samples; "
               "shorten the scenario or lower the rate"},
        BadRun{"-o ROOT/no/such/dir.csv", 1,
               "imu-sim: cannot write 'ROOT/no/such/dir.csv': No such file or directory"}));

}  // namespace
