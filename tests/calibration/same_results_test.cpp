// A calibration fit every target reproduces bit for bit (x86-64, 64-bit
// ARM and 32-bit ARM): the block and the file it writes, folded into a
// digest; a digest that moves on one target only means a result that
// differs there.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "calibration/calibration_block.h"
#include "calibration/fitting.h"
#include "support/bit_digest.h"
#include "sim/calib_samples.h"
#include "support/temp_root.h"

namespace imu::test {
namespace {

// The ellipsoid fit of a noisy run with strong errors: the calibration
// block and the calibration file, byte for byte.
TEST(SameResults, FitOfANoisyRunGivesTheSameBlockAndFile) {
    TempRoot root;
    CalibRunSetup setup;
    setup.acc = {{-0.6F, 0.45F, -0.8F}, {0.93F, 1.08F, 0.96F}};
    setup.mag = {{-60.0F, 80.0F, 35.0F}, {0.85F, 1.15F, 1.05F}};
    setup.seed = 11;
    root.write("/data/system/acc_mag_raw.txt", raw_file_text(make_calib_run(setup)));
    testing::internal::CaptureStdout();
    const int result = calculate_bias();
    (void)testing::internal::GetCapturedStdout();
    ASSERT_EQ(result, 0);
    BitDigest d;
    std::string block;
    for (const float v : calibration_state().s_calib2) {
        d.add(v);
        char field[32];
        std::snprintf(field, sizeof field, "%a ", static_cast<double>(v));
        block += field;
    }
    const std::string file = root.read("/data/system/velmoGR.ini");
    ASSERT_NE(file, "<missing>");
    d.add(file);
    EXPECT_EQ(d.value(), 0xD22D4AB2292C8342ULL) << block << "\n" << file;
}

}  // namespace
}  // namespace imu::test
