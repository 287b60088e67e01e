// The service's zoom sensor: whole-degree tilts from gravity.

#include "pointing/zoom_angle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using imu::zoom_angle_obj;
using Slot = std::vector<float>;

Slot step(zoom_angle_obj& z, float gx, float gy, float gz) {
    SFC_OUT out{};
    out.gravity[0] = gx;
    out.gravity[1] = gy;
    out.gravity[2] = gz;
    EXPECT_EQ(z.update(nullptr, &out), 0);
    float slot[3] = {-1, -1, -1};
    EXPECT_EQ(z.getdata(slot), 0);
    return {slot[0], slot[1], slot[2]};
}

TEST(ZoomAngle, FirstCycleTilts) {
    const struct {
        float gx, gy, gz, x_tilt, y_tilt;
    } cases[] = {
        {0.0F, 4.9033F, 8.4925F, 0.0F, 29.0F},  // 29.999999 with pi in single precision
        {4.9033F, 0.0F, 8.4925F, 29.0F, 0.0F},  {-4.9033F, -4.9033F, 8.4925F, -29.0F, -29.0F},
        {0.0F, 7.0F, 6.87F, 0.0F, 45.0F},       {0.0F, 9.9F, 0.0F, 0.0F, 90.0F},
        {0.0F, -10.0F, 0.0F, 0.0F, -90.0F},     {9.8066F, -9.8066F, 0.0F, 90.0F, -90.0F},
        {0.0F, 4.9033F, -8.4925F, 0.0F, 29.0F},  // face down: plain on the first cycle
    };
    for (const auto& c : cases) {
        zoom_angle_obj z;
        EXPECT_EQ(step(z, c.gx, c.gy, c.gz), (Slot{0.0F, c.x_tilt, c.y_tilt}))
            << c.gx << " " << c.gy << " " << c.gz;
    }
}

// Face down, 30 degrees: eleven cycles of the plain angle, then 180 - 30.
TEST(ZoomAngle, FaceDownContinuesPastNinetyAfterTenCycles) {
    zoom_angle_obj z;
    for (int k = 1; k <= 11; ++k) {
        EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 29.0F) << "cycle " << k;
    }
    EXPECT_EQ(z.x_face_down, 11);  // x counts separately (gravity x 0 is below the clamps)
    EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 150.0F);
    EXPECT_EQ(step(z, 0.0F, -4.9033F, -8.4925F)[2], -151.0F);  // trunc(209.99..) - 360
    EXPECT_EQ(step(z, 4.9033F, 0.0F, -8.4925F), (Slot{0.0F, 150.0F, 180.0F}));
    EXPECT_EQ(step(z, 0.0F, 10.0F, -1.0F)[2], 90.0F);  // the clamps leave the count alone
    EXPECT_EQ(z.y_face_down, 11);
    EXPECT_EQ(step(z, 0.0F, 4.9033F, 8.4925F)[2], 29.0F);  // one face-up cycle resets it
    EXPECT_EQ(z.y_face_down, 0);
    EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 29.0F);
}

TEST(ZoomAngle, BadInputKeepsTheLastAngles) {
    zoom_angle_obj z;
    step(z, 0.0F, 7.0F, 6.87F);
    EXPECT_EQ(step(z, NAN, 1.0F, 1.0F), (Slot{0.0F, 0.0F, 45.0F}));
    EXPECT_EQ(z.update(nullptr, nullptr), 0);
    EXPECT_EQ(z.getdata(nullptr), -22);
    EXPECT_EQ(step(z, INFINITY, -INFINITY, 1.0F), (Slot{0.0F, 90.0F, -90.0F}));
}

}  // namespace
