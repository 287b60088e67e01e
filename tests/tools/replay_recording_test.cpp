// Reading recordings: both layouts and their units, and the one-line error
// for each kind of broken file.

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "imu-replay/recording.h"
#include "support/replay_csv.h"

namespace imu::replay {
namespace {

// Every layout and unit gives back the samples it was written from, in SI
// units, accelerometer and magnetometer before the gyroscope of their time.
TEST(RecordingTest, EveryLayoutAndUnitReadsBackTheSamples) {
    sim::SensorModel m;
    m.acc_noise_mps2 = 0.05;
    m.gyro_noise_rps = 0.003;
    m.mag_noise_ut = 0.4;
    const auto samples =
        sim::record(sim::Trajectory(sim::pose(30, 10, -5)).hold(0.1).turn_heading(90, 0.1), m);
    const struct {
        bool wide, acc_in_g, gyro_in_deg;
        float tolerance;  // relative: 0 where the text holds the floats exactly
    } cases[] = {{false, false, false, 0.0F},
                 {true, false, false, 0.0F},
                 {true, true, true, 1e-6F},
                 {true, true, false, 1e-6F}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "wide " << c.wide << " g " << c.acc_in_g << " deg/s "
                                        << c.gyro_in_deg);
        Recording rec;
        ASSERT_EQ(parse_recording(c.wide ? test::wide_csv(samples, c.acc_in_g, c.gyro_in_deg)
                                         : test::event_stream_csv(samples),
                                  "r.csv", Layout::kAuto, Units{c.acc_in_g, c.gyro_in_deg}, rec),
                  "");
        EXPECT_EQ(rec.layout, c.wide ? Layout::kWide : Layout::kEventStream);
        ASSERT_EQ(rec.rows.size(), 3 * samples.size());
        EXPECT_EQ(rec.count[static_cast<int>(Sensor::kGyro)], samples.size());
        EXPECT_TRUE(rec.has_truth);
        const Sensor order[] = {Sensor::kAcc, Sensor::kMag, Sensor::kGyro};
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const sim::Sample& s = samples[i];
            const float* want[] = {s.acc, s.mag, s.gyro};
            for (std::size_t k = 0; k < 3; ++k) {
                const Row& row = rec.rows[3 * i + k];
                ASSERT_EQ(row.sensor, order[k]) << i;
                ASSERT_EQ(row.t_ns, std::llround(s.t_s * 1e9)) << i;
                for (int a = 0; a < 3; ++a) {
                    ASSERT_NEAR(row.v[a], want[k][a], c.tolerance * std::fabs(want[k][a]) + 1e-30F)
                        << "sample " << i << " sensor " << k << " axis " << a;
                }
            }
            const Row& gyro = rec.rows[3 * i + 2];
            ASSERT_TRUE(gyro.has_truth);
            ASSERT_NEAR(gyro.truth[0], s.truth.w, 1e-6);
            ASSERT_NEAR(gyro.truth[3], s.truth.z, 1e-6);
        }
    }
}

// The other sensors of the event stream, the script lines, comments
// anywhere, CRLF line ends, no header and empty truth columns.
TEST(RecordingTest, ReadsTheWholeEventStream) {
    Recording rec;
    ASSERT_EQ(parse_recording("# made by hand\r\n0,acc,0,0,9.80665\r\n# event,0.000,lie_still\r\n"
                              "0,mag,0,22,-40,,,,\r\n5000000,gyro,0.5,-0.25,0.125,1,0,0,0\r\n"
                              "5000000,light,120,0,0\r\n6000000,proximity,5,0,0\r\n"
                              "7000000,button,160,0,0\r\n# event,12.500,walk,20 steps\r\n",
                              "r.csv", Layout::kAuto, Units{}, rec),
              "");
    ASSERT_EQ(rec.rows.size(), 6U);
    const Sensor want[] = {Sensor::kAcc,   Sensor::kMag,       Sensor::kGyro,
                           Sensor::kLight, Sensor::kProximity, Sensor::kButton};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(rec.rows[i].sensor, want[i]) << i;
    }
    EXPECT_FALSE(rec.rows[1].has_truth);
    EXPECT_TRUE(rec.rows[2].has_truth);
    EXPECT_EQ(rec.rows[2].v[1], -0.25F);
    EXPECT_EQ(rec.rows[5].v[0], 160.0F);
    EXPECT_DOUBLE_EQ(rec.duration_s(), 0.007);
    ASSERT_EQ(rec.script.size(), 2U);
    EXPECT_EQ(rec.script[1].name + "|" + rec.script[1].detail, "walk|20 steps");
    EXPECT_DOUBLE_EQ(rec.script[1].t_s, 12.5);
}

