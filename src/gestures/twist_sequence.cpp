#include "gestures/twist_sequence.h"

namespace imu {
namespace {

constexpr std::int32_t kFirstGapTooLong = -1;
constexpr std::int32_t kSameDirection = -2;
constexpr std::int32_t kSecondGapTooLong = -3;

}  // namespace

void step_twists(const TwistSettings& settings, const TwistState& s, float* out) noexcept {
    s.timer += dt_g;
    const float rate = imu_g.gyro[settings.axis];
    s.direction = direction_beyond(rate, settings.direction_rps, s.direction);
    const float abs_rate = gyro_g_abs[settings.axis];
    PulseLimits second = settings.pulse;
    second.high = settings.second_high;

    switch (s.state) {
        case 0:
            if (pulse_fires(s.trigger, abs_rate, settings.pulse)) {
                s.state = 1;
                s.timer = 0.0F;
                s.last_direction = s.direction;
            }
            break;
        case 1:
            if (over(s.timer, settings.gap_max_s)) {
                s.state = kFirstGapTooLong;
            } else if (over(s.timer, settings.gap_min_s) &&
                       pulse_fires(s.trigger, abs_rate, second)) {
                if (s.direction != s.last_direction) {
                    s.last_direction = s.direction;
                    s.timer = 0.0F;
                    s.state = 2;
                } else {
                    s.state = kSameDirection;
                }
            }
            break;
        case 2:
            if (over(s.timer, settings.gap_max_s)) {
                s.state = kSecondGapTooLong;
            } else if (over(s.timer, settings.gap_min_s) &&
                       pulse_fires(s.trigger, abs_rate, settings.pulse)) {
                if (s.direction != s.last_direction) {
                    out[s.direction == 1 ? 0 : 1] = 1.0F;
                    mark_recognised(out);
                }
                s.timer = 0.0F;
                s.state = 3;
            }
            break;
        case 3:
            if (over(s.timer, settings.hold_off_s)) {
                s.state = 0;
            }
            break;
        default:
            s.state = 0;
            break;
    }
}

}  // namespace imu
