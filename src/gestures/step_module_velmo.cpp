// The first step-counting module: counts steps in the acceleration
// magnitude, in integers.
//
// a2 = |a|^2 / 1000 (a in mm/s^2), averaged over four samples; the dynamic
// value d = mean - 96236 (9.81 m/s^2 squared) swings up at each heel strike
// and down after it. A step is a rise above the decaying upper threshold,
// a fall below the lower one and the turn back upward, judged by its times
// and its drop:
//
//   0 idle --d > up--> 1 rising --d < down--> 2 falling --turn--> judge -> 0
//        \--too strong--> 99 rejected --d < up--> 0
//   1: a stage over 200 ms -> 0;  2: a stage over 500 ms -> 0

#include "gestures/step_module_velmo.h"

#include <cstddef>
#include <cstring>

#include "gestures/step_module_math.h"
#include "imu/export.h"

namespace imu::sam {
namespace {

constexpr std::size_t kWordBytes = sizeof(std::int32_t);

static_assert(sizeof(pedometer_sam_state) == 100, "25 words");
static_assert(offsetof(pedometer_sam_state, stage) == 18 * kWordBytes, "state in word 18");
static_assert(offsetof(pedometer_sam_state, count) == 19 * kWordBytes, "count in word 19");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the state byte is word 18's low byte");

constexpr std::int32_t kGravitySq = 96236;  // (9810 mm/s^2)^2 / 1000
constexpr std::int32_t kDecayPerMs = 5;     // thresholds decay as (800 - 5 dt) / 800
constexpr std::int32_t kDecayBase = 800;
constexpr std::int32_t kThresholdPercent = 75;  // of the peak or trough
constexpr std::int32_t kMinUp = 10000;
constexpr std::int32_t kMaxDown = -8000;
constexpr std::int32_t kMaxD = 200000;        // above: too strong
constexpr std::int32_t kMaxGyroMean = 70000;  // above: too strong
constexpr std::int32_t kRiseLimitMs = 200;
constexpr std::int32_t kFallLimitMs = 500;
constexpr std::int32_t kMinStageMs = 30;
constexpr std::int32_t kMaxStageMs = 150;
constexpr std::int32_t kMinIntervalMs = 150;
constexpr std::int32_t kMaxIntervalMs = 1500;
constexpr std::int64_t kMaxDrop = 150000;  // peak of the step minus d at the turn

enum Stage : std::uint8_t { kIdle = 0, kRising = 1, kFalling = 2, kRejected = 99 };

// mean += v / 4 - oldest / 4, then the history moves on by one.
std::int32_t push_mean(std::int32_t (&history)[4], std::int32_t& mean, std::int32_t v) {
    mean = add32(mean, static_cast<std::int64_t>(v / 4) - history[0] / 4);
    push_oldest_first(history, v);
    return mean;
}

// A new extreme replaces the old one; otherwise it decays toward zero.
std::int32_t follow(std::int32_t extreme, std::int32_t d, bool beyond, std::int32_t dt) {
    if (beyond) {
        return d;
    }
    return mul_div32(extreme, kDecayBase - std::int64_t{kDecayPerMs} * dt, kDecayBase);
}

// The turn after the fall: the step counts if its stage, its interval and
// its drop are plausible. Either way the candidate is over.
void judge(pedometer_sam_state& s, std::int32_t d) {
    s.judged_stage_ms = s.stage_ms;
    const bool counts = s.stage_ms >= kMinStageMs && s.stage_ms <= kMaxStageMs &&
                        s.interval_ms >= kMinIntervalMs && s.interval_ms <= kMaxIntervalMs &&
                        std::int64_t{s.step_peak} - d <= kMaxDrop;
    s.stage = kIdle;
    s.interval_ms = 0;
    if (counts) {
        s.count = add32(s.count, 1);
        s.stage_ms = 0;
    }
}

void run_stage(pedometer_sam_state& s, std::int32_t d, std::int32_t up, std::int32_t down) {
    const bool too_strong = d > kMaxD || s.gyro_sq_mean > kMaxGyroMean;
    switch (s.stage) {
        case kIdle:
            if (too_strong) {
                s.stage = kRejected;
            } else if (d > up) {
                s.step_peak = d;
                s.step_gyro_max = 0;
                s.stage = kRising;
                s.stage_ms = 0;
            }
            break;
        case kRising:
            if (d > s.step_peak) {
                s.step_peak = d;
                s.stage_ms = 0;
            }
            s.step_gyro_max = max32(s.step_gyro_max, s.gyro_sq_mean);
            if (too_strong) {
                s.stage = kRejected;
            } else if (s.stage_ms > kRiseLimitMs) {
                s.stage = kIdle;
            } else if (d < down) {
                s.stage = kFalling;
            }
            break;
        case kFalling:
            s.step_gyro_max = max32(s.step_gyro_max, s.gyro_sq_mean);
            if (too_strong) {
                s.stage = kRejected;
            } else if (s.stage_ms > kFallLimitMs) {
                s.stage = kIdle;
            } else if (s.previous_d < d) {
                judge(s, d);
            }
            break;
        case kRejected:
            if (d < up) {
                s.stage = kIdle;
            }
            break;
        default:
            s.stage = kIdle;
            break;
    }
}

}  // namespace

bool velmo_update(pedometer_sam_state& s, const std::int32_t* in) noexcept {
    const std::int32_t dt = in[kVelmoDtWord];
    if (dt <= 0) {
        return false;
    }
    s.stage_ms = add32(s.stage_ms, dt);
    s.interval_ms = add32(s.interval_ms, dt);

    const std::int32_t a2 = square_sum_scaled(in[0], in[1], in[2]);
    const std::int32_t g2 = square_sum_scaled(in[3], in[4], in[5]);
    const std::int32_t mean = push_mean(s.acc_sq, s.acc_sq_mean, a2);
    push_mean(s.gyro_sq, s.gyro_sq_mean, g2);
    const std::int32_t d = clamp32(std::int64_t{mean} - kGravitySq);

    // up = max(75% of the peak, 10000); down = min(75% of the trough, -8000)
    s.peak = follow(s.peak, d, d > s.peak, dt);
    s.trough = follow(s.trough, d, d < s.trough, dt);
    const std::int32_t up = max32(mul_div32(kThresholdPercent, s.peak, 100), kMinUp);
    const std::int32_t down = min32(mul_div32(kThresholdPercent, s.trough, 100), kMaxDown);

    run_stage(s, d, up, down);
    s.previous_d = d;
    return true;
}

}  // namespace imu::sam

extern "C" {

IMU_EXPORT int32_t velmo_pedometer_sam_mem_req(void) {
    return static_cast<int32_t>(sizeof(pedometer_sam_state));
}

IMU_EXPORT void* velmo_pedometer_sam_state_reset(const void* /*config*/, void* state) {
    if (state != nullptr) {
        std::memset(state, 0, sizeof(pedometer_sam_state));
    }
    return state;
}

// The host's memory may have any alignment: the record is copied in and out.
IMU_EXPORT void velmo_pedometer_sam_update(void* state, const int32_t* input, int32_t* output) {
    if (state == nullptr || input == nullptr || output == nullptr) {
        return;
    }
    pedometer_sam_state s;
    std::memcpy(&s, state, sizeof s);
    if (!imu::sam::velmo_update(s, input)) {
        return;
    }
    std::memcpy(state, &s, sizeof s);
    output[0] = s.count;
}

}  // extern "C"
