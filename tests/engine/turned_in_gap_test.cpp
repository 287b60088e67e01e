// A still phone turned while no samples came (a gap the gyroscope never
// saw): the estimate starts far from the truth with a small covariance.
// Near the opposite pose the accelerometer correction has almost no
// gradient (the filter sat upside down for over a minute); a still device
// more than 60 deg off for 100 updates is re-initialised from its sample.

#include <ostream>
#include <string>

#include "engine_fixture.h"

namespace {

using imu::sim::SensorModel;
using imu::sim::Trajectory;
using imu::test::EngineTest;
using imu::test::replay;

constexpr double kSettledDeg = 2.0;
constexpr std::size_t kOneSecond = 200;  // samples at 200 Hz

struct Turn {
    const char* name;
    double before[3];  // azimuth, pitch, roll of the first still pose
    double after[3];   // ... and of the second
};

void PrintTo(const Turn& t, std::ostream* os) { *os << t.name; }

class TurnedInGap : public EngineTest, public testing::WithParamInterface<Turn> {};

// After 3 s in the first pose the phone lies in the second one; one second
// later (the still test needs its 20-sample window, then 100 updates) the
// estimate is within 2 deg of the truth and stays there.
TEST_P(TurnedInGap, IsBackOnTheTruthWithinOneSecond) {
    const Turn& t = GetParam();
    const SensorModel model = imu::test::quiet_phone();
    const auto settle = replay(
        record(Trajectory(imu::sim::pose(t.before[0], t.before[1], t.before[2])).hold(3.0), model),
        model);
    ASSERT_LT(settle.max_error(kOneSecond), kSettledDeg);
    const auto trace = replay(
        record(Trajectory(imu::sim::pose(t.after[0], t.after[1], t.after[2])).hold(4.0), model),
        model);
    EXPECT_LT(trace.max_error(kOneSecond), kSettledDeg);
}

INSTANTIATE_TEST_SUITE_P(
    Turns, TurnedInGap,
    testing::Values(Turn{"FaceDownToFaceUp", {0, 0, 180}, {0, 0, 0}},
                    Turn{"FaceUpToFaceDown", {30, 0, 0}, {30, 0, 180}},
                    Turn{"TopUpToTopDown", {0, 60, 0}, {0, -60, 0}},
                    Turn{"RolledOver135", {200, 0, 135}, {200, 0, 0}}),
    [](const testing::TestParamInfo<Turn>& info) { return std::string(info.param.name); });

}  // namespace
