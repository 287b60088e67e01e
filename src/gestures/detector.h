#pragma once
// The conventions every gesture and activity detector shares, written once:
// the null-slot answer, the cleared slot, the recognition mark and the
// 7200 s timer wrap.
//
// A detector is a struct with
//   void step(float* out) noexcept;   its state machine; out is cleared and non-null
//   std::array<float*, N> timers() noexcept;   the timers wrapped after each call
// and its exported function is `return imu::run_detector(instance, out);`.

#include <array>
#include <cerrno>

#include "imu/gestures.h"

namespace imu {

// Result for a null slot pointer (and the trigger's "no pulse").
inline constexpr int kNullSlot = -EINVAL;

// Slot values: the third one marks the recognising cycle.
inline constexpr int kSlotValues = 3;
inline constexpr int kRecognised = 2;

// Timers are set back to 0 at the end of a call once they pass this.
inline constexpr float kTimerWrapS = 7200.0F;

inline void wrap_timer(float& timer_s) noexcept {
    if (timer_s > kTimerWrapS) {
        timer_s = 0.0F;
    }
}

inline void clear_slot(float* out) noexcept {
    for (int i = 0; i < kSlotValues; ++i) {
        out[i] = 0.0F;
    }
}

inline void mark_recognised(float* out) noexcept { out[kRecognised] = 1.0F; }

// null -> -22, nothing changed; else clear, step, wrap the timers, 0.
template <class Detector>
int run_detector(Detector& detector, float* out) noexcept {
    if (out == nullptr) {
        return kNullSlot;
    }
    clear_slot(out);
    detector.step(out);
    for (float* timer : detector.timers()) {
        wrap_timer(*timer);
    }
    return 0;
}

}  // namespace imu

namespace imu {

// Limits are double constants, as the detectors have always compared them:
// a float signal or timer is promoted before the comparison.
constexpr bool over(float x, double limit) noexcept { return static_cast<double>(x) > limit; }
constexpr bool under(float x, double limit) noexcept { return static_cast<double>(x) < limit; }

constexpr bool at_most(float x, double limit) noexcept { return static_cast<double>(x) <= limit; }
constexpr bool at_least(float x, double limit) noexcept { return static_cast<double>(x) >= limit; }

// The direction of a signed rate beyond +-limit, or the previous one.
constexpr int direction_beyond(float rate, double limit, int previous) noexcept {
    if (over(rate, limit)) {
        return 1;
    }
    if (under(rate, -limit)) {
        return -1;
    }
    return previous;
}

}  // namespace imu

namespace imu {

// The limits of one trigger call: a pulse rises above high from below low
// and falls back below low, lasting more than min_s and less than max_s.
struct PulseLimits {
    float low;
    float high;
    float max_s;
    float min_s;
};

// One trigger call with step dt_g: true when a pulse has just completed.
inline bool pulse_fires(sfc_gesture_trigger& trigger, float value,
                        const PulseLimits& limits) noexcept {
    return trigger.gesture_trigger(value, dt_g, limits.low, limits.high, limits.max_s,
                                   limits.min_s) == 0;
}

}  // namespace imu
