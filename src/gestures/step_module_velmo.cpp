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
#include "gestures/step_module_stages.h"
#include "imu/export.h"

namespace imu::sam {
namespace {

constexpr std::size_t kWordBytes = sizeof(std::int32_t);

static_assert(sizeof(pedometer_sam_state) == 100, "25 words");
static_assert(offsetof(pedometer_sam_state, stage) == 18 * kWordBytes, "state in word 18");
static_assert(offsetof(pedometer_sam_state, count) == 19 * kWordBytes, "count in word 19");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the state byte is word 18's low byte");

constexpr std::int32_t kGravitySq = 96236;      // (9810 mm/s^2)^2 / 1000
constexpr std::int32_t kDecayPerMs = 5;         // thresholds decay as (800 - 5 dt) / 800
constexpr std::int32_t kThresholdPercent = 75;  // of the peak or trough
constexpr std::int32_t kMinUp = 10000;
constexpr std::int32_t kMaxDown = -8000;
constexpr std::uint8_t kRejected = 99;

constexpr StepRules kRules = {
    200000,  // max_d
    70000,   // max_gyro_mean
    200,     // rise_limit_ms
    500,     // fall_limit_ms
    30,      // min_stage_ms
    150,     // max_stage_ms
    150,     // min_interval_ms
    1500,    // max_interval_ms
    150000,  // max_drop
    0,       // gyro_weight: the limits do not depend on the rotation
};

// mean += v / 4 - oldest / 4, then the history moves on by one.
std::int32_t push_mean(std::int32_t (&history)[4], std::int32_t& mean, std::int32_t v) {
    mean = add32(mean, static_cast<std::int64_t>(v / 4) - history[0] / 4);
    push_oldest_first(history, v);
    return mean;
}

void count_step(pedometer_sam_state& s) { s.count = add32(s.count, 1); }

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
    s.peak = follow(s.peak, d, d > s.peak, kDecayPerMs, dt);
    s.trough = follow(s.trough, d, d < s.trough, kDecayPerMs, dt);
    const std::int32_t up = max32(mul_div32(kThresholdPercent, s.peak, 100), kMinUp);
    const std::int32_t down = min32(mul_div32(kThresholdPercent, s.trough, 100), kMaxDown);

    run_stage<kRejected>(s, d, up, down, kRules, count_step);
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
