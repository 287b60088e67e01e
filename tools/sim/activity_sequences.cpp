#include "sim/activity_sequences.h"

#include <cmath>

#include "imu/gestures.h"

namespace imu::test {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Vec {
    double x, y, z;
};

// Unit vector of gravity (pointing up) in the device frame.
Vec gravity_direction(Carry carry) {
    switch (carry) {
        case Carry::kFlat:
            return {0.0, 0.0, 1.0};
        case Carry::kHand: {
            const double tilt = 40.0 * kPi / 180.0;
            return {0.0, std::sin(tilt), std::cos(tilt)};
        }
        case Carry::kPocket:
        default:
            return {0.0, std::cos(0.1), std::sin(0.1)};
    }
}

// Slow tremor of each carry, rad/s per axis, at time t. Its frequencies
// (below 5 Hz) lie far under the band of the tap filters.
Vec tremor(Carry carry, double t) {
    double amp = 0.0;
    switch (carry) {
        case Carry::kFlat:
            amp = 0.001;  // sensor noise of a phone at rest
            break;
        case Carry::kHand:
            amp = 0.03;
            break;
        case Carry::kPocket:
            amp = 0.04;
            break;
    }
    return {amp * std::sin(2.0 * kPi * 1.3 * t), amp * std::sin(2.0 * kPi * 2.1 * t + 0.7),
            amp * std::sin(2.0 * kPi * 3.7 * t + 1.9)};
}

}  // namespace

void ActivityScript::push(const Motion& m) {
    const double t = seconds();
    const Vec up = gravity_direction(carry_);
    const Vec shake = tremor(carry_, t);
    const double along = kStandardGravity * (1.0 + m.vertical_g) + m.jolt_mps2;
    const double forward = kStandardGravity * m.forward_g;  // along device x, horizontal

    ActivityFrame f{};
    const float acc[3] = {static_cast<float>(up.x * along + forward),
                          static_cast<float>(up.y * along), static_cast<float>(up.z * along)};
    const float gyro[3] = {static_cast<float>(shake.x + m.rate_rps[0]),
                           static_cast<float>(shake.y + m.rate_rps[1]),
                           static_cast<float>(shake.z + m.rate_rps[2])};
    for (int k = 0; k < 3; ++k) {
        f.imu.acc[k] = f.imu.acc_raw[k] = acc[k];
        f.imu.gyro[k] = f.imu.gyro_raw[k] = gyro[k];
    }
    f.imu.mag[0] = f.imu.mag_raw[0] = 20.0F;
    f.imu.mag[2] = f.imu.mag_raw[2] = -40.0F;
    f.imu.proximity[0] = 5.0F;
    f.out.gravity[0] = static_cast<float>(up.x * kStandardGravity);
    f.out.gravity[1] = static_cast<float>(up.y * kStandardGravity);
    f.out.gravity[2] = static_cast<float>(up.z * kStandardGravity);
    f.out.global_acc[0] = static_cast<float>(m.forward_g);
    f.out.global_acc[1] = 0.0F;
    f.out.global_acc[2] = static_cast<float>(m.vertical_g + m.jolt_mps2 / kStandardGravity - 1.0);
    f.dt_us = kActivityDtUs;
    frames_.push_back(f);
}

ActivityScript& ActivityScript::hold(double seconds) {
    const auto n = static_cast<int>(std::lround(seconds / kActivityDtS));
    for (int i = 0; i < n; ++i) {
        push(Motion{});
    }
    return *this;
}

// One step: vertical acceleration 0.35 g sin(2 pi phi) with a heel-strike
// harmonic, a forward push of 0.1 g, and the hand swaying with the step.
void ActivityScript::step_cycle(double step_s, double sway_rps) {
    const auto n = static_cast<int>(std::lround(step_s / kActivityDtS));
    for (int i = 0; i < n; ++i) {
        const double phi = 2.0 * kPi * static_cast<double>(i) / static_cast<double>(n);
        Motion m;
        m.vertical_g = 0.35 * std::sin(phi) + 0.08 * std::sin(2.0 * phi + 0.6);
        m.forward_g = 0.1 * std::sin(phi + 1.0);
        m.rate_rps[0] = sway_rps * 0.7 * std::cos(phi);
        m.rate_rps[1] = sway_rps * std::sin(phi);
        push(m);
    }
}

