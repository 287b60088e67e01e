// Recordings rendered from scenarios: the CSV reads back as written, the
// sensors agree with the truth they carry, each step ends in its pose, and
// a seed gives the same file every time.

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

#include "sim/event_csv.h"
#include "sim/scenario.h"

namespace imu::sim {
namespace {

constexpr double kG = 9.8066;

EventStream render_text(const std::string& text) {
    std::istringstream in(text);
    return render_scenario(parse_scenario(in, "t"));
}

std::string csv_of(const EventStream& s) {
    std::ostringstream out;
    write_event_csv(out, s);
    return out.str();
}

std::size_t count(const EventStream& s, SensorKind kind) {
    std::size_t n = 0;
    for (const EventRow& r : s.rows) {
        n += r.sensor == kind ? 1 : 0;
    }
    return n;
}

// A shake held in the hand at 100 Hz with the magnetometer at 25 Hz: 2 s.
constexpr const char* kShort =
    "rate 100\nmag_rate 25\nseed 5\nstart hand 45\nstill 1\nshake\nstill 0.4\n";

TEST(SimRecording, CsvReadsBackAsWritten) {
    const EventStream written = render_text(kShort);
    std::istringstream in(csv_of(written));
    EventStream read;
    std::string error;
    ASSERT_TRUE(read_event_csv(in, &read, &error)) << error;

    EXPECT_EQ(count(read, SensorKind::kAcc), 201U);
    EXPECT_EQ(count(read, SensorKind::kGyro), 201U);
    EXPECT_EQ(count(read, SensorKind::kMag), 51U);
    ASSERT_EQ(read.rows.size(), written.rows.size());
    for (std::size_t i = 0; i < read.rows.size(); ++i) {
        const EventRow& a = written.rows[i];
        const EventRow& b = read.rows[i];
        ASSERT_EQ(b.sensor, a.sensor) << "row " << i;
        ASSERT_EQ(b.timestamp_ns, a.timestamp_ns) << "row " << i;
        const std::int64_t period_ns = a.sensor == SensorKind::kMag ? 40000000 : 10000000;
        ASSERT_EQ(b.timestamp_ns % period_ns, 0) << "row " << i;
        const double step = 0.5 * std::pow(10.0, -decimals(a.sensor)) + 1e-12;
        for (int k = 0; k < 3; ++k) {
            ASSERT_NEAR(b.v[k], a.v[k], step) << "row " << i;
        }
        ASSERT_TRUE(b.truth.has_value()) << "row " << i;
        ASSERT_NEAR(b.truth->w, a.truth->w, 0.5e-6) << "row " << i;
        ASSERT_NEAR(b.truth->x, a.truth->x, 0.5e-6) << "row " << i;
        ASSERT_NEAR(b.truth->y, a.truth->y, 0.5e-6) << "row " << i;
        ASSERT_NEAR(b.truth->z, a.truth->z, 0.5e-6) << "row " << i;
    }
    ASSERT_EQ(read.events.size(), 1U);
    EXPECT_EQ(read.events[0].name, "shake");
    EXPECT_EQ(read.events[0].detail, "");
    EXPECT_EQ(read.events[0].t_s, 1.0);
}

TEST(SimRecording, SameSeedSameFileOtherSeedOtherNoiseOnly) {
    const std::string a = csv_of(render_text(kShort));
    EXPECT_EQ(csv_of(render_text(kShort)), a);
    std::string other = kShort;
    other.replace(other.find("seed 5"), 6, "seed 6");
    const EventStream b = render_text(other);
    EXPECT_NE(csv_of(b), a);
    const EventStream first = render_text(kShort);
    for (std::size_t i = 0; i < b.rows.size(); ++i) {
        const Quat& p = *b.rows[i].truth;
        const Quat& q = *first.rows[i].truth;
        ASSERT_TRUE(p.w == q.w && p.x == q.x && p.y == q.y && p.z == q.z) << "row " << i;
    }
}

// The demo without noise: the magnetometer reads the earth's field in the
// true pose, the accelerometer gravity whenever the phone is still, and the
// gyroscope integrated from the first pose stays on the truth.
TEST(SimRecording, SensorsAgreeWithTheTruth) {
    std::istringstream in(builtin_scenario("demo"));
    Scenario sc = parse_scenario(in, "demo");
    sc.noise = 0.0;
    const EventStream s = render_scenario(sc);
    const double dt_s = 1.0 / sc.rate_hz;
    const SensorModel model;
    Quat integrated = *s.rows.front().truth;
    double worst_deg = 0.0;
    int still_rows = 0;
    bool first_gyro = true;
    for (const EventRow& r : s.rows) {
        const Quat& q = *r.truth;
        if (r.sensor == SensorKind::kMag) {
            const Vec3 f = rotate(conjugate(q), model.field_world_ut);
            ASSERT_NEAR(r.v[0], f.x, 1e-9);
            ASSERT_NEAR(r.v[1], f.y, 1e-9);
            ASSERT_NEAR(r.v[2], f.z, 1e-9);
        } else if (r.sensor == SensorKind::kGyro) {
            const Vec3 w{r.v[0], r.v[1], r.v[2]};
            const double rate = std::sqrt(w.x * w.x + w.y * w.y + w.z * w.z);
            if (!first_gyro && rate > 0.0) {
                integrated = normalized(integrated * axis_angle(w, rate * dt_s));
            }
            first_gyro = false;
            worst_deg = std::fmax(worst_deg, angle_between_deg(integrated, q));
        } else if (r.sensor == SensorKind::kAcc) {
            const Vec3 g = rotate(conjugate(q), {0.0, 0.0, kG});
            const double d =
                std::sqrt((r.v[0] - g.x) * (r.v[0] - g.x) + (r.v[1] - g.y) * (r.v[1] - g.y) +
                          (r.v[2] - g.z) * (r.v[2] - g.z));
            // Still (no turn, no step): only the hand's tremor is left.
            still_rows += d < 1e-5 ? 1 : 0;
        }
    }
    EXPECT_LE(worst_deg, 0.05);
    EXPECT_GT(still_rows, 6000);  // the phone lies on the table for 30 of the 60 s
}

struct StepCase {
    const char* scenario;
    double duration_s;
    double azimuth_deg, pitch_deg, roll_deg;  // the pose at the end
    double tolerance_deg = 0.01;
};

void PrintTo(const StepCase& c, std::ostream* os) {
    for (const char* p = c.scenario; *p != '\0'; ++p) {
        *os << (*p == '\n' ? ';' : *p);
    }
}

class StepEnds : public testing::TestWithParam<StepCase> {};

TEST_P(StepEnds, InItsPoseAfterItsTime) {
    const StepCase& c = GetParam();
    const EventStream s = render_text(c.scenario);
    const EventRow& last = s.rows.back();
    EXPECT_EQ(last.timestamp_ns, std::llround(c.duration_s * 1e9));
    EXPECT_LE(angle_between_deg(*last.truth, pose(c.azimuth_deg, c.pitch_deg, c.roll_deg)),
              c.tolerance_deg)
        << "azimuth " << azimuth_deg(*last.truth) << " pitch " << pitch_deg(*last.truth) << " roll "
        << roll_deg(*last.truth);
}

INSTANTIATE_TEST_SUITE_P(
    Table, StepEnds,
    testing::Values(StepCase{"start flat 30\nturn 90 2\n", 2.0, 120.0, 0.0, 0.0},
                    StepCase{"start hand 0\nturn -30\n", 1.0, 330.0, 40.0, 0.0},
                    StepCase{"pick_up 1.5\n", 1.5, 0.0, 40.0, 0.0},
                    StepCase{"start hand 200\nlay_flat\n", 1.0, 200.0, 0.0, 0.0},
                    StepCase{"start flat 10\nface_down\n", 0.6, 10.0, 0.0, 180.0},
                    StepCase{"start face_down 10\nface_up 1\n", 1.0, 10.0, 0.0, 0.0},
                    StepCase{"start hand 0\nshake\n", 0.6, 0.0, 40.0, 0.0},
                    StepCase{"start flat 0\nsnap\n", 1.62, 0.0, 0.0, 0.0},
                    // The hand's tremor and sway, and the push of each tap,
                    // turn the phone a little.
                    StepCase{"rate 100\nstart hand 0\nwalk 4 0.5\n", 2.0, 0.0, 40.0, 0.0, 1.0},
                    StepCase{"rate 1000\nstart hand 0\nwalk 2 0.5\n", 1.0, 0.0, 40.0, 0.0, 1.0},
                    StepCase{"start hand 0\ndouble_tap 0.3\n", 0.34, 0.0, 40.0, 0.0, 3.0}));

struct BadCsv {
    const char* text;
    const char* error;
};

void PrintTo(const BadCsv& c, std::ostream* os) {
    for (const char* p = c.text; *p != '\0'; ++p) {
        *os << (*p == '\n' ? ';' : *p);
    }
}

class EventCsvErrors : public testing::TestWithParam<BadCsv> {};

TEST_P(EventCsvErrors, NameTheLine) {
    std::istringstream in(GetParam().text);
    EventStream s;
    std::string error;
    EXPECT_FALSE(read_event_csv(in, &s, &error));
    EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EventCsvErrors,
    testing::Values(BadCsv{"0,acc,1,2\n", "line 1: expected 5 or 9 columns, found 4"},
                    BadCsv{"# x\n0,acc,1,2,3\n5,gyro,1,x,3\n", "line 3: bad number 'x'"},
                    BadCsv{"0.5,acc,1,2,3\n", "line 1: bad timestamp '0.5'"},
                    BadCsv{"9,acc,1,2,3\n8,acc,1,2,3\n", "line 2: timestamp goes backwards"},
                    BadCsv{"0,baro,1,2,3\n", "line 1: unknown sensor 'baro'"},
                    BadCsv{"0,acc,1,2,3,1,0,0\n", "line 1: expected 5 or 9 columns, found 8"},
                    BadCsv{"0,acc,1,2,3,1,0,0,zz\n", "line 1: bad number 'zz'"},
                    BadCsv{"# event,abc,shake\n", "line 1: event line needs a time and a name"},
                    BadCsv{"timestamp_ns,sensor,x,y,z\ntimestamp_ns,sensor,x,y,z\n",
                           "line 2: bad timestamp 'timestamp_ns'"}));

TEST(EventCsv, HeaderAndTruthAreOptional) {
    std::istringstream in("0,acc,1,2,3\n0,gyro,0.5,0,0,,,,\n# event,0.250,snap\n");
    EventStream s;
    std::string error;
    ASSERT_TRUE(read_event_csv(in, &s, &error)) << error;
    ASSERT_EQ(s.rows.size(), 2U);
    EXPECT_FALSE(s.rows[0].truth.has_value());
    EXPECT_FALSE(s.rows[1].truth.has_value());
    EXPECT_EQ(s.rows[1].v[0], 0.5);
    ASSERT_EQ(s.events.size(), 1U);
    EXPECT_EQ(s.events[0].t_s, 0.25);
}

}  // namespace
}  // namespace imu::sim
