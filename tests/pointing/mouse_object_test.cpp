// The service's mouse object: absolute, relative and blended positioning,
// the screen edges, re-centring, and the events it injects into the
// virtual mouse device.

#include "pointing/mouse_object.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "support/output_event_reader.h"
#include "support/temp_root.h"

namespace {

using imu::velmo_mouse_obj;
using imu::test::EventReader;
using imu::test::InputEvent;
using imu::test::rel;
using imu::test::syn;
using imu::test::TempRoot;

constexpr double kPi = 3.141592653589793;
constexpr float kAbsoluteLevel = 40000.0F;  // one cycle lifts the 30-cycle mean to 1333
constexpr std::int32_t kIntervalUs = 1000;

// The records of one cycle.
struct Cycle {
    IMU imu{};
    SFC_OUT out{};
    Cycle(float yaw, float pitch, float roll, float level) {
        out.euler[0] = yaw;
        out.euler[1] = pitch;
        out.euler[2] = roll;
        out.gyro_level = level;
    }
    Cycle& gyro(float gx, float gz) {
        imu.gyro[0] = gx;
        imu.gyro[2] = gz;
        return *this;
    }
};

void run(velmo_mouse_obj& m, const Cycle& c, int key = 0, std::int32_t interval = kIntervalUs) {
    m.update(&c.imu, &c.out, key, interval);
}

// tan(W / pixels per radian) as the object forms it.
double screen_tan(std::int32_t size, float ppr) {
    return std::tan(static_cast<double>(static_cast<float>(size) / ppr));
}

double absolute_x(float yaw_deg) {
    return 1366.0 * (std::tan(yaw_deg * kPi / 180.0) / screen_tan(1366, 2371.6926F) + 0.5);
}

struct AbsoluteCase {
    const char* name;
    float centre_yaw;
    float yaw;
    float expected_offset;
    float expected_x;
};

class MouseAbsolute : public testing::TestWithParam<AbsoluteCase> {};

// With a high gyro level the pointer follows the direction of the phone:
// x = W (tan(yaw offset) / tan(W / k) + 1/2).
TEST_P(MouseAbsolute, PositionFollowsTheYawOffset) {
    const AbsoluteCase& c = GetParam();
    velmo_mouse_obj m;
    m.center_yaw_deg = c.centre_yaw;
    run(m, Cycle(c.yaw, 0.0F, 0.0F, kAbsoluteLevel));
    EXPECT_EQ(m.yaw_offset_deg, c.expected_offset);
    EXPECT_NEAR(m.internal_x, c.expected_x, 2e-3);
    EXPECT_NEAR(m.internal_y, 384.0F, 1e-4);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MouseAbsolute,
    testing::Values(
        AbsoluteCase{"Centred", 0.0F, 0.0F, 0.0F, 683.0F},
        AbsoluteCase{"TenDegrees", 0.0F, 10.0F, 10.0F, static_cast<float>(absolute_x(10.0F))},
        AbsoluteCase{"ClampedTo80", 0.0F, 100.0F, 100.0F, static_cast<float>(absolute_x(80.0F))},
        AbsoluteCase{"ClampedToMinus80", 200.0F, 100.0F, -100.0F,
                     static_cast<float>(absolute_x(-80.0F))},
        AbsoluteCase{"WrapsAcrossNorth", 1.0F, 359.0F, -2.0F,
                     static_cast<float>(absolute_x(-2.0F))},
        AbsoluteCase{"WrapsTheOtherWay", 359.0F, 1.0F, 2.0F, static_cast<float>(absolute_x(2.0F))}),
    [](const testing::TestParamInfo<AbsoluteCase>& info) { return std::string(info.param.name); });

TEST(MouseObject, TenDegreesOfYawIsAboutAQuarterScreen) {
    EXPECT_NEAR(absolute_x(10.0F), 1053.9, 0.05);
}

TEST(MouseObject, PitchOffsetMovesVerticallyWithoutWrapping) {
    velmo_mouse_obj m;
    m.center_pitch_deg = -170.0F;
    run(m, Cycle(0.0F, 170.0F, 0.0F, kAbsoluteLevel));
    EXPECT_EQ(m.pitch_offset_deg, 340.0F);  // no wrap on pitch
    EXPECT_EQ(m.clamped_pitch_offset_deg, 80.0F);
    const double expected =
        768.0 * (std::tan(80.0 * kPi / 180.0) / screen_tan(768, 2371.6926F) + 0.5);
    EXPECT_NEAR(m.internal_y, expected, 1e-2);
}

struct MoveCase {
    float pos;
    std::int32_t prev;
    std::int32_t dx;
};

// pointer_movement on a 1366-pixel axis.
TEST(MouseObject, MovementStopsAtTheEdgesAndResumes) {
    const MoveCase cases[] = {
        {700.7F, 683, 17},      // inside to inside
        {1500.0F, 1300, 66},    // run up to the right edge
        {1600.0F, 1500, 0},     // both beyond the right edge
        {1000.0F, 1600, -366},  // come back from the right
        {1366.0F, 1366, 0},     // on the edge
        {-30.0F, 40, -40},      // run up to the left edge
        {-80.0F, -30, 0},       // both beyond the left edge
        {20.0F, -50, 20},       // come back from the left
        {-0.5F, 0, 0},          // trunc toward zero on the left edge
    };
    for (const MoveCase& c : cases) {
        EXPECT_EQ(imu::pointer_movement(c.pos, c.prev, 1366), c.dx)
            << "pos " << c.pos << " prev " << c.prev;
    }
    EXPECT_EQ(imu::pointer_movement(NAN, 683, 1366), 0);
    EXPECT_EQ(imu::pointer_movement(3e9F, 0, 1366), 1366);
    EXPECT_EQ(imu::pointer_movement(-3e9F, 1366, 1366), -2147483647);
}

TEST(MouseObject, RelativeStepsFollowTheRollCompensatedRates) {
    velmo_mouse_obj m;
    // Roll 0: x rate = -gz, y rate = gx.
    run(m, Cycle(0.0F, 0.0F, 0.0F, 0.0F).gyro(0.0F, -0.1F), 0, 1000);
    const double expected_x = 683.0 + 1366.0 * std::tan(0.1) / screen_tan(1366, 2371.6926F);
    EXPECT_NEAR(m.internal_x, expected_x, 1e-3);
    EXPECT_NEAR(m.internal_y, 384.0F, 1e-4);
    EXPECT_EQ(m.dx, static_cast<int>(expected_x) - 683);
    EXPECT_EQ(m.dy, 0);
    EXPECT_EQ(m.x, static_cast<int>(expected_x));

    // Roll 90 degrees: the same gz now drives y.
    velmo_mouse_obj r;
    run(r, Cycle(0.0F, 0.0F, 90.0F, 0.0F).gyro(0.0F, 0.1F), 0, 1000);
    EXPECT_NEAR(r.internal_x, 683.0F, 1e-3);
    const double expected_y = 384.0 + 768.0 * std::tan(0.1) / screen_tan(768, 2371.6926F);
    EXPECT_NEAR(r.internal_y, expected_y, 1e-3);
}

TEST(MouseObject, IntervalScalesTheRelativeStep) {
    velmo_mouse_obj a;
    velmo_mouse_obj b;
    run(a, Cycle(0.0F, 0.0F, 0.0F, 0.0F).gyro(0.1F, 0.0F), 0, 100);
    run(b, Cycle(0.0F, 0.0F, 0.0F, 0.0F).gyro(0.1F, 0.0F), 0, 200);
    // tan grows slightly faster than its argument
    EXPECT_NEAR(b.internal_y - 384.0F, 2.0F * (a.internal_y - 384.0F), 1e-2);
    EXPECT_GT(a.internal_y, 384.0F);
}

TEST(MouseObject, RatesInsideTheDeadZoneDoNotMove) {
    velmo_mouse_obj m;
    for (int k = 0; k < 100; ++k) {
        run(m, Cycle(0.0F, 0.0F, 0.0F, 0.0F).gyro(0.02F, 0.02F), 0, 5000);
        run(m, Cycle(0.0F, 0.0F, 0.0F, 0.0F).gyro(-0.029F, -0.029F), 0, 5000);
    }
    EXPECT_EQ(m.internal_x, 683.0F);
    EXPECT_EQ(m.internal_y, 384.0F);
    EXPECT_EQ(m.dx, 0);
}

TEST(MouseObject, BlendWeighsRelativeAgainstAbsolute) {
    velmo_mouse_obj m;
    m.gyro_level_mean = 750.0F;  // w = 0.5 with a level of 750 every cycle
    std::fill(std::begin(m.gyro_level_ring), std::end(m.gyro_level_ring), 750.0F);
    run(m, Cycle(10.0F, 0.0F, 0.0F, 750.0F).gyro(0.0F, -0.1F), 0, 1000);
    const double rel = 683.0 + 1366.0 * std::tan(0.1) / screen_tan(1366, 2371.6926F);
    EXPECT_NEAR(m.internal_x, 0.5 * rel + 0.5 * absolute_x(10.0F), 2e-3);
}

TEST(MouseObject, GyroLevelMeanRunsOverThirtyCycles) {
    velmo_mouse_obj m;
    for (int k = 0; k < 30; ++k) {
        run(m, Cycle(0.0F, 0.0F, 0.0F, 600.0F));
    }
    EXPECT_NEAR(m.gyro_level_mean, 600.0F, 1e-3);
    for (int k = 0; k < 15; ++k) {
        run(m, Cycle(0.0F, 0.0F, 0.0F, 0.0F));
    }
    EXPECT_NEAR(m.gyro_level_mean, 300.0F, 1e-3);
    run(m, Cycle(0.0F, 0.0F, 0.0F, NAN));  // enters as 0
    EXPECT_NEAR(m.gyro_level_mean, 280.0F, 1e-3);
}

TEST(MouseObject, FarOutsideTheScreenIsReanchoredOnTheDirection) {
    velmo_mouse_obj m;
    m.x = 2000;  // last cycle already beyond 1.2 W
    m.internal_x = 1900.0F;
    run(m, Cycle(5.0F, 0.0F, 0.0F, 0.0F).gyro(0.0F, -0.1F), 0, 1000);
    EXPECT_NEAR(m.internal_x, absolute_x(5.0F), 2e-3);
    EXPECT_EQ(m.dx, static_cast<int>(absolute_x(5.0F)) - 1366);  // came back from the right
    // Beyond 1.2 W for the first time: no re-anchoring yet.
    velmo_mouse_obj n;
    n.x = 1366;
    n.internal_x = 1700.0F;
    run(n, Cycle(5.0F, 0.0F, 0.0F, 0.0F));
    EXPECT_EQ(n.internal_x, 1700.0F);
    EXPECT_EQ(n.dx, 0);
}

TEST(MouseObject, BadOrientationPutsThePointerAtTheCentre) {
    velmo_mouse_obj m;
    run(m, Cycle(NAN, NAN, NAN, kAbsoluteLevel).gyro(NAN, NAN));
    EXPECT_EQ(m.internal_x, 683.0F);
    EXPECT_EQ(m.internal_y, 384.0F);
    m.update(nullptr, nullptr, 0, 1000);  // ignored
    EXPECT_EQ(m.x, 683);
}

TEST(MouseObject, ResolutionIsTruncatedAndBadSizesRefused) {
    velmo_mouse_obj m;
    EXPECT_EQ(m.update_resolution(1920.7F, 1080.2F), 0);
    EXPECT_EQ(m.width, 1920);
    EXPECT_EQ(m.height, 1080);
    EXPECT_EQ(m.pixels_per_rad, 1920.0F / 0.57596F);
    EXPECT_EQ(m.internal_x, 683.0F);  // not moved until the next re-centre
    for (float bad : {0.0F, -5.0F, NAN, INFINITY, 1e30F}) {
        EXPECT_EQ(m.update_resolution(bad, 100.0F), -22);
        EXPECT_EQ(m.update_resolution(100.0F, bad), -22);
    }
    EXPECT_EQ(m.width, 1920);
    m.center();
    EXPECT_EQ(m.x, 960);
    EXPECT_EQ(m.internal_y, 540.0F);
}

// The events the object injects, read back from the stand-in device.
struct MouseDevice : testing::Test {
    TempRoot root;
    EventReader reader{
        (root.make_input_device("event3", "VelmoVirtualMouse"), root.path("/dev/input/event3"))};
};

TEST_F(MouseDevice, SlotAndInjectedMovementWithYReversed) {
    velmo_mouse_obj m;
    run(m, Cycle(5.0F, 3.0F, 0.0F, kAbsoluteLevel));
    ASSERT_GT(m.dx, 0);
    ASSERT_GT(m.dy, 0);
    float slot[3] = {};
    EXPECT_EQ(m.getdata(slot), 0);
    EXPECT_EQ(slot[0], static_cast<float>(m.dx));
    EXPECT_EQ(slot[1], static_cast<float>(m.dy));
    EXPECT_EQ(slot[2], 0.0F);
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{rel(REL_X, m.dx), rel(REL_Y, -m.dy), syn()}));
    // No movement, nothing written.
    run(m, Cycle(5.0F, 3.0F, 0.0F, kAbsoluteLevel));
    m.getdata(slot);
    EXPECT_TRUE(reader.take().empty());
    EXPECT_EQ(m.getdata(nullptr), -22);
}

