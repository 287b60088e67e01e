// The pulse recogniser most detectors use.
//
//   value:  ____/‾‾‾‾‾‾‾\____        low < band < high
//   state:  0   1  2    3 -> 0        (4 when the pulse ended before min_total)
//
// total counts step from the update after the rise began, so with step = dt
// it is the pulse's duration in seconds.

#include <cerrno>
#include <cstdint>

#include "imu/gestures.h"

namespace {

// gesture_trigger's answer while no pulse has completed within its limits.
constexpr int kNoPulse = -EINVAL;

enum TriggerState : int32_t {
    kIdle = 0,
    kInBand = 1,
    kAboveBand = 2,
    kCompleted = 3,
    kEndedEarly = 4,
};

// From idle or inside the band: where the value is now.
int32_t band_choice(float value, float low, float high) {
    if (low < value && value < high) {
        return kInBand;
    }
    if (value > low && value > high) {
        return kAboveBand;
    }
    return kIdle;
}

// Above the band without a completion: back to idle at or below low and
// exactly at high, else (still) above the band.
int32_t stay_choice(float value, float low, float high) {
    if (value <= low) {
        return kIdle;
    }
    if (value == high) {
        return kIdle;
    }
    return kAboveBand;
}

}  // namespace

int sfc_gesture_trigger::gesture_trigger(float value, float step, float low, float high,
                                         float max_total, float min_total) noexcept {
    const bool below = value < low && value < high;
    switch (state) {
        case kIdle:
            total = 0.0F;
            state = band_choice(value, low, high);
            break;
        case kInBand:
            total += step;
            state = band_choice(value, low, high);
            break;
        case kAboveBand:
            total += step;
            if (below && total > min_total) {
                state = kCompleted;
            } else if (below && total < min_total) {
                state = kEndedEarly;
            } else {
                state = stay_choice(value, low, high);
            }
            break;
        case kEndedEarly:
            total += step;
            state = below ? int32_t{kCompleted} : stay_choice(value, low, high);
            break;
        default:  // completed is never kept; anything else restarts
            state = kIdle;
            break;
    }
    if (state != kCompleted) {
        return kNoPulse;
    }
    state = kIdle;
    return (min_total < total && total < max_total) ? 0 : kNoPulse;
}
