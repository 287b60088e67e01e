// The gesture pipeline, every detector, the tilt detector and the exported
// pointing algorithms on arbitrary sample streams. Each detector writes only
// its three floats; the guards around them must stay as they were.

#include <cmath>
#include <cstdint>
#include <cstring>

#include "fuzz_support.h"
#include "imu/engine.h"
#include "imu/gestures.h"
#include "imu/pointing.h"

namespace {

using imu::fuzz::check;

constexpr int kMaxSamples = 1200;
constexpr float kGuard = -12345.0F;

using Detector = int (*)(float*);
constexpr Detector kDetectors[] = {
    sfc_get_put_down, sfc_get_raise_up,  sfc_get_turn_over, sfc_get_double_flip,
    sfc_get_rolling,  sfc_get_hand_held, sfc_get_rotate,    sfc_get_shake,
    sfc_get_snap,     sfc_get_tap,       sfc_get_tap_desk,  sfc_get_tap_pocket,
    sfc_get_pedometer, sfc_get_motion_detection,
};

void run_detectors() {
    for (Detector d : kDetectors) {
        float slot[5] = {kGuard, 0.5F, 0.5F, 0.5F, kGuard};
        (void)d(slot + 1);
        check(slot[0] == kGuard && slot[4] == kGuard, "a detector writes only its slot");
    }
}

int dt_us(imu::fuzz::Bytes& in) {
    const std::uint8_t how = in.u8();
    switch (how & 3U) {
        case 0:
            return 5000;
        case 1:
            return 0;
        case 2:
            return in.i32();
        default:
            return static_cast<int>(in.u16());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    imu::fuzz::setup_root();
    imu::fuzz::Bytes in(data, size);
    IMU imu{};
    SFC_OUT out{};
    static zoom_in_out_obj zoom;
    const std::uint8_t flags = in.u8();
    for (int n = 0; n < kMaxSamples && !in.empty(); ++n) {
        const std::uint8_t what = in.u8();
        // Keep most of the last sample and change parts of it, so that
        // streams of similar samples (which the detectors look for) are cheap.
        if ((what & 1U) != 0) {
            in.triple(imu.acc, 0.0F, 0.0F, 9.80665F);
            std::memcpy(imu.acc_raw, imu.acc, sizeof imu.acc);
        }
        if ((what & 2U) != 0) {
            in.triple(imu.gyro, 0.0F, 0.0F, 0.0F);
            std::memcpy(imu.gyro_raw, imu.gyro, sizeof imu.gyro);
        }
        if ((what & 4U) != 0) {
            in.triple(imu.mag, 0.0F, 20.0F, -40.0F);
            in.triple(imu.proximity, 5.0F, 0.0F, 0.0F);
        }
        if ((what & 8U) != 0) {
            in.triple(out.gravity, 0.0F, 0.0F, 9.80665F);
            in.triple(out.linear_acc, 0.0F, 0.0F, 0.0F);
            in.triple(out.global_acc, 0.0F, 0.0F, -1.0F);
        }
        if ((what & 16U) != 0) {
            in.triple(out.euler, 0.0F, 0.0F, 0.0F);
            in.triple(out.rotation_matrix, 1.0F, 0.0F, 0.0F);
            in.triple(out.rotation_matrix + 3, 0.0F, 1.0F, 0.0F);
            in.triple(out.rotation_matrix + 6, 0.0F, 0.0F, 1.0F);
            out.acc_level = in.real();
            out.gyro_level = in.real();
        }
        // Null records leave the signals alone.
        sfc_update_gesture((what & 0xE0U) == 0xE0U ? nullptr : &imu, &out, dt_us(in));
        run_detectors();
        if ((flags & 1U) != 0) {
            float angles[2] = {out.euler[1], out.euler[2]};
            imu_motion_detect(angles);
            (void)imu_motion_is_detected(static_cast<int>(in.u8() % 8) - 1);
        }
        if ((flags & 2U) != 0) {
            float mouse[3];
            air_update_posture(imu.gyro, imu.acc);
            conver_position(imu.gyro, imu.acc);
            (void)getmouse_relative_coordinates(mouse);
            (void)phoneIndicator(imu.gyro, imu.acc, what & 1);
            (void)zoom.get_zoom_in_out(imu.gyro, imu.acc, (what >> 5) & 1,
                                       static_cast<int>(in.u8() % 12) - 1, (what >> 6) & 3);
        }
    }
    return 0;
}
