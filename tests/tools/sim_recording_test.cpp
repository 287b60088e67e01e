// Recordings rendered from scenarios: the CSV reads back as written, the
// sensors agree with the truth they carry, each step ends in its pose, and
// a seed gives the same file every time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

#include "sim/event_csv.h"
#include "sim/scenario.h"

namespace imu::sim {
namespace {

EventStream render_text(const std::string& text) {
    std::istringstream in(text);
    return render_scenario(parse_scenario(in, "t"));
}

std::string csv_of(const EventStream& s) {
    std::ostringstream out;
    write_event_csv(out, s);
    return out.str();
}

// The largest difference between two quaternions' components.
double quat_diff(const Quat& p, const Quat& q) {
    return std::max({std::fabs(p.w - q.w), std::fabs(p.x - q.x), std::fabs(p.y - q.y),
                     std::fabs(p.z - q.z)});
}

// A shake held in the hand at 100 Hz with the magnetometer at 25 Hz: 2 s.
constexpr const char* kShort =
    "rate 100\nmag_rate 25\nseed 5\nstart hand 45\nstill 1\nshake\nstill 0.4\n";

// The same seed gives the same file; another seed other noise, the same truth.
TEST(SimRecording, CsvReadsBackAsWrittenAndTheSeedFixesTheNoise) {
    const EventStream written = render_text(kShort);
    EXPECT_EQ(csv_of(render_text(kShort)), csv_of(written));
    std::string other_seed = kShort;
    other_seed.replace(other_seed.find("seed 5"), 6, "seed 6");
    const EventStream other = render_text(other_seed);
    EXPECT_NE(csv_of(other), csv_of(written));
    std::istringstream in(csv_of(written));
    EventStream read;
    std::string error;
    ASSERT_TRUE(read_event_csv(in, &read, &error)) << error;
    std::size_t count[6] = {};
    ASSERT_EQ(read.rows.size(), written.rows.size());
    for (std::size_t i = 0; i < read.rows.size(); ++i) {
        const EventRow& a = written.rows[i];
        const EventRow& b = read.rows[i];
        ++count[static_cast<int>(b.sensor)];
        ASSERT_EQ(b.sensor, a.sensor) << "row " << i;
        ASSERT_EQ(b.timestamp_ns, a.timestamp_ns) << "row " << i;
        ASSERT_EQ(b.timestamp_ns % (a.sensor == SensorKind::kMag ? 40000000 : 10000000), 0) << i;
        const double step = 0.5 * std::pow(10.0, -decimals(a.sensor)) + 1e-12;
        for (int k = 0; k < 3; ++k) {
            ASSERT_NEAR(b.v[k], a.v[k], step) << "row " << i;
        }
        ASSERT_TRUE(b.truth.has_value()) << "row " << i;
        ASSERT_LE(quat_diff(*b.truth, *a.truth), 0.5e-6) << "row " << i;
        ASSERT_EQ(quat_diff(*other.rows.at(i).truth, *a.truth), 0.0) << "row " << i;
    }
    EXPECT_EQ(count[static_cast<int>(SensorKind::kAcc)], 201U);
    EXPECT_EQ(count[static_cast<int>(SensorKind::kGyro)], 201U);
    EXPECT_EQ(count[static_cast<int>(SensorKind::kMag)], 51U);
    ASSERT_EQ(read.events.size(), 1U);
    EXPECT_EQ(read.events[0].name + "|" + read.events[0].detail, "shake|");
    EXPECT_EQ(read.events[0].t_s, 1.0);
}

// The demo without noise: the magnetometer reads the earth's field in the
// true pose, the accelerometer gravity whenever the phone is still, and the
// gyroscope integrated from the first pose stays on the truth.
TEST(SimRecording, SensorsAgreeWithTheTruth) {
    std::istringstream in(builtin_scenario("demo"));
    Scenario sc = parse_scenario(in, "demo");
    sc.noise = 0.0;
    const EventStream s = render_scenario(sc);
    const SensorModel model;
    Quat integrated = *s.rows.front().truth;
    double worst_deg = 0.0;
    int still_rows = 0;
    bool first_gyro = true;
    for (const EventRow& r : s.rows) {
        const Quat& q = *r.truth;
        const Vec3 v{r.v[0], r.v[1], r.v[2]};
        if (r.sensor == SensorKind::kMag) {
            const Vec3 f = rotate(conjugate(q), model.field_world_ut);
            ASSERT_LE(std::max({std::fabs(v.x - f.x), std::fabs(v.y - f.y), std::fabs(v.z - f.z)}),
                      1e-9);
        } else if (r.sensor == SensorKind::kGyro) {
            const double rate = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
            if (!first_gyro && rate > 0.0) {
                integrated = normalized(integrated * axis_angle(v, rate / sc.rate_hz));
            }
            first_gyro = false;
            worst_deg = std::fmax(worst_deg, angle_between_deg(integrated, q));
        } else if (r.sensor == SensorKind::kAcc) {
            const Vec3 g = rotate(conjugate(q), {0.0, 0.0, 9.8066});
            // Still (no turn, no step): only the hand's tremor is left.
            still_rows += std::hypot(v.x - g.x, v.y - g.y, v.z - g.z) < 1e-5 ? 1 : 0;
        }
    }
    EXPECT_LE(worst_deg, 0.05);
    EXPECT_GT(still_rows, 6000);  // the phone lies on the table for 30 of the 60 s
}

// Each step lasts its time and ends in its pose (azimuth, pitch, roll).
TEST(SimRecording, EachStepEndsInItsPoseAfterItsTime) {
    const struct {
        const char* scenario;
        double duration_s, azimuth_deg, pitch_deg, roll_deg;
        double tolerance_deg;  // the hand's tremor and sway and the push of a tap turn it
    } cases[] = {
        {"start flat 30\nturn 90 2\n", 2.0, 120.0, 0.0, 0.0, 0.01},
        {"start hand 0\nturn -30\n", 1.0, 330.0, 40.0, 0.0, 0.01},
        {"pick_up 1.5\n", 1.5, 0.0, 40.0, 0.0, 0.01},
        {"start hand 200\nlay_flat\n", 1.0, 200.0, 0.0, 0.0, 0.01},
        {"start flat 10\nface_down\n", 0.6, 10.0, 0.0, 180.0, 0.01},
        {"start face_down 10\nface_up 1\n", 1.0, 10.0, 0.0, 0.0, 0.01},
        {"start hand 0\nshake\n", 0.6, 0.0, 40.0, 0.0, 0.01},
        {"start flat 0\nsnap\n", 1.62, 0.0, 0.0, 0.0, 0.01},
        {"rate 100\nstart hand 0\nwalk 4 0.5\n", 2.0, 0.0, 40.0, 0.0, 1.0},
        {"rate 1000\nstart hand 0\nwalk 2 0.5\n", 1.0, 0.0, 40.0, 0.0, 1.0},
        {"start hand 0\ndouble_tap 0.3\n", 0.34, 0.0, 40.0, 0.0, 3.0},
    };
    for (const auto& c : cases) {
        const EventRow last = render_text(c.scenario).rows.back();
        EXPECT_EQ(last.timestamp_ns, std::llround(c.duration_s * 1e9)) << c.scenario;
        EXPECT_LE(angle_between_deg(*last.truth, pose(c.azimuth_deg, c.pitch_deg, c.roll_deg)),
                  c.tolerance_deg)
            << c.scenario << " ends at azimuth " << azimuth_deg(*last.truth) << " pitch "
            << pitch_deg(*last.truth) << " roll " << roll_deg(*last.truth);
    }
}

}  // namespace
}  // namespace imu::sim
