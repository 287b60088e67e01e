#pragma once
// A synthetic walk with the phone held in the hand, sampled every 5 ms, and
// its records in the input units of the two step-counting modules.
//
// The phone is held in front of the walker, screen up and tilted 30 deg
// toward them, so gravity reads (0, 4.905, 8.496) m/s^2. Each step adds a
// bounce along gravity: the heel strike lifts |a| by `rise_mps2` in a 100 ms
// half-sine (top at 50 ms), the body then sinks by `dip_mps2` in a 120 ms
// half-sine (bottom at 160 ms), and the rest of the step is level. The hand
// sways sideways once every two steps (x, perpendicular to gravity) and
// turns a little about all three axes, so the gyroscope never repeats a
// small value. Header-only: the benchmarks use it too.

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace imu::test {

constexpr int kStepWalkSampleMs = 5;

struct StepWalkPlan {
    double step_period_s = 0.5;
    int steps = 20;
    double lead_in_s = 2.0;  // standing still before the first step
    double tail_s = 1.0;     // standing still after the last one
    double rise_mps2 = 2.5;
    double dip_mps2 = 2.0;
};

struct StepWalkSample {
    double acc_mps2[3];
    double gyro_rps[3];
};

// Bounce of |a| at time tau into a step, in m/s^2.
inline double step_bounce_mps2(double tau_s, const StepWalkPlan& plan) {
    const double pi = 3.14159265358979323846;
    if (tau_s < 0.1) {
        return plan.rise_mps2 * std::sin(pi * tau_s / 0.1);
    }
    if (tau_s < 0.22) {
        return -plan.dip_mps2 * std::sin(pi * (tau_s - 0.1) / 0.12);
    }
    return 0.0;
}

inline std::vector<StepWalkSample> make_step_walk(const StepWalkPlan& plan) {
    const double pi = 3.14159265358979323846;
    const double g = 9.81;
    const double tilt = 30.0 * pi / 180.0;
    const double up[3] = {0.0, std::sin(tilt), std::cos(tilt)};  // unit vector of gravity
    const double walk_s = plan.steps * plan.step_period_s;
    const int n = static_cast<int>(
        std::lround((plan.lead_in_s + walk_s + plan.tail_s) * 1000.0 / kStepWalkSampleMs));
    std::vector<StepWalkSample> walk(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k) {
        const double t = k * kStepWalkSampleMs / 1000.0;
        const double into_walk = t - plan.lead_in_s;
        const bool walking = into_walk >= 0.0 && into_walk < walk_s;
        double bounce = 0.0;
        if (walking) {
            bounce = step_bounce_mps2(std::fmod(into_walk, plan.step_period_s), plan);
        }
        const double sway_phase = 2.0 * pi * t / (2.0 * plan.step_period_s);
        const double sway = walking ? 0.3 * std::sin(sway_phase) : 0.0;
        const double turn = walking ? 1.0 : 0.2;  // the hand turns less while standing
        StepWalkSample& s = walk[static_cast<std::size_t>(k)];
        for (int i = 0; i < 3; ++i) {
            s.acc_mps2[i] = (g + bounce) * up[i];
        }
        s.acc_mps2[0] += sway;
        s.gyro_rps[0] = turn * 0.4 * std::sin(sway_phase);
        s.gyro_rps[1] = turn * 0.25 * std::cos(sway_phase);
        s.gyro_rps[2] = turn * 0.1 * std::sin(2.0 * sway_phase);
    }
    return walk;
}

// First module: thousandths of m/s^2 and rad/s, the time step in word 9.
inline std::array<std::int32_t, 10> velmo_record(const StepWalkSample& s,
                                                 std::int32_t dt_ms = kStepWalkSampleMs) {
    std::array<std::int32_t, 10> r{};
    for (int i = 0; i < 3; ++i) {
        r[static_cast<std::size_t>(i)] =
            static_cast<std::int32_t>(std::lround(s.acc_mps2[i] * 1000.0));
        r[static_cast<std::size_t>(i + 3)] =
            static_cast<std::int32_t>(std::lround(s.gyro_rps[i] * 1000.0));
    }
    r[9] = dt_ms;
    return r;
}

// Second module: m/s^2 and rad/s as 16.16 fixed point.
inline std::array<std::int32_t, 6> oem_record(const StepWalkSample& s) {
    std::array<std::int32_t, 6> r{};
    for (int i = 0; i < 3; ++i) {
        r[static_cast<std::size_t>(i)] =
            static_cast<std::int32_t>(std::lround(s.acc_mps2[i] * 65536.0));
        r[static_cast<std::size_t>(i + 3)] =
            static_cast<std::int32_t>(std::lround(s.gyro_rps[i] * 65536.0));
    }
    return r;
}

}  // namespace imu::test
