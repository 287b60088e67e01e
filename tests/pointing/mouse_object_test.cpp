// The service's mouse object: absolute, relative and blended positioning,
// the screen edges, re-centring, and the events it injects.

#include "pointing/mouse_object.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "support/output_event_reader.h"
#include "support/temp_root.h"

namespace {

using imu::velmo_mouse_obj;
using imu::test::InputEvent;
using imu::test::rel;
using imu::test::syn;

constexpr double kPi = 3.141592653589793;
constexpr float kAbsolute = 40000.0F;  // one cycle lifts the 30-cycle level mean to 1333

// One cycle: orientation (deg), gyro level, x and z rates, key, interval (us).
void run(velmo_mouse_obj& m, float yaw, float pitch, float roll, float level, float gx = 0.0F,
         float gz = 0.0F, int key = 0, std::int32_t interval = 1000) {
    IMU imu{};
    SFC_OUT out{};
    out.euler[0] = yaw;
    out.euler[1] = pitch;
    out.euler[2] = roll;
    out.gyro_level = level;
    imu.gyro[0] = gx;
    imu.gyro[2] = gz;
    m.update(&imu, &out, key, interval);
}

using Pos = std::pair<float, float>;
Pos at(const velmo_mouse_obj& m) { return {m.internal_x, m.internal_y}; }

// size * (tan(angle) / tan(size / pixels per radian) + 1/2)
double screen_pos(std::int32_t size, double tan_angle) {
    const double half = std::tan(static_cast<double>(static_cast<float>(size) / 2371.6926F));
    return size * (tan_angle / half + 0.5);
}
double absolute_x(double yaw_deg) { return screen_pos(1366, std::tan(yaw_deg * kPi / 180.0)); }

// x = W (tan(yaw offset, clamped to +-80) / tan(W / k) + 1/2), yaw wrapping.
TEST(MouseObject, AbsolutePositionFollowsTheYawOffset) {
    const struct {
        float centre, yaw, offset;
        double x;
    } cases[] = {{0.0F, 0.0F, 0.0F, 683.0},
                 {0.0F, 10.0F, 10.0F, absolute_x(10)},
                 {0.0F, 100.0F, 100.0F, absolute_x(80)},
                 {200.0F, 100.0F, -100.0F, absolute_x(-80)},
                 {1.0F, 359.0F, -2.0F, absolute_x(-2)},
                 {359.0F, 1.0F, 2.0F, absolute_x(2)}};
    EXPECT_NEAR(absolute_x(10), 1053.9, 0.05);  // ten degrees is about a quarter screen
    for (const auto& c : cases) {
        velmo_mouse_obj m;
        m.center_yaw_deg = c.centre;
        run(m, c.yaw, 0.0F, 0.0F, kAbsolute);
        EXPECT_EQ(m.yaw_offset_deg, c.offset) << c.yaw;
        EXPECT_NEAR(m.internal_x, c.x, 2e-3) << c.yaw;
        EXPECT_NEAR(m.internal_y, 384.0F, 1e-4);
    }
    velmo_mouse_obj p;  // pitch does not wrap
    p.center_pitch_deg = -170.0F;
    run(p, 0.0F, 170.0F, 0.0F, kAbsolute);
    EXPECT_EQ(p.pitch_offset_deg, 340.0F);
    EXPECT_EQ(p.clamped_pitch_offset_deg, 80.0F);
    EXPECT_NEAR(p.internal_y, screen_pos(768, std::tan(80.0 * kPi / 180.0)), 1e-2);
}

TEST(MouseObject, MovementStopsAtTheEdgesAndResumes) {
    const struct {
        float pos;
        std::int32_t prev, dx;
    } cases[] = {{700.7F, 683, 17},     {1500.0F, 1300, 66}, {1600.0F, 1500, 0},
                 {1000.0F, 1600, -366}, {1366.0F, 1366, 0},  {-30.0F, 40, -40},
                 {-80.0F, -30, 0},      {20.0F, -50, 20},    {-0.5F, 0, 0},
                 {NAN, 683, 0},         {3e9F, 0, 1366},     {-3e9F, 1366, -2147483647}};
    for (const auto& c : cases) {
        EXPECT_EQ(imu::pointer_movement(c.pos, c.prev, 1366), c.dx) << c.pos << " " << c.prev;
    }
}

// Relative steps: x rate = -gz, y rate = gx, turned by the roll; dead zone below 0.03.
TEST(MouseObject, RelativeStepsFollowTheRollCompensatedRates) {
    const double step_x = screen_pos(1366, std::tan(0.1)) - 683.0;
    velmo_mouse_obj m;
    run(m, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, -0.1F);
    EXPECT_NEAR(m.internal_x, 683.0 + step_x, 1e-3);
    EXPECT_NEAR(m.internal_y, 384.0F, 1e-4);
    EXPECT_EQ(std::make_pair(m.dx, m.dy), std::make_pair(static_cast<int>(step_x), 0));
    velmo_mouse_obj r;
    run(r, 0.0F, 0.0F, 90.0F, 0.0F, 0.0F, 0.1F);
    EXPECT_NEAR(r.internal_x, 683.0F, 1e-3);
    EXPECT_NEAR(r.internal_y, screen_pos(768, std::tan(0.1)), 1e-3);
    velmo_mouse_obj a;  // the interval scales the step
    velmo_mouse_obj b;
    run(a, 0.0F, 0.0F, 0.0F, 0.0F, 0.1F, 0.0F, 0, 100);
    run(b, 0.0F, 0.0F, 0.0F, 0.0F, 0.1F, 0.0F, 0, 200);
    EXPECT_GT(a.internal_y, 384.0F);
    EXPECT_NEAR(b.internal_y - 384.0F, 2.0F * (a.internal_y - 384.0F), 1e-2);
    velmo_mouse_obj d;
    for (int k = 0; k < 100; ++k) {
        run(d, 0.0F, 0.0F, 0.0F, 0.0F, 0.02F, 0.02F, 0, 5000);
        run(d, 0.0F, 0.0F, 0.0F, 0.0F, -0.029F, -0.029F, 0, 5000);
    }
    EXPECT_EQ(at(d), Pos(683.0F, 384.0F));
}

TEST(MouseObject, BlendWeighsRelativeAgainstAbsoluteByTheLevelMean) {
    velmo_mouse_obj m;
    m.gyro_level_mean = 750.0F;  // w = 0.5
    std::fill(std::begin(m.gyro_level_ring), std::end(m.gyro_level_ring), 750.0F);
    run(m, 10.0F, 0.0F, 0.0F, 750.0F, 0.0F, -0.1F);
    EXPECT_NEAR(m.internal_x, 0.5 * screen_pos(1366, std::tan(0.1)) + 0.5 * absolute_x(10), 2e-3);
}

TEST(MouseObject, FarOutsideTheScreenIsReanchoredOnTheSecondCycle) {
    velmo_mouse_obj m;
    m.x = 2000;  // last cycle already beyond 1.2 W
    m.internal_x = 1900.0F;
    run(m, 5.0F, 0.0F, 0.0F, 0.0F, 0.0F, -0.1F);
    EXPECT_NEAR(m.internal_x, absolute_x(5), 2e-3);
    EXPECT_EQ(m.dx, static_cast<int>(absolute_x(5)) - 1366);
    velmo_mouse_obj n;
    n.x = 1366;
    n.internal_x = 1700.0F;
    run(n, 5.0F, 0.0F, 0.0F, 0.0F);
    EXPECT_TRUE(n.internal_x == 1700.0F && n.dx == 0);
}

TEST(MouseObject, BadInputIsRefusedOrCentres) {
    velmo_mouse_obj m;
    run(m, NAN, NAN, NAN, kAbsolute, NAN, NAN);
    m.update(nullptr, nullptr, 0, 1000);
    EXPECT_EQ(at(m), Pos(683.0F, 384.0F));
    EXPECT_TRUE(m.x == 683 && m.getdata(nullptr) == -22);
    for (float bad : {0.0F, -5.0F, NAN, INFINITY, 1e30F}) {
        EXPECT_EQ(m.update_resolution(bad, 100.0F), -22);
        EXPECT_EQ(m.update_resolution(100.0F, bad), -22);
    }
    EXPECT_EQ(m.update_resolution(1920.7F, 1080.2F), 0);
    EXPECT_EQ(m.width, 1920);
    EXPECT_EQ(m.pixels_per_rad, 1920.0F / 0.57596F);
    EXPECT_EQ(m.internal_x, 683.0F);  // not moved until the next re-centre
    m.center();
    EXPECT_TRUE(m.x == 960 && m.internal_y == 540.0F);
}

// The events injected, read back from the stand-in device.
struct MouseDevice : testing::Test {
    imu::test::TempRoot root;
    imu::test::EventReader reader{
        (root.make_input_device("event3", "VelmoVirtualMouse"), root.path("/dev/input/event3"))};
    float slot[3] = {};
};

TEST_F(MouseDevice, MovementIsInjectedWithYReversedAndButtonsPassThrough) {
    velmo_mouse_obj m;
    run(m, 5.0F, 3.0F, 0.0F, kAbsolute);
    ASSERT_TRUE(m.dx > 0 && m.dy > 0);
    EXPECT_EQ(m.getdata(slot), 0);
    EXPECT_EQ(std::vector<float>(slot, slot + 3),
              (std::vector<float>{static_cast<float>(m.dx), static_cast<float>(m.dy), 0.0F}));
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{rel(REL_X, m.dx), rel(REL_Y, -m.dy), syn()}));
    run(m, 5.0F, 3.0F, 0.0F, kAbsolute);  // no movement, nothing written
    m.getdata(slot);
    EXPECT_TRUE(reader.take().empty());
    run(m, 5.0F, 3.0F, 0.0F, kAbsolute, 0.0F, 0.0F, 0x81);
    m.getdata(slot);
    EXPECT_EQ(slot[2], 129.0F);
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{imu::test::msc_scan(0x90001),
                                                      imu::test::key(BTN_LEFT, 1), syn()}));
}

