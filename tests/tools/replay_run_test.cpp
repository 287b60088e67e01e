// Replays of synthetic recordings with a known truth, the cycles counted,
// the per-cycle CSV and the plot. The service object lives as long as the
// process: each case runs in a process of its own.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "imu-replay/recording.h"
#include "imu-replay/replay.h"
#include "support/replay_csv.h"
#include "support/temp_root.h"

namespace imu::replay {
namespace {

ReplaySettings settings_for(int mode) {
    ReplaySettings s;
    s.mode = mode;
    s.enable = {4, 11, 12, 24};
    return s;
}

struct RunCase {
    const char* label;
    int mag_every;
    int mode;
};

std::string read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

class FollowsTruthTest : public testing::TestWithParam<RunCase> {};

// Still, a quarter turn to the right, top edge raised 30 deg, still again:
// every gyroscope sample runs a cycle, the orientation error stays within
// 1 deg RMS after the filter settles, and the final Orientation slot reads
// azimuth 130, pitch -30, roll 0. The per-cycle CSV has a header naming the
// chosen slots and one row per cycle, whose numbers read back to the floats
// the service returned.
TEST_P(FollowsTruthTest, OrientationFollowsTheTruth) {
    test::TempRoot root;
    sim::SensorModel m;
    m.acc_noise_mps2 = 0.05;
    m.gyro_noise_rps = 0.003;
    m.mag_noise_ut = 0.4;
    sim::Trajectory t(sim::pose(40));
    t.hold(3.0).turn_heading(90, 1.0).hold(1.0);
    t.turn({1, 0, 0}, 30.0 * sim::kDegToRad, 1.0, sim::Frame::kDevice).hold(2.0);
    Recording rec;
    ASSERT_EQ(parse_recording(test::event_stream_csv(sim::record(t, m), GetParam().mag_every),
                              "r.csv", Layout::kAuto, Units{}, rec),
              "");
    const std::size_t gyro = rec.count[static_cast<int>(Sensor::kGyro)];
    const std::string path = root.dir() + "/out.csv";
    ReplaySettings s = settings_for(GetParam().mode);
    s.out = std::fopen(path.c_str(), "w");
    s.out_slots = {2, 4};
    ReplayResult r;
    ASSERT_EQ(run_replay(rec, s, r), "");
    std::fclose(s.out);
    EXPECT_EQ(r.cycles, gyro);
    EXPECT_EQ(r.not_ready + r.time_errors, 0U);
    EXPECT_EQ(r.samples, rec.rows.size());
    EXPECT_GT(r.error_cycles, gyro * 2 / 3);
    EXPECT_LT(r.error_rms_deg, 1.0);
    EXPECT_LT(r.error_max_deg, 6.0);
    EXPECT_LT(std::fabs(std::fmod(r.final_orientation[0] - 130.0 + 540.0, 360.0) - 180.0), 1.5);
    EXPECT_NEAR(r.final_orientation[1], -30.0, 1.5);
    EXPECT_NEAR(r.final_orientation[2], 0.0, 1.5);
    EXPECT_TRUE(r.gestures.empty());
    EXPECT_EQ(r.step_count, 0.0);
    EXPECT_GT(r.cycles_per_s, 0.0);

    std::istringstream lines(read_file(path));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "t_s,Gravity_0,Gravity_1,Gravity_2,Orientation_0,Orientation_1,Orientation_2");
    std::size_t rows = 0;
    for (std::string row; std::getline(lines, row); ++rows) {
        line = row;
    }
    EXPECT_EQ(rows, r.cycles);
    float v[7];
    ASSERT_EQ(std::sscanf(line.c_str(), "%f,%f,%f,%f,%f,%f,%f", &v[0], &v[1], &v[2], &v[3], &v[4],
                          &v[5], &v[6]),
              7);
    EXPECT_FLOAT_EQ(v[0], 8.0F);
    EXPECT_NEAR(std::hypot(v[1], v[2], v[3]), 9.8066, 0.05);  // gravity
    for (int a = 0; a < 3; ++a) {
        EXPECT_EQ(v[4 + a], r.final_orientation[a]);
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, FollowsTruthTest,
                         testing::Values(RunCase{"slow_mag_mode0", 4, 0},
                                         RunCase{"intervals_mode2", 1, 2}),
                         [](const testing::TestParamInfo<RunCase>& i) {
                             return std::string(i.param.label);
                         });

struct CountCase {
    int mode;
    std::size_t not_ready;
    std::size_t cycles;
};

class ReplayCountTest : public testing::TestWithParam<CountCase> {};

// Gyroscope samples before the first accelerometer (and, except in mode 1,
// magnetometer) sample run no cycle, nor does the one after a gap of a
// second; both are counted.
TEST_P(ReplayCountTest, CountsTheSamplesThatRanNoCycle) {
    test::TempRoot root;
    std::string text = "0,gyro,0,0,0\n5000000,gyro,0,0,0\n10000000,acc,0,0,9.8\n"
                       "10000000,gyro,0,0,0\n15000000,mag,0,20,-40\n";
    long long t = 15000000;
    for (int i = 0; i < 10; ++i, t += 5000000) {
        text += std::to_string(t) + ",gyro,0,0,0\n";
    }
    text += std::to_string(t + 1000000000) + ",gyro,0,0,0\n";  // 1 s gap: rejected
    text += std::to_string(t + 1005000000) + ",gyro,0,0,0\n";
    Recording rec;
    ASSERT_EQ(parse_recording(text, "r.csv", Layout::kAuto, Units{}, rec), "");
    ReplayResult r;
    ASSERT_EQ(run_replay(rec, settings_for(GetParam().mode), r), "");
    EXPECT_EQ(r.not_ready, GetParam().not_ready);
    EXPECT_EQ(r.time_errors, 1U);
    EXPECT_EQ(r.cycles, GetParam().cycles);
}

INSTANTIATE_TEST_SUITE_P(Modes, ReplayCountTest,
                         testing::Values(CountCase{0, 3, 11}, CountCase{1, 2, 12}),
                         [](const testing::TestParamInfo<CountCase>& i) {
                             return "mode" + std::to_string(i.param.mode);
                         });

// The plot (azimuth wrapping at 180 deg), with quotes in every name it
// writes into the plot script.
TEST(ReplayPlotTest, WritesAPng) {
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0 && std::getenv("CI") == nullptr) {
        GTEST_SKIP() << "gnuplot is not installed (scripts/setup.sh installs it)";
    }
    test::TempRoot root;
    ReplayResult r;
    r.plot = {{0.0F, {170.0F, 0.0F, 0.0F}}, {1.0F, {190.0F, -30.0F, 5.0F}}, {2.0F, {200.0F, 0, 0}}};
    r.gestures.push_back({3.5, 11});
    r.steps.push_back({4.0, 5.0F, 3.8F});
    const std::string png = root.dir() + "/it's.png";
    ASSERT_EQ(write_plot(png, "title with 'quotes'", r,
                         {{1.0, "pick_up", ""}, {2.0, "it's \"odd\"", ""}}),
              "");
    const std::string data = read_file(png);
    ASSERT_GT(data.size(), 1000U);
    EXPECT_EQ(data.substr(0, 8), "\x89PNG\r\n\x1a\n");
}

}  // namespace
}  // namespace imu::replay
