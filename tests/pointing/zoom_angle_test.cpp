// The service's zoom sensor: whole-degree tilts from gravity.

#include "pointing/zoom_angle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using imu::zoom_angle_obj;

std::vector<float> step(zoom_angle_obj& z, float gx, float gy, float gz) {
    SFC_OUT out{};
    out.gravity[0] = gx;
    out.gravity[1] = gy;
    out.gravity[2] = gz;
    EXPECT_EQ(z.update(nullptr, &out), 0);
    float slot[3] = {-1, -1, -1};
    EXPECT_EQ(z.getdata(slot), 0);
    return {slot[0], slot[1], slot[2]};
}

struct TiltCase {
    const char* name;
    float gx, gy, gz;
    float x_tilt, y_tilt;
};

class ZoomTilt : public testing::TestWithParam<TiltCase> {};

TEST_P(ZoomTilt, FirstCycle) {
    const TiltCase& c = GetParam();
    zoom_angle_obj z;
    EXPECT_EQ(step(z, c.gx, c.gy, c.gz), (std::vector<float>{0.0F, c.x_tilt, c.y_tilt}));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZoomTilt,
    testing::Values(
        // The quotient is exactly 0.5, but pi in single precision makes it 29.999999.
        TiltCase{"ThirtyDegreesTruncatesTo29", 0.0F, 4.9033F, 8.4925F, 0.0F, 29.0F},
        TiltCase{"XAxisTheSame", 4.9033F, 0.0F, 8.4925F, 29.0F, 0.0F},
        TiltCase{"NegativeTruncatesTowardZero", -4.9033F, -4.9033F, 8.4925F, -29.0F, -29.0F},
        TiltCase{"FortyFive", 0.0F, 7.0F, 6.87F, 0.0F, 45.0F},
        TiltCase{"AboveGravityIsNinety", 0.0F, 9.9F, 0.0F, 0.0F, 90.0F},
        TiltCase{"BelowMinusGravityIsMinusNinety", 0.0F, -10.0F, 0.0F, 0.0F, -90.0F},
        TiltCase{"ExactlyGravity", 9.8066F, -9.8066F, 0.0F, 90.0F, -90.0F},
        TiltCase{"FaceDownFirstCycleIsPlain", 0.0F, 4.9033F, -8.4925F, 0.0F, 29.0F}),
    [](const testing::TestParamInfo<TiltCase>& info) { return std::string(info.param.name); });

// GIVEN the phone face down, tilted 30 degrees WHEN it stays so THEN the
// first eleven cycles report the plain angle and from the twelfth the angle
// runs on past 90: 180 - 30.
TEST(ZoomAngle, FaceDownContinuesPastNinetyAfterTenCycles) {
    zoom_angle_obj z;
    for (int k = 1; k <= 11; ++k) {
        EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 29.0F) << "cycle " << k;
        EXPECT_EQ(z.y_face_down, k);
    }
    EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 150.0F);  // trunc(150.0000008)
    EXPECT_EQ(z.y_face_down, 11);
    // The other side: trunc(209.9999992) = 209, published as -151.
    EXPECT_EQ(step(z, 0.0F, -4.9033F, -8.4925F)[2], -151.0F);
    // The clamps leave the count alone.
    EXPECT_EQ(step(z, 0.0F, 10.0F, -1.0F)[2], 90.0F);
    EXPECT_EQ(z.y_face_down, 11);
    // One face-up cycle resets it.
    EXPECT_EQ(step(z, 0.0F, 4.9033F, 8.4925F)[2], 29.0F);
    EXPECT_EQ(z.y_face_down, 0);
    EXPECT_EQ(step(z, 0.0F, 4.9033F, -8.4925F)[2], 29.0F);
    EXPECT_EQ(z.y_face_down, 1);
}

TEST(ZoomAngle, AxesCountFaceDownCyclesSeparately) {
    zoom_angle_obj z;
    for (int k = 0; k < 12; ++k) {
        step(z, 0.0F, 4.9033F, -8.4925F);
    }
    // x was face down all along too (gravity x 0 below the clamps).
    EXPECT_EQ(z.x_face_down, 11);
    EXPECT_EQ(step(z, 4.9033F, 0.0F, -8.4925F), (std::vector<float>{0.0F, 150.0F, 180.0F}));
}

TEST(ZoomAngle, BadInputKeepsTheLastAngles) {
    zoom_angle_obj z;
    step(z, 0.0F, 7.0F, 6.87F);
    EXPECT_EQ(step(z, NAN, 1.0F, 1.0F), (std::vector<float>{0.0F, 0.0F, 45.0F}));
    EXPECT_EQ(z.update(nullptr, nullptr), 0);
    EXPECT_EQ(z.getdata(nullptr), -22);
    EXPECT_EQ(step(z, INFINITY, -INFINITY, 1.0F), (std::vector<float>{0.0F, 90.0F, -90.0F}));
}

}  // namespace
