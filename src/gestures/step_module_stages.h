#pragma once
// The step recognition both step-counting modules run on their state
// records (the fields they share carry the same names):
//
//   0 idle --d > up--> 1 rising --d < down--> 2 falling --turn--> judge -> 0
//        \--too strong--> rejected --d < up--> 0
//
// The first module fixes the limits; the second reads them from its
// parameters, where the rise and the stage limits grow with the step's
// rotation peak (weight w, 0 in the first module).

#include <cstdint>

#include "gestures/step_module_math.h"

namespace imu::sam {

enum Stage : std::uint8_t { kIdle = 0, kRising = 1, kFalling = 2 };

// Peak and trough thresholds decay as (800 - rate * dt) / 800 per update.
constexpr std::int64_t kDecayBase = 800;

struct StepRules {
    std::int32_t max_d;          // d above: too strong
    std::int32_t max_gyro_mean;  // rotation mean above: too strong
    std::int32_t rise_limit_ms;  // + w * rotation peak: a longer rise ends the candidate
    std::int32_t fall_limit_ms;  // a longer fall ends it
    std::int32_t min_stage_ms;   // stage time of a step at the turn: at least this ...
    std::int32_t max_stage_ms;   // ... and at most this + w * rotation peak
    std::int32_t min_interval_ms;
    std::int32_t max_interval_ms;
    std::int32_t max_drop;     // step peak minus d at the turn, at most
    std::int32_t gyro_weight;  // w
};

// A new extreme replaces the old one; otherwise it decays toward zero.
inline std::int32_t follow(std::int32_t extreme, std::int32_t d, bool beyond,
                           std::int64_t decay_per_ms, std::int32_t dt) {
    if (beyond) {
        return d;
    }
    return mul_div32(extreme, kDecayBase - decay_per_ms * dt, kDecayBase);
}

// The turn after the fall, with d the value at the turn: whether the
// step's stage, its interval and its drop are plausible.
template <typename State>
bool step_plausible(const State& s, std::int32_t d, const StepRules& r) {
    const std::int64_t stage_limit = r.max_stage_ms + std::int64_t{s.step_gyro_max} * r.gyro_weight;
    return s.stage_ms >= r.min_stage_ms && s.stage_ms <= stage_limit &&
           s.interval_ms >= r.min_interval_ms && s.interval_ms <= r.max_interval_ms &&
           std::int64_t{s.step_peak} - d <= r.max_drop;
}

// One update of the stage machine. At the turn the stage time is kept as
// judged_stage_ms; a plausible step goes to on_step (the module's counting)
// and restarts the stage timer. Either way the candidate is over: idle
// again, interval timer 0 (after on_step, which may read it).
template <std::uint8_t kRejectedStage, typename State, typename OnStep>
void run_stage(State& s, std::int32_t d, std::int32_t up, std::int32_t down, const StepRules& r,
               OnStep on_step) {
    const bool too_strong = d > r.max_d || s.gyro_sq_mean > r.max_gyro_mean;
    switch (s.stage) {
        case kIdle:
            if (too_strong) {
                s.stage = kRejectedStage;
            } else if (d > up) {
                s.step_peak = d;
                s.step_gyro_max = 0;
                s.stage = kRising;
                s.stage_ms = 0;
            }
            break;
        case kRising: {
            if (d > s.step_peak) {
                s.step_peak = d;
                s.stage_ms = 0;
            }
            s.step_gyro_max = max32(s.step_gyro_max, s.gyro_sq_mean);
            const std::int64_t limit =
                r.rise_limit_ms + std::int64_t{s.step_gyro_max} * r.gyro_weight;
            if (too_strong) {
                s.stage = kRejectedStage;
            } else if (s.stage_ms > limit) {
                s.stage = kIdle;
            } else if (d < down) {
                s.stage = kFalling;
            }
            break;
        }
        case kFalling:
            s.step_gyro_max = max32(s.step_gyro_max, s.gyro_sq_mean);
            if (too_strong) {
                s.stage = kRejectedStage;
            } else if (s.stage_ms > r.fall_limit_ms) {
                s.stage = kIdle;
            } else if (s.previous_d < d) {
                s.judged_stage_ms = s.stage_ms;
                if (step_plausible(s, d, r)) {
                    on_step(s);
                    s.stage_ms = 0;
                }
                s.stage = kIdle;
                s.interval_ms = 0;
            }
            break;
        case kRejectedStage:
            if (d < up) {
                s.stage = kIdle;
            }
            break;
        default:
            s.stage = kIdle;
            break;
    }
}

}  // namespace imu::sam
