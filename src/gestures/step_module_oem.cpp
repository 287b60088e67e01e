// The second step-counting module: the step recognition of the first one
// with tunable parameters, plus step lengths and a held-back start.
//
// The module runs at a fixed rate (P25 ms per update) on 16.16 inputs and
// warms up for 100 updates after a reset. A step that passes its tests
// stores its interval; the first steps of a walk are held back until the
// four newest intervals sum to less than P18 (5 s), and that step reports
// five steps with the five stored lengths at once. A pause of P19 (3 s)
// with irregular intervals ends the walk again.
//
//   step length = (P22 + h * k + 1000 * P21 / interval) / 100
//   k = P24 (selector 0) or P23 (selector 1); other selectors keep the last one

#include "gestures/step_module_oem.h"

#include <cstddef>
#include <cstring>

#include "gestures/step_module_math.h"
#include "gestures/step_module_stages.h"
#include "imu/export.h"

namespace imu::sam {
namespace {

constexpr std::size_t kWordBytes = sizeof(std::int32_t);

static_assert(sizeof(oem_1_sam_state) == 272, "68 words");
static_assert(offsetof(oem_1_sam_state, lengths) == 13 * kWordBytes, "lengths from word 13");
static_assert(offsetof(oem_1_sam_state, intervals_ms) == 24 * kWordBytes, "intervals from word 24");
static_assert(offsetof(oem_1_sam_state, stage) == 124, "state byte");
static_assert(offsetof(oem_1_sam_state, walking) == 125, "walking byte");
static_assert(offsetof(oem_1_sam_state, config_head) == 33 * kWordBytes,
              "configuration from word 33");
static_assert(offsetof(oem_1_sam_state, param) == 35 * kWordBytes, "P0 in word 35");
static_assert(offsetof(oem_1_sam_state, user_height) == 62 * kWordBytes, "h in word 62");
static_assert(offsetof(oem_1_sam_state, length_selector) == 64 * kWordBytes, "selector in word 64");
static_assert(kOemConfigBytes == sizeof(oem_1_sam_state) - offsetof(oem_1_sam_state, config_head),
              "the configuration fills words 33-67");

constexpr int kDefaultParams = 26;  // P0 to P25; P26 comes from the configuration
constexpr std::int32_t kDefaults[kDefaultParams] = {
    200000, 70000, 10000, 5,    70, -8000, 5,    70,    150000, 0,      3,   200, 500,
    30,     150,   150,   1500, 0,  5000,  3000, 96236, 45040,  -87110, 415, 413, 5};
constexpr std::int32_t kInitialIntervalMs = 5000;
constexpr std::int32_t kModuleCounter = 100;
constexpr std::int32_t kInputLimit = 999999;  // beyond: the input reads as 15
constexpr std::int32_t kOutOfRange = 15;
constexpr std::int32_t kTimerWrapMs = 604800;
constexpr std::int32_t kTotalWrap = 1000000000;
constexpr std::int32_t kFirstSteps = 5;

constexpr std::uint8_t kRejected = 10;

std::int32_t param(const oem_1_sam_state& s, int p) { return s.param[p]; }

// mean += (v >> 2) - (oldest >> 2), then the history moves on by one.
std::int32_t push_mean(std::int32_t (&history)[4], std::int32_t& mean, std::int32_t v) {
    mean = add32(mean, static_cast<std::int64_t>(v >> 2) - (history[0] >> 2));
    push_oldest_first(history, v);
    return mean;
}

// Steps with a repeated rotation value at or below P10 come from a phone
// whose gyroscope reports nothing: such steps are not counted.
bool rotation_present(const oem_1_sam_state& s) {
    const std::int32_t* g = s.gyro_sq;
    const bool repeats = g[0] == g[1] || g[0] == g[2] || g[0] == g[3] || g[1] == g[2] ||
                         g[1] == g[3] || g[2] == g[3];
    const std::int32_t low = param(s, OEM_1_SAM_P_MIN_DISTINCT_GYRO);
    const bool any_low = g[0] <= low || g[1] <= low || g[2] <= low || g[3] <= low;
    return !(repeats && any_low);
}

// An interval of 0 ms passes the interval test only when P15 was set to 0
// or less; its interval term is then left out.
std::int32_t step_length(const oem_1_sam_state& s, std::int32_t k) {
    const std::int64_t per_interval =
        s.interval_ms != 0
            ? 1000 * std::int64_t{param(s, OEM_1_SAM_P_LENGTH_INTERVAL)} / s.interval_ms
            : 0;
    return clamp32(
        (param(s, OEM_1_SAM_P_LENGTH_OFFSET) + std::int64_t{s.user_height} * k + per_interval) /
        100);
}

void count_step(oem_1_sam_state& s) {
    push_newest_first(s.lengths, s.lengths[0]);
    if (s.length_selector == 0 || s.length_selector == 1) {
        const int k = s.length_selector == 0 ? OEM_1_SAM_P_LENGTH_H0 : OEM_1_SAM_P_LENGTH_H1;
        s.lengths[0] = step_length(s, param(s, k));
    }
    std::int64_t interval_sum = 0;
    for (const std::int32_t t : s.intervals_ms) {
        interval_sum += t;
    }
    const bool regular = interval_sum < param(s, OEM_1_SAM_P_WALKING_SUM_MS);
    if (s.walking == 0) {
        if (regular) {
            std::int64_t length_sum = 0;
            for (const std::int32_t l : s.lengths) {
                length_sum += l;
            }
            s.count = add32(s.count, kFirstSteps);
            s.total_length = add32(s.total_length, length_sum);
            s.walking = 1;
        }
    } else if (!regular && s.since_step_ms >= param(s, OEM_1_SAM_P_PAUSE_MS)) {
        s.walking = 0;
    } else {
        s.count = add32(s.count, 1);
        s.total_length = add32(s.total_length, s.lengths[0]);
    }
}

// A step that passes its tests: its interval is stored and, with the
// gyroscope alive, it is counted (the length reads the interval timer).
void on_step(oem_1_sam_state& s) {
    push_newest_first(s.intervals_ms, s.since_step_ms);
    if (rotation_present(s)) {
        count_step(s);
    }
    s.since_step_ms = 0;
}

StepRules rules(const oem_1_sam_state& s) {
    return {param(s, OEM_1_SAM_P_MAX_D),           param(s, OEM_1_SAM_P_MAX_GYRO_MEAN),
            param(s, OEM_1_SAM_P_RISE_LIMIT_MS),   param(s, OEM_1_SAM_P_FALL_LIMIT_MS),
            param(s, OEM_1_SAM_P_MIN_STAGE_MS),    param(s, OEM_1_SAM_P_MAX_STAGE_MS),
            param(s, OEM_1_SAM_P_MIN_INTERVAL_MS), param(s, OEM_1_SAM_P_MAX_INTERVAL_MS),
            param(s, OEM_1_SAM_P_MAX_DROP),        param(s, OEM_1_SAM_P_GYRO_WEIGHT_STAGE)};
}

std::int32_t wrap(std::int32_t v, std::int32_t limit) { return v > limit ? 0 : v; }

}  // namespace

std::int32_t oem_thousandths(std::int32_t v) noexcept {
    if (v < -kInputLimit || v > kInputLimit) {
        return kOutOfRange;
    }
    return v * 1000 / 65536;  // |v * 1000| < 2^30
}

void oem_reset(oem_1_sam_state& s, const void* config) noexcept {
    std::memset(&s, 0, sizeof s);
    for (std::int32_t& t : s.intervals_ms) {
        t = kInitialIntervalMs;
    }
    s.module_counter = kModuleCounter;
    if (config != nullptr) {
        auto* words = reinterpret_cast<unsigned char*>(&s);
        std::memcpy(words + offsetof(oem_1_sam_state, config_head), config, kOemConfigBytes);
    }
    std::memcpy(s.param, kDefaults, sizeof kDefaults);
    s.user_height = 0;
    s.unused_63 = 0;
    s.length_selector = 0;
    std::memset(s.unused_65, 0, sizeof s.unused_65);
}

void oem_update(oem_1_sam_state& s, const std::int32_t* in, std::int32_t* out) noexcept {
    out[0] = 0;
    out[1] = 0;
    out[2] = 0;
    if (s.warm_up < kOemWarmUpUpdates) {
        s.count = 0;
        ++s.warm_up;
        out[2] = s.module_counter;
        return;
    }
    std::int32_t v[kOemInputWords];
    for (int i = 0; i < kOemInputWords; ++i) {
        v[i] = oem_thousandths(in[i]);
    }
    const std::int32_t dt = param(s, OEM_1_SAM_P_STEP_MS);
    s.stage_ms = add32(s.stage_ms, dt);
    s.interval_ms = add32(s.interval_ms, dt);
    s.since_step_ms = add32(s.since_step_ms, dt);

    const std::int32_t a2 = square_sum_scaled(v[0], v[1], v[2]);
    const std::int32_t g2 = square_sum_scaled(v[3], v[4], v[5]);
    const std::int32_t mean = push_mean(s.acc_sq, s.acc_sq_mean, a2);
    push_mean(s.gyro_sq, s.gyro_sq_mean, g2);
    // d = mean - P20 - P9 * g2
    const std::int32_t d = clamp32(std::int64_t{mean} - param(s, OEM_1_SAM_P_GRAVITY_SQ) -
                                   std::int64_t{param(s, OEM_1_SAM_P_GYRO_WEIGHT_D)} * g2);

    // up = max(peak * P4 / 100, P2); down = min(trough * P7 / 100, P5)
    s.peak = follow(s.peak, d, d > s.peak, param(s, OEM_1_SAM_P_PEAK_DECAY), dt);
    s.trough = follow(s.trough, d, d < s.trough, param(s, OEM_1_SAM_P_TROUGH_DECAY), dt);
    const std::int32_t up = max32(mul_div32(s.peak, param(s, OEM_1_SAM_P_UP_PERCENT), 100),
                                  param(s, OEM_1_SAM_P_MIN_UP));
    const std::int32_t down = min32(mul_div32(s.trough, param(s, OEM_1_SAM_P_DOWN_PERCENT), 100),
                                    param(s, OEM_1_SAM_P_MAX_DOWN));

    run_stage<kRejected>(s, d, up, down, rules(s), on_step);
    s.previous_d = d;

    s.stage_ms = wrap(s.stage_ms, kTimerWrapMs);
    s.interval_ms = wrap(s.interval_ms, kTimerWrapMs);
    s.judged_stage_ms = wrap(s.judged_stage_ms, kTimerWrapMs);
    s.since_step_ms = wrap(s.since_step_ms, kTimerWrapMs);
    s.count = wrap(s.count, kTotalWrap);
    s.total_length = wrap(s.total_length, kTotalWrap);
    out[0] = s.count;
    out[1] = s.total_length;
    out[2] = s.module_counter;
}

}  // namespace imu::sam

extern "C" {

// The whole record, not the 140 bytes of the configuration: a host that
// allocates what it is told never has the update write past its memory.
IMU_EXPORT int32_t oem_1_sam_mem_req(void) { return static_cast<int32_t>(sizeof(oem_1_sam_state)); }

IMU_EXPORT void* oem_1_sam_state_reset(const void* config, void* state) {
    if (state == nullptr) {
        return nullptr;
    }
    oem_1_sam_state s;
    imu::sam::oem_reset(s, config);
    std::memcpy(state, &s, sizeof s);
    return state;
}

// The host's memory may have any alignment: the record is copied in and out.
IMU_EXPORT void oem_1_sam_update(void* state, const int32_t* input, int32_t* output) {
    if (output == nullptr) {
        return;
    }
    if (state == nullptr || input == nullptr) {
        output[0] = 0;
        output[1] = 0;
        output[2] = 0;
        return;
    }
    oem_1_sam_state s;
    std::memcpy(&s, state, sizeof s);
    imu::sam::oem_update(s, input, output);
    std::memcpy(state, &s, sizeof s);
}

}  // extern "C"