ActivityScript& ActivityScript::steps(int count, double step_s) {
    for (int k = 0; k < count; ++k) {
        step_cycle(step_s, 0.15);
    }
    return *this;
}

ActivityScript& ActivityScript::swinging_steps(int count, double step_s) {
    for (int k = 0; k < count; ++k) {
        step_cycle(step_s, 1.2);
    }
    return *this;
}

// A tap: the phone rings near the sampling limit (alternating rate, decaying
// by 0.7 per sample, the band the tap filters pass) on top of a short
// rigid push of a quarter of the peak, and |acc| jumps for two samples.
ActivityScript& ActivityScript::tap(double peak_rps, int axis, double jolt_mps2) {
    constexpr int kRing = 8;
    double ring = peak_rps;
    for (int i = 0; i < kRing; ++i) {
        Motion m;
        const double push_rps = 0.25 * peak_rps * std::sin(kPi * (i + 1) / (kRing + 1));
        m.rate_rps[axis] = ((i % 2 == 0) ? ring : -ring) + push_rps;
        m.jolt_mps2 = i < 2 ? jolt_mps2 : 0.0;
        ring *= 0.7;
        push(m);
    }
    return *this;
}

ActivityScript& ActivityScript::jolt_to(double acc_mps2) {
    Motion m;
    m.jolt_mps2 = acc_mps2 - kStandardGravity;
    push(m);
    return *this;
}

TapRecording hand_double_tap(double gap_s, bool z_axis) {
    constexpr double kTapSamples = 8 * kActivityDtS;
    const int axis = z_axis ? 2 : 0;
    ActivityScript s(Carry::kHand);
    s.hold(2.0);
    const double first = s.seconds();
    s.tap(2.0, axis, 3.0).hold(gap_s - kTapSamples).tap(2.0, axis, 3.0).hold(1.5);
    return {s.frames(), first};
}

TapRecording desk_double_tap(double gap_s) {
    constexpr double kTapSamples = 8 * kActivityDtS;
    ActivityScript s(Carry::kFlat);
    s.hold(1.0);
    const double first = s.seconds();
    s.tap(0.1, 0, 0.5).hold(gap_s - kTapSamples).tap(0.1, 0, 0.5).hold(1.0);
    return {s.frames(), first};
}

TapRecording pocket_double_tap(double gap_s, bool jolt_between, bool z_axis) {
    constexpr double kTapSamples = 8 * kActivityDtS;
    const int axis = z_axis ? 2 : 0;
    ActivityScript s(Carry::kPocket);
    s.hold(2.0);
    const double first = s.seconds();
    s.tap(1.5, axis, 2.5);
    if (jolt_between) {  // 0.2 s after the first tap began, once its burst is seen
        constexpr double kJoltAfterS = 0.2;
        s.hold(kJoltAfterS - kTapSamples).jolt_to(30.0).hold(gap_s - kJoltAfterS - kActivityDtS);
    } else {
        s.hold(gap_s - kTapSamples);
    }
    s.tap(1.5, axis, 2.5).hold(1.5);
    return {s.frames(), first};
}

ActivityRecording hand_walk(int steps, double step_s, double lead_in_s) {
    ActivityScript s(Carry::kHand);
    s.hold(lead_in_s).steps(steps, step_s).hold(1.0);
    return s.frames();
}

ActivityRecording carried_walk(int steps, double step_s) {
    ActivityScript s(Carry::kHand);
    s.swinging_steps(steps, step_s);
    return s.frames();
}

ActivityRecording still_flat(double seconds) {
    ActivityScript s(Carry::kFlat);
    s.hold(seconds);
    return s.frames();
}

void feed_pipeline(const ActivityFrame& frame) {
    ActivityFrame f = frame;
    sfc_update_gesture(&f.imu, &f.out, f.dt_us);
}

}  // namespace imu::test