TEST_F(MouseDevice, ReleasingTheRecentreKeyCentresThePointer) {
    velmo_mouse_obj m;
    run(m, 20.0F, -4.0F, 0.0F, kAbsolute, 0.0F, 0.0F, imu::kKeyRecentre);
    m.getdata(slot);
    EXPECT_EQ(slot[2], 8.0F);
    EXPECT_EQ(m.recentre_pending, 1);
    EXPECT_TRUE(reader.take().empty());  // held: nothing is injected
    run(m, 20.0F, -4.0F, 0.0F, kAbsolute);
    m.getdata(slot);
    EXPECT_EQ(reader.take(), (std::vector<InputEvent>{rel(REL_X, -1366), rel(REL_Y, -768), syn(),
                                                      rel(REL_X, 683), rel(REL_Y, 384), syn()}));
    EXPECT_EQ(m.recentre_pending, 0);
    EXPECT_EQ(Pos(m.center_yaw_deg, m.center_pitch_deg), Pos(20.0F, -4.0F));
    run(m, 20.0F, -4.0F, 0.0F, kAbsolute);  // the same direction is now the centre
    EXPECT_TRUE(m.dx == 0 && m.dy == 0);
    EXPECT_NEAR(m.internal_x, 683.0F, 1e-3);
}

}  // namespace
