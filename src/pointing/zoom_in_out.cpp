// Rotation steps: a sustained turn about one axis is gathered and cut into
// whole steps of the step size. A turn is only gathered once the other
// motions have been quiet for ten calls, and during the first 200 calls
// after a reset a fast turn that leaves the z acceleration unchanged is
// taken for a flick and dropped.

#include <cmath>
#include <cstdint>

#include "imu/pointing.h"

namespace {

constexpr float kFastRate = 5.0F;  // in the caller's rate unit
constexpr std::int32_t kWarmupCalls = 5;
constexpr std::int32_t kFlickCalls = 200;
constexpr std::int32_t kMaxCalls = 1000;
constexpr std::int32_t kMaxQuiet = 500;
constexpr std::int32_t kQuietNeeded = 9;  // more than this many quiet calls
constexpr std::int32_t kMaxSteps = 100;

// |r| > 5 and above both others.
bool dominant(float r, float o1, float o2) {
    const float a = std::fabs(r);
    return a > kFastRate && a > std::fabs(o1) && a > std::fabs(o2);
}

bool flick(float r, float daz) {
    const float a = std::fabs(r);
    return a > kFastRate && static_cast<double>(daz) < static_cast<double>(a) / 3.0;
}

// e = acc / step once |acc| reaches the step; acc returns to zero.
float emit(float& acc, float step) {
    if (!(std::fabs(acc) >= step)) {
        return 0.0F;
    }
    const float e = acc / step;
    acc -= e * step;
    return e;
}

std::int32_t whole_steps(float e) {
    if (!(e == e)) {
        return 0;
    }
    constexpr float kMax = static_cast<float>(kMaxSteps);
    const float c = std::fmax(-kMax, std::fmin(kMax, e));
    return static_cast<std::int32_t>(c);
}

// Quiet counters count calls since a dominant turn that rules an axis out:
// a turn about axis 3 silences both, a turn about axis 1 or 2 the other's.
void update_quiet_counts(zoom_in_out_obj& z) {
    const float a1 = z.accepted_rate[0];
    const float a2 = z.accepted_rate[1];
    const float a3 = z.accepted_rate[2];
    std::int32_t& q1 = z.quiet_count[0];
    std::int32_t& q2 = z.quiet_count[1];
    q1 = q1 < kMaxQuiet ? q1 + 1 : q1;
    q2 = q2 < kMaxQuiet ? q2 + 1 : q2;
    if (dominant(a3, a1, a2)) {
        q1 = q2 = 0;
    }
    if (dominant(a1, a2, a3)) {
        q1 = 0;
    }
    if (dominant(a2, a1, a3)) {
        q2 = 0;
    }
}

// Gathers the rate of the axis that clearly leads, once it has been quiet.
void gather(zoom_in_out_obj& z) {
    const float m1 = std::fabs(z.accepted_rate[0]);
    const float m2 = std::fabs(z.accepted_rate[1]);
    const float m3 = std::fabs(z.accepted_rate[2]);
    const float w0 = z.published_rate[0];
    const float w1 = z.published_rate[1];
    std::int32_t& q1 = z.quiet_count[0];
    std::int32_t& q2 = z.quiet_count[1];
    if (q1 > kQuietNeeded && std::fabs(w0) >= z.minimum_rate && std::fabs(w1) < std::fabs(w0) &&
        m1 < m2 && m3 < m2) {  // axis 2
        z.run_count[1] = 0;
        ++z.run_count[0];
        if (z.run_count[0] > 1) {
            q2 = 0;
        }
        z.gathered[0] += w0;
    }
    if (q2 > kQuietNeeded && std::fabs(w1) >= z.minimum_rate && std::fabs(w0) < std::fabs(w1) &&
        m3 < m1 && m2 < m1) {  // axis 1
        z.run_count[0] = 0;
        ++z.run_count[1];
        if (z.run_count[1] > 1) {
            q1 = 0;
        }
        z.gathered[1] += w1;
    }
}

// The steps the caller's orientation asks for.
std::int32_t oriented(const std::int32_t* step, int orientation) {
    switch (orientation) {
        case 0:
            return step[1];
        case 2:
            return -step[1];
        case 1:
            return step[0];
        case 3:
            return -step[0];
        default:
            return 0;
    }
}

}  // namespace

zoom_in_out_obj::zoom_in_out_obj() { initial(); }

void zoom_in_out_obj::initial() {
    sample_counter = 0;
    last_sensitivity = 0;
    step_size = 0.5F;
    minimum_rate = 0.1F;
    for (float& v : accepted_rate) {
        v = 0.0F;
    }
    published_rate[0] = published_rate[1] = 0.0F;
    previous_az = 0.0F;
    quiet_count[0] = quiet_count[1] = 0;
    run_count[0] = run_count[1] = 0;
    gathered[0] = gathered[1] = 0.0F;
    step[0] = step[1] = 0;
    result = 0;
}

int zoom_in_out_obj::staticIndicator(float r1, float r2, float r3, float /*ax*/, float /*ay*/,
                                     float az, float /*unused1*/, float /*unused2*/,
                                     float /*unused3*/, int mode, int sensitivity,
                                     int orientation) {
    if (!std::isfinite(r1) || !std::isfinite(r2) || !std::isfinite(r3) || !std::isfinite(az)) {
        return 0;  // bad sample: nothing changes
    }
    if (mode == 0) {  // reset: accumulators and run counters are kept
        sample_counter = 0;
        quiet_count[0] = quiet_count[1] = 0;
    }
    const std::int32_t n = sample_counter;
    step_size =
        sensitivity >= 1 && sensitivity <= 10 ? static_cast<float>(sensitivity) * 0.1F : 0.5F;
    last_sensitivity = sensitivity;
    if (n >= kWarmupCalls) {
        const float daz = std::fabs(az - previous_az);
        const bool rejected = n < kFlickCalls && (flick(r1, daz) || flick(r2, daz));
        accepted_rate[0] = rejected ? 0.0F : r1;
        accepted_rate[1] = rejected ? 0.0F : r2;
        accepted_rate[2] = rejected ? 0.0F : r3;
    }
    published_rate[0] = accepted_rate[1];
    published_rate[1] = accepted_rate[0];
    update_quiet_counts(*this);
    gather(*this);

    float e1 = emit(gathered[0], step_size);
    float e2 = emit(gathered[1], step_size);
    if (n < kWarmupCalls) {
        e1 = e2 = 0.0F;
        published_rate[0] = published_rate[1] = 0.0F;
    }
    step[0] = whole_steps(e1);
    step[1] = whole_steps(e2);
    if (sample_counter < kMaxCalls) {
        ++sample_counter;
    }
    result = oriented(step, orientation);
    previous_az = az;
    return result;
}

int zoom_in_out_obj::get_zoom_in_out(const float* rates, const float* acceleration, int mode,
                                     int sensitivity, int orientation) {
    if (rates == nullptr || acceleration == nullptr) {
        return 0;
    }
    return staticIndicator(rates[0], rates[1], rates[2], acceleration[0], acceleration[1],
                           acceleration[2], 0.0F, 0.0F, 0.0F, mode, sensitivity, orientation);
}
