// A still phone turned while no samples came (a gap the gyroscope never
// saw): the estimate starts far from the truth with a small covariance.
// Near the opposite pose the accelerometer correction has almost no
// gradient (the filter sat upside down for over a minute); a still device
// more than 60 deg off for 100 updates is re-initialised from its sample.

#include <string>

#include "engine_fixture.h"

namespace {

using imu::test::replay;

struct Turn {
    const char* name;
    double before[3];  // azimuth, pitch, roll of the first still pose
    double after[3];   // ... and of the second
};

class TurnedInGap : public imu::test::EngineTest, public testing::WithParamInterface<Turn> {};

// After 3 s in the first pose the phone lies in the second one; one second
// later (the still test needs its 20-sample window, then 100 updates) the
// estimate is within 2 deg of the truth and stays there.
TEST_P(TurnedInGap, IsBackOnTheTruthWithinOneSecond) {
    const auto model = imu::test::quiet_phone();
    ASSERT_LT(replay(imu::test::still(GetParam().before, 3.0), model).max_error(200), 2.0);
    EXPECT_LT(replay(imu::test::still(GetParam().after, 4.0), model).max_error(200), 2.0);
}

INSTANTIATE_TEST_SUITE_P(
    Turns, TurnedInGap,
    testing::Values(Turn{"FaceDownToFaceUp", {0, 0, 180}, {0, 0, 0}},
                    Turn{"FaceUpToFaceDown", {30, 0, 0}, {30, 0, 180}},
                    Turn{"TopUpToTopDown", {0, 60, 0}, {0, -60, 0}},
                    Turn{"RolledOver135", {200, 0, 135}, {200, 0, 0}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