TEST(RecordingTest, BrokenFileNamesLineAndColumn) {
    const char* const cases[][2] = {
        {"", "r.csv: no samples"},
        {"# x\ntimestamp_ns,sensor,x,y,z\n\n", "r.csv: no samples"},
        {"0,acc,0,0,9.8\n", "r.csv: no gyroscope samples (the gyroscope drives the fusion cycles)"},
        {"timestamp_ns,sensor,x,y,z\n0,acc,1,2\n", "r.csv:2: column 5 (z): missing column"},
        {"0,acc,1,2,3\n5,gyro,0.1", "r.csv:2: column 4 (y): missing column"},  // truncated
        {"0,acc,1,2,zz\n", "r.csv:1: column 5 (z): bad number 'zz'"},
        {"0,acc,nan,0,0\n", "r.csv:1: column 3 (x): bad number 'nan'"},
        {"0,acc,1,,3\n", "r.csv:1: column 4 (y): missing number"},
        {"1.5,acc,1,2,3\n",
         "r.csv:1: column 1 (timestamp_ns): bad timestamp '1.5' (integer nanoseconds)"},
        {"0,baro,1,2,3\n", "r.csv:1: column 2 (sensor): unknown sensor 'baro' (acc, gyro, mag, "
                           "light, proximity, button)"},
        {"0,acc,1,2,3\n10,gyro,0,0,0\n5,mag,0,0,0\n",
         "r.csv:3: column 1 (timestamp_ns): time goes back (5 ns after 10 ns)"},
        {"0,gyro,1,2,3,1,0,0\n", "r.csv:1: column 9 (true_qz): missing column"},
        {"0,gyro,1,2,3,1,0,0,0,9\n", "r.csv:1: column 10 (extra): unexpected column"},
        {"0,gyro,0,0,0,2,0,0,0\n",
         "r.csv:1: column 6 (true_qw): the true orientation is not a unit quaternion"},
        {"# event,soon,shake\n0,gyro,0,0,0\n",
         "r.csv:1: bad event line (expected '# event,<time_s>,<name>[,<detail>]')"},
        {"\x01\x02\xff garbage\n", "r.csv:1: column 2 (acc_x): missing column in the header"},
        {"0.0,1,2,3,4,5,6,7,8\n", "r.csv:1: column 10 (mag_z): missing column"},
        {"time,ax,ay,az,gx,gy,gz,mx,my,mz\n0,1,2,3,4,5,6,7,8,oops\n",
         "r.csv:2: column 10 (mz): bad number 'oops'"},
        {"1.0,0,0,9.8,0,0,0,0,20,-40\n0.5,0,0,9.8,0,0,0,0,20,-40\n",
         "r.csv:2: column 1 (t_s): time goes back (500000000 ns after 1000000000 ns)"},
        {"time,ax,ay\n", "r.csv:1: column 4 (acc_z): missing column in the header"},
        {"t_s,a,a,a,g,g,g,m,m,m,qw\n", "r.csv:1: column 12 (q_x): the truth needs four columns"},
    };
    for (const auto& [text, error] : cases) {
        Recording rec;
        EXPECT_EQ(parse_recording(text, "r.csv", Layout::kAuto, Units{}, rec), error) << text;
        EXPECT_TRUE(rec.rows.empty());
    }
    // A forced layout reads what auto-detection would take for the other one.
    Recording rec;
    EXPECT_EQ(parse_recording("0,acc,0,0,9.8,0,0,0,0,0\n", "r.csv", Layout::kWide, Units{}, rec),
              "r.csv:1: column 2 (acc_x): bad number 'acc'");
}

}  // namespace
}  // namespace imu::replay