TEST_F(MouseDevice, ReleasingTheRecentreKeyCentresThePointer) {
    velmo_mouse_obj m;
    run(m, Cycle(20.0F, -4.0F, 0.0F, kAbsoluteLevel), imu::kKeyRecentre);
    float slot[3];
    m.getdata(slot);
    EXPECT_EQ(slot[2], 8.0F);
    EXPECT_EQ(m.recentre_pending, 1);
    EXPECT_TRUE(reader.take().empty());  // held: nothing is injected

    run(m, Cycle(20.0F, -4.0F, 0.0F, kAbsoluteLevel), 0);
    m.getdata(slot);
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{rel(REL_X, -1366), rel(REL_Y, -768), syn(),
                                                      rel(REL_X, 683), rel(REL_Y, 384), syn()}));
    EXPECT_EQ(m.recentre_pending, 0);
    EXPECT_EQ(m.center_yaw_deg, 20.0F);
    EXPECT_EQ(m.center_pitch_deg, -4.0F);
    EXPECT_EQ(m.x, 683);

    // The same direction is now the centre: no movement.
    run(m, Cycle(20.0F, -4.0F, 0.0F, kAbsoluteLevel), 0);
    EXPECT_EQ(m.dx, 0);
    EXPECT_EQ(m.dy, 0);
    EXPECT_NEAR(m.internal_x, 683.0F, 1e-3);
}

TEST_F(MouseDevice, ButtonBitsPassThroughToTheDevice) {
    velmo_mouse_obj m;
    run(m, Cycle(0.0F, 0.0F, 0.0F, 0.0F), 0x81);
    float slot[3];
    m.getdata(slot);
    EXPECT_EQ(slot[2], 129.0F);
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{imu::test::msc_scan(0x90001),
                                                      imu::test::key(BTN_LEFT, 1), syn()}));
}

}  // namespace
