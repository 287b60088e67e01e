// The air mouse of include/imu/pointing.h: one call per 10 ms sample.
//
//   rate (rad/s), acc (m/s^2) --axis map--> 8-sample rings
//     rings --mean--> A8 --every 2nd call--> 20-slot ring --mean--> A20
//     gyro (deg/s), pitch P, roll R --> h = -gz - gy sin P, v = -gx
//     roll removed:  H = cos R h - sin R v,  V = cos R v + sin R h
//     precision:     D in [1, 4] grows while the hand is still
//     accumulate H/D, V/D; emit a quarter once 4 units have gathered
//     dominance, clamp to +-127, warm-up --> (dx, dy)

#include "pointing/air_mouse.h"

#include <cmath>

#include "imu/pointing.h"

namespace imu {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
AirMouseState g_air;

constexpr float kDegPerRad = 57.295F;  // used as is, not 180/pi
constexpr double kDegPerRadD = 57.295;
constexpr double kDtS = 0.01;            // the caller's fixed 100 Hz cadence
constexpr float kLargestInput = 1.0e6F;  // beyond any sensor: the sample is ignored
constexpr std::int32_t kMaxCalls = 300000000;
constexpr std::int32_t kWarmupDone = 50;
constexpr std::int32_t kWarmupAfterMotion = 150;
constexpr std::int32_t kNeutralCalls = 5;    // calls with neutral samples and no output
constexpr std::int32_t kLongRingStart = 20;  // long rings fill after this many calls
constexpr double kRateFloorDps = 0.1;        // slower gyro axes are ignored
constexpr float kTiltGain = 0.005F;          // pull towards the accelerometer tilt
constexpr float kStepUnits = 4.0F;           // accumulated units per emitted step
constexpr double kMaxStep = 127.0;

double d(float v) { return static_cast<double>(v); }

bool usable(const float* v) {
    for (int k = 0; k < 3; ++k) {
        if (!std::isfinite(v[k]) || std::fabs(v[k]) > kLargestInput) {
            return false;
        }
    }
    return true;
}

// Truncates toward zero; whole-number arithmetic on the long means stays
// far from overflow.
std::int64_t trunc_bounded(float v) {
    constexpr float kLimit = 1.0e9F;
    return static_cast<std::int64_t>(std::fmax(-kLimit, std::fmin(kLimit, v)));
}

float wrap180(float a) {
    if (a < -180.0F) {
        return a + 360.0F;
    }
    return a > 180.0F ? a - 360.0F : a;
}

float wrap360_once(float a) {
    if (a > 360.0F) {
        return a - 360.0F;
    }
    return a < -360.0F ? a + 360.0F : a;
}

void fill_short_ring(AirMouseState& s, std::int32_t n) {
    const int i = s.short_index;
    for (int k = 0; k < 3; ++k) {
        const bool neutral = n < kNeutralCalls;
        s.short_acc[k][i] = neutral ? (k == 2 ? kAirRestG : 0.0F) : s.acc_mps2[k];
        s.short_rate_dps[k][i] = neutral ? 0.0F : s.rate_rps[k] * kDegPerRad;
    }
}

// A8 into the long rings every second call once they start filling, then
// the means of the long rings.
void long_means(AirMouseState& s, std::int32_t n, float* a20) {
    if (n > kLongRingStart && s.short_index % 2 == 0) {
        for (int k = 0; k < 3; ++k) {
            float sum = 0.0F;
            for (float v : s.short_acc[k]) {
                sum += v;
            }
            s.long_acc[k][s.long_index] = sum * 0.125F;
        }
        s.long_index = static_cast<std::uint8_t>((s.long_index + 1) % kAirLongRing);
    }
    for (int k = 0; k < 3; ++k) {
        float sum = 0.0F;
        for (float v : s.long_acc[k]) {
            sum += v;
        }
        a20[k] = sum / static_cast<float>(kAirLongRing);
    }
}

// Integrates the gyro into pitch and roll and returns the roll-free
// horizontal and vertical rates (deg/s) in h_v.
void gyro_step(AirMouseState& s, float* h_v) {
    const int i = s.short_index;
    const double gx = d(s.short_rate_dps[0][i]);
    const double gy = d(s.short_rate_dps[1][i]);
    const double gz = d(s.short_rate_dps[2][i]);
    const double p = d(s.pitch_deg) / kDegPerRadD;  // previous call's angles
    const double r = d(s.roll_deg) / kDegPerRadD;
    s.int_pitch_deg =
        static_cast<float>(d(s.int_pitch_deg) + gx * kDtS * std::cos(r) + gz * kDtS * std::sin(r));
    s.int_roll_deg =
        static_cast<float>(d(s.int_roll_deg) + gy * kDtS * std::cos(p) - gz * kDtS * std::sin(p));
    s.int_pitch_deg = wrap360_once(s.int_pitch_deg);
    s.int_roll_deg = wrap360_once(s.int_roll_deg);
    s.pitch_deg = wrap180(s.int_pitch_deg);
    s.roll_deg = wrap180(s.int_roll_deg);

    const bool turning = std::fabs(gz) > kRateFloorDps || std::fabs(gy) > kRateFloorDps;
    const double h = turning ? -gz - gy * std::sin(p) : 0.0;
    const double v = std::fabs(gx) > kRateFloorDps ? -gx : 0.0;
    const double r_new = d(s.roll_deg) / kDegPerRadD;
    h_v[0] = static_cast<float>(std::cos(r_new) * h - std::sin(r_new) * v);
    h_v[1] = static_cast<float>(std::cos(r_new) * v + std::sin(r_new) * h);
}

// Tilt from the long means; pulls pitch and roll slowly towards it unless
// the phone is held near vertical.
void tilt_step(AirMouseState& s, const float* a20) {
    const std::int64_t tx = trunc_bounded(a20[0]);
    const std::int64_t ty = trunc_bounded(a20[1]);
    const std::int64_t tz = trunc_bounded(a20[2]);
    double norm = std::sqrt(static_cast<double>(tx * tx + ty * ty + tz * tz));
    if (norm < 1.0) {
        norm = 1.0;
    }
    float pa = static_cast<float>(std::asin(std::fmax(-1.0, std::fmin(1.0, d(a20[1]) / norm))) *
                                  kDegPerRadD);
    if (std::fabs(a20[2]) >= 1.0F) {
        s.roll_tangent = -a20[0] / std::fabs(a20[2]);
    }
    float ra = static_cast<float>(std::atan(d(s.roll_tangent)) * kDegPerRadD);
    if (a20[2] < 0.0F) {  // screen facing down: continue past 90 degrees
        if (std::fabs(s.int_pitch_deg) > 80.0F) {
            pa = pa >= 0.0F ? 180.0F - pa : -180.0F - pa;
        }
        if (std::fabs(s.int_roll_deg) > 80.0F) {
            ra = ra < 0.0F ? -180.0F - ra : 180.0F - ra;
        }
    }
    if (!(std::fabs(a20[1]) < 7.5F || std::fabs(a20[2]) > 6.299F)) {
        return;
    }
    if (std::fabs(ra - s.roll_deg) < 180.0F) {
        s.roll_deg += (ra - s.roll_deg) * kTiltGain;
    }
    if (std::fabs(pa - s.pitch_deg) < 180.0F) {
        s.pitch_deg += (pa - s.pitch_deg) * kTiltGain;
    }
    s.int_pitch_deg = s.pitch_deg;
    s.int_roll_deg = s.roll_deg;
}

// Precision mode: a still hand raises the gain by 1 per call, a moving one
// lowers it by 0.1 per deg/s above 1. Returns the divisor, gain in [1, 4].
float precision_divisor(AirMouseState& s, float h, float v) {
    const float ah = std::fabs(h);
    const float av = std::fabs(v);
    if (ah >= 1.0F) {
        s.gain += (ah - 1.0F) * -0.1F;
    }
    if (av >= 1.0F) {
        s.gain += (av - 1.0F) * -0.1F;
    }
    if (ah < 1.0F && av < 1.0F) {
        s.gain += (1.0F - ah) * 0.5F + (1.0F - av) * 0.5F;
    }
    s.gain = std::fmax(-5.0F, std::fmin(10.0F, s.gain));
    return std::fmax(1.0F, std::fmin(4.0F, s.gain));
}

// A quarter of the accumulator once four units have gathered.
float emit(float& acc) {
    if (std::fabs(acc) < kStepUnits) {
        return 0.0F;
    }
    const float e = acc * 0.25F;
    acc -= kStepUnits * e;
    return e;
}

// The weaker axis is scaled down when the other dominates by 4 to 1.
double dominated(float weak, float strong) {
    const double w = d(weak);
    const double st = d(strong);
    if (std::fabs(st) > 4.0 * std::fabs(w) && std::fabs(st) >= 20.0) {
        return w * std::fabs(w) / std::fabs(st);
    }
    return w;
}

void emit_step(AirMouseState& s, std::int32_t n, float h, float v) {
    const float div = precision_divisor(s, h, v);
    s.divisor = div;
    if (std::fabs(h) >= div) {
        s.step_acc[0] += h / div;  // slower rates are dropped, not gathered
    }
    if (std::fabs(v) >= div) {
        s.step_acc[1] += v / div;
    }
    const float ex = emit(s.step_acc[0]);
    const float ey = emit(s.step_acc[1]);
    double x = std::fmax(-kMaxStep, std::fmin(kMaxStep, dominated(ex, ey)));
    double y = std::fmax(-kMaxStep, std::fmin(kMaxStep, dominated(ey, ex)));
    if (n < kNeutralCalls) {
        x = 0.0;
        y = 0.0;
    }
    s.dx = static_cast<std::int32_t>(x);
    s.dy = static_cast<std::int32_t>(y);
    if (std::fabs(x) >= 3.0 || std::fabs(y) >= 3.0) {
        s.warmup = kWarmupAfterMotion;
    }
    if (s.warmup < kWarmupDone) {
        s.dx = 0;
        s.dy = 0;
    }
}

}  // namespace

