#pragma once
// The self-contained air mouse: its own pitch and roll (gyro integration
// pulled slowly towards the accelerometer's tilt), the hand's turning rate
// turned into whole pointer steps, a precision mode for slow hands and
// suppression of the weaker axis. The exported functions of
// include/imu/pointing.h run one process-wide AirMouseState.

#include <cstdint>

namespace imu {

inline constexpr int kAirShortRing = 8;
inline constexpr int kAirLongRing = 20;
inline constexpr float kAirRestG = 9.8F;  // m/s^2, rest value of gravity

struct AirMouseState {
    std::int32_t position_mode = 0;
    float screen_width = 1680.0F;   // pixels
    float screen_height = 1050.0F;  // pixels
    float rate_rps[3] = {};         // current sample after axis mapping
    float acc_mps2[3] = {};
    bool initialised = false;
    std::int32_t calls = 0;   // completed calls, up to 300000000
    std::int32_t warmup = 0;  // output held at zero while below 50
    std::uint8_t short_index = 0;
    // Last 8 samples: acceleration (m/s^2) and rate (deg/s), per axis.
    float short_acc[3][kAirShortRing] = {{}, {}, {9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F}};
    float short_rate_dps[3][kAirShortRing] = {};
    std::uint8_t long_index = 0;
    // 8-sample acceleration means, every second call: the last 0.4 s.
    float long_acc[3][kAirLongRing] = {
        {}, {}, {9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F,
                 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F, 9.8F}};
    float pitch_deg = 0.0F;  // filtered tilt, [-180, 180]
    float roll_deg = 0.0F;
    float int_pitch_deg = 0.0F;  // gyro-integrated, within +-360
    float int_roll_deg = 0.0F;
    float roll_tangent = 0.0F;  // -ax / |az| of the long means
    float gain = 0.0F;          // precision-mode accumulator, [-5, 10]
    float divisor = 0.0F;       // gain limited to [1, 4], of the last call
    float h_dps = 0.0F;         // horizontal and vertical rate of the last call
    float v_dps = 0.0F;
    float step_acc[2] = {};  // sub-step remainders, x and y
    std::int32_t dx = 0;
    std::int32_t dy = 0;
};

// Step 1 of a call: maps (rate, acc) by the position mode into the current
// sample; other modes keep the previous sample.
void air_convert(AirMouseState& s, const float* rate_rps, const float* acc_mps2) noexcept;

// One call of the algorithm: stores the pointer step in s.dx, s.dy.
void air_update(AirMouseState& s, const float* rate_rps, const float* acc_mps2) noexcept;

// The process-wide state behind the exported functions.
AirMouseState& air_mouse_state() noexcept;

}  // namespace imu
