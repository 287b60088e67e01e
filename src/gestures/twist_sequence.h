#pragma once
// Three quick twists about one axis, alternating in sign: the state machine
// that rolling (about y) and shake (about z) share.
//
//   0 -(twist)-> 1 -(opposite twist)-> 2 -(opposite twist: recognised)-> 3
//   3 -(hold-off)-> 0
//   1 -(gap too long)-> -1     1 -(same direction)-> -2     2 -(gap too long)-> -3
//   -1, -2, -3 -> 0 on the next call
//
// After a twist the trigger rests for gap_min_s, and the next twist must
// complete before gap_max_s. A twist's direction is the sign of the last
// rate beyond +-direction_rps.

#include <cstdint>

#include "gestures/detector.h"

namespace imu {

struct TwistSettings {
    int axis;              // 0 x, 1 y, 2 z of imu_g.gyro
    double direction_rps;  // rate beyond which the direction is taken
    PulseLimits pulse;     // trigger limits for the first and third twist
    float second_high;     // trigger high for the second twist
    double gap_min_s;
    double gap_max_s;
    double hold_off_s;
};

// The state of one twist detector, named by its owner.
struct TwistState {
    std::int32_t& state;
    float& timer;
    std::int32_t& direction;
    std::int32_t& last_direction;
    sfc_gesture_trigger& trigger;
};

// One call: timer += dt_g, direction, state machine. out is cleared;
// recognition sets out[0] (positive) or out[1] (negative) and out[2].
void step_twists(const TwistSettings& settings, const TwistState& s, float* out) noexcept;

}  // namespace imu