void air_convert(AirMouseState& s, const float* rate_rps, const float* acc_mps2) noexcept {
    if (rate_rps == nullptr || acc_mps2 == nullptr || !usable(rate_rps) || !usable(acc_mps2)) {
        return;
    }
    if (s.position_mode == 0) {
        for (int k = 0; k < 3; ++k) {
            s.rate_rps[k] = rate_rps[k];
            s.acc_mps2[k] = acc_mps2[k];
        }
    } else if (s.position_mode == 1) {  // held sideways
        const float r[3] = {-rate_rps[1], rate_rps[0], rate_rps[2]};
        const float a[3] = {-acc_mps2[1], acc_mps2[0], acc_mps2[2]};
        for (int k = 0; k < 3; ++k) {
            s.rate_rps[k] = r[k];
            s.acc_mps2[k] = a[k];
        }
    }
}

void air_update(AirMouseState& s, const float* rate_rps, const float* acc_mps2) noexcept {
    if (rate_rps == nullptr || acc_mps2 == nullptr) {
        return;
    }
    air_convert(s, rate_rps, acc_mps2);
    if (!s.initialised) {
        s.int_pitch_deg = 0.0F;
        s.int_roll_deg = 0.0F;
        s.step_acc[0] = 0.0F;
        s.step_acc[1] = 0.0F;
        s.roll_tangent = 0.0F;
        s.calls = 0;
        s.initialised = true;
    }
    const std::int32_t n = s.calls;
    if (s.warmup < kWarmupDone) {
        ++s.warmup;
    }
    fill_short_ring(s, n);
    float a20[3];
    long_means(s, n, a20);
    float h_v[2] = {0.0F, 0.0F};
    if (n >= kNeutralCalls) {
        gyro_step(s, h_v);
    }
    s.h_dps = h_v[0];
    s.v_dps = h_v[1];
    tilt_step(s, a20);
    emit_step(s, n, h_v[0], h_v[1]);
    if (s.calls < kMaxCalls) {
        ++s.calls;
    }
    s.short_index = static_cast<std::uint8_t>((s.short_index + 1) % kAirShortRing);
}

AirMouseState& air_mouse_state() noexcept { return g_air; }

}  // namespace imu

using imu::g_air;

extern "C" {

IMU_EXPORT void air_update_posture(const float* rate, const float* acceleration) {
    imu::air_update(g_air, rate, acceleration);
}

IMU_EXPORT void conver_position(const float* rate, const float* acceleration) {
    imu::air_convert(g_air, rate, acceleration);
}

IMU_EXPORT int getmouse_relative_coordinates(float* out) {
    if (out == nullptr) {
        return -22;
    }
    out[0] = static_cast<float>(g_air.dx) * (g_air.screen_width / 1680.0F);
    out[1] = static_cast<float>(g_air.dy) * (g_air.screen_height / 1050.0F);
    out[2] = 0.0F;
    return 0;
}

IMU_EXPORT int input_screen_resolution(float width, float height) {
    g_air.screen_width = width;
    g_air.screen_height = height;
    return 0;
}

IMU_EXPORT int set_position(int mode) {
    g_air.position_mode = mode;
    return 0;
}

}  // extern "C"
