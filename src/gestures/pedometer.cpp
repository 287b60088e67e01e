// Step recognition in the acceleration magnitude.
//
// d is the dynamic acceleration, the mean of the last four |acc| / g minus 1.
// A step is one swing of d:
//
//        peak
//   up  _/\__            rising: d above up (0.7 of the decaying high peak,
//      /     \               at least 0.12 g), the peak noted
//   ---        \    ---  falling: d below down (0.7 of the decaying trough,
//   down        \__/         at most -0.08 g)
//               trough   judged where d turns upward again
//
// Both thresholds move up with the rotation seen during the step
// (base = 0.015 ped_gyro_max). A new walk is only reported once four step
// intervals sum to less than 5 s; then its five buffered steps come at once.

#include "gestures/pedometer.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "gestures/detector.h"
#include "imu/gestures.h"

namespace imu {

namespace {

// ---- tunables: d in g, rotation in (rad/s)^2, times in s ----
constexpr double kGravity = 9.8066;   // m/s^2 per g
constexpr double kMeanWeight = 0.25;  // four-value running means
constexpr double kPeakHold = 0.8;     // peaks decay by 3 dt / 0.8 per call
constexpr double kPeakLoss = 3.0;
constexpr double kThresholdPercent = 70.0;
constexpr double kRotationShare = 0.015;  // base = ped_gyro_max x this
constexpr double kMinUp = 0.12;           // up is at least base + this
constexpr double kMaxDown = -0.08;        // down is at most base + this
constexpr double kNoRotation = 0.001;     // a rate history this flat and low: no gyroscope
constexpr double kTooStrongAcc = 3.0;     // d above: the phone is shaken, not carried
constexpr double kTooStrongRotation = 90.0;
constexpr double kRiseS = 0.3;  // rise limit: kRiseS + kPerRotation ped_gyro_max
constexpr double kPerRotation = 0.3;
constexpr double kFallS = 0.7;
constexpr double kMaxDrop = 2.5;    // peak to trough
constexpr double kSidewaysG = 1.0;  // horizontal peak above the vertical one
constexpr double kMaxSwingS = 0.5;  // peak to trough: kMaxSwingS + kPerRotation ...
constexpr double kMinSwingS = 0.03;
constexpr double kMaxIntervalS = 1.5;
constexpr double kMinIntervalS = 0.15;
constexpr double kAfterStepS = 0.17;
constexpr double kRegularWalkS = 5.0;  // four intervals summing below this: a walk
constexpr double kWalkPauseS = 2.0;
constexpr float kHeldBackSteps = 5.0F;

// Step length model: s = (0.0563 / Ti + 1.5215) - 0.8711.
constexpr double kLengthPerRate = 0.0563;
constexpr double kLengthOffset = 1.5215;
constexpr double kLengthBase = 0.8711;

template <std::size_t N>
float push_mean(std::array<float, N>& history, float& mean, float value) noexcept {
    mean = static_cast<float>(static_cast<double>(mean) + kMeanWeight * static_cast<double>(value) -
                              kMeanWeight * static_cast<double>(history[0]));
    std::copy(history.begin() + 1, history.end(), history.begin());
    history[N - 1] = value;
    return mean;
}

// Extreme with decay: a new extreme is taken as it is, otherwise the old one
// shrinks by 3 dt / 0.8 of itself.
float decay_extreme(float extreme, float d, bool is_new, float dt) noexcept {
    if (is_new) {
        return d;
    }
    return static_cast<float>(static_cast<double>(extreme) *
                              (kPeakHold - kPeakLoss * static_cast<double>(dt)) / kPeakHold);
}

}  // namespace

float step_length_m(float interval_s) noexcept {
    return static_cast<float>((kLengthPerRate / static_cast<double>(interval_s) + kLengthOffset) -
                              kLengthBase);
}

Pedometer::Signals Pedometer::update_signals(float dt) noexcept {
    const auto a = static_cast<float>(static_cast<double>(comp_acc) / kGravity);
    const float d = push_mean(ped_acc_history, ped_acc_mean, a) - 1.0F;
    const float w = comp_gyro * comp_gyro;
    const float g = push_mean(ped_gyro_history, ped_gyro_mean, w);

    ped_high_peak = decay_extreme(ped_high_peak, d, d > ped_high_peak, dt);
    ped_low_peak = decay_extreme(ped_low_peak, d, d < ped_low_peak, dt);
    const double base = static_cast<double>(ped_gyro_max) * kRotationShare;
    const double up = std::max(
        static_cast<double>(ped_high_peak) * kThresholdPercent / 100.0 + base, base + kMinUp);
    const double down = std::min(
        static_cast<double>(ped_low_peak) * kThresholdPercent / 100.0 + base, base + kMaxDown);

    // A gyroscope that delivers nothing repeats the same tiny value.
    const auto& h = ped_gyro_history;
    if (h[0] == h[1] && h[1] == h[2] && h[2] == h[3] && at_most(h[0], kNoRotation) &&
        at_most(h[1], kNoRotation) && at_most(h[2], kNoRotation) && at_most(w, kNoRotation)) {
        ped_state = kPedNoRotation;
    }
    for (std::size_t k = 0; k < ped_global_peak.size(); ++k) {
        ped_global_peak[k] = std::max(ped_global_peak[k], std::fabs(global_acc[k]));
    }
    return {d, g, up, down};
}

void Pedometer::back_to_idle() noexcept {
    ped_state = kPedIdle;
    ped_gyro_max = 0.0F;
}

void Pedometer::on_idle(const Signals& s) noexcept {
    if (over(s.d, kTooStrongAcc) || over(s.g, kTooStrongRotation)) {
        ped_state = kPedTooStrong;
    } else if (over(s.d, s.up)) {
        ped_state = kPedRising;
        ped_stage_timer = 0.0F;
        ped_peak_acc = s.d;
        ped_gyro_max = 0.0F;
        ped_global_peak = {};
    }
}

void Pedometer::on_rising(const Signals& s) noexcept {
    if (s.d > ped_peak_acc) {
        ped_peak_acc = s.d;
        ped_stage_timer = 0.0F;
    }
    ped_gyro_max = std::max(ped_gyro_max, s.g);
    if (over(s.d, kTooStrongAcc) || over(s.g, kTooStrongRotation)) {
        ped_state = kPedTooStrong;
    } else if (over(ped_stage_timer, kRiseS + kPerRotation * static_cast<double>(ped_gyro_max))) {
        ped_state = kPedRiseTooLong;
    } else if (under(s.d, s.down)) {
        ped_state = kPedFalling;
    }
}

// 0 for a step, else the rejection code.
int Pedometer::judge(float d) const noexcept {
    const auto& p = ped_global_peak;
    if (over(ped_peak_acc - d, kMaxDrop)) {
        return kPedDropTooDeep;
    }
    if (over(p[0] - p[2], kSidewaysG) || over(p[1] - p[2], kSidewaysG)) {
        return kPedSideways;
    }
    if (over(ped_stage_timer, kMaxSwingS + kPerRotation * static_cast<double>(ped_gyro_max)) ||
        under(ped_stage_timer, kMinSwingS)) {
        return kPedBadDuration;
    }
    if (over(ped_interval_timer, kMaxIntervalS) || under(ped_interval_timer, kMinIntervalS)) {
        return kPedBadInterval;
    }
    return 0;
}

void Pedometer::on_falling(const Signals& s, float* out) noexcept {
    ped_gyro_max = std::max(ped_gyro_max, s.g);
    if (over(s.d, kTooStrongAcc) || over(s.g, kTooStrongRotation)) {
        ped_state = kPedTooStrong;
    } else if (over(ped_stage_timer, kFallS)) {
        ped_state = kPedFallTooLong;
    } else if (ped_previous_acc < s.d) {
        const int rejection = judge(s.d);
        if (rejection == 0) {
            accept(out);
        } else {
            ped_state = rejection;
            ped_stage_timer = 0.0F;
            ped_interval_timer = 0.0F;
        }
    }
}

//   0 not walking: count nothing until the four newest intervals sum below
//     5 s, then the five buffered steps at once (unfilled lengths are 0)
//   1 walking: one step each, until a step comes 2 s or more after the last
//     one with the intervals no longer regular; that step is dropped
void Pedometer::accept(float* out) noexcept {
    const float length = step_length_m(ped_interval_timer);
    std::copy_backward(ped_intervals.begin(), ped_intervals.end() - 1, ped_intervals.end());
    ped_intervals[0] = ped_step_timer;
    std::copy_backward(ped_lengths.begin(), ped_lengths.end() - 1, ped_lengths.end());
    ped_lengths[0] = length;
    const float sum4 = std::accumulate(ped_intervals.begin(), ped_intervals.end(), 0.0F);

    float counted_length = 0.0F;
    float counted_steps = 0.0F;
    if (ped_walking == 0.0F) {
        if (under(sum4, kRegularWalkS)) {
            ped_walking = 1.0F;
            counted_steps = kHeldBackSteps;
            counted_length = std::accumulate(ped_lengths.begin(), ped_lengths.end(), 0.0F);
        }
    } else if (under(sum4, kRegularWalkS) || under(ped_step_timer, kWalkPauseS)) {
        counted_steps = 1.0F;
        counted_length = length;
    } else {
        ped_walking = 0.0F;
    }
    out[1] = counted_length;
    out[2] = counted_steps;

    ped_state = kPedAfterStep;
    ped_step_timer = 0.0F;
    ped_stage_timer = 0.0F;
    ped_interval_timer = 0.0F;
}

void Pedometer::step(float* out) noexcept {
    const float dt = dt_g;
    ped_stage_timer += dt;
    ped_interval_timer += dt;
    ped_step_timer += dt;
    const Signals s = update_signals(dt);

    switch (ped_state) {
        case kPedTooStrong:
            if (under(s.d, s.up)) {
                back_to_idle();
            }
            break;
        case kPedNoRotation:  // final: no rotation data, no steps
            break;
        case kPedIdle:
            on_idle(s);
            break;
        case kPedRising:
            on_rising(s);
            break;
        case kPedFalling:
            on_falling(s, out);
            break;
        case kPedAfterStep:
            if (over(ped_stage_timer, kAfterStepS)) {
                back_to_idle();
            }
            break;
        default:  // a rejected candidate, or a value out of range
            back_to_idle();
            break;
    }
    ped_previous_acc = s.d;
}

}  // namespace imu
