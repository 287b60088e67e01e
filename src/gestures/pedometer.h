#pragma once
// The pedometer: single steps in the acceleration magnitude, each candidate
// checked against limits on amplitude, duration, rotation and horizontal
// acceleration; a step length from the step interval; the first steps of a
// walk held back until the walk is regular.

#include <array>

namespace imu {

// Step states. -3 to -8 are rejected candidates, back to idle on the next
// call; -2 waits for calm; -1 (no rotation data) is final.
//
//   0 idle --d > up--> 1 rising --d < down--> 2 falling --d turns up-->
//   judged: accepted -> 3 hold-off --170 ms--> 0,  or rejected -5 .. -8
enum PedometerState : int {
    kPedNoRotation = -1,
    kPedTooStrong = -2,
    kPedRiseTooLong = -3,
    kPedFallTooLong = -4,
    kPedDropTooDeep = -5,
    kPedSideways = -6,
    kPedBadDuration = -7,
    kPedBadInterval = -8,
    kPedIdle = 0,
    kPedRising = 1,
    kPedFalling = 2,
    kPedAfterStep = 3,
};

struct Pedometer {
    int ped_state = kPedIdle;
    float ped_stage_timer = 0.0F;            // Ts: s since the step began or since its peak
    float ped_interval_timer = 0.0F;         // Ti: s since the last judged candidate
    float ped_step_timer = 0.0F;             // Tk: s since the last accepted step
    std::array<float, 4> ped_acc_history{};  // |acc| in g, oldest first
    float ped_acc_mean = 0.0F;
    std::array<float, 4> ped_gyro_history{};  // |gyro|^2, oldest first
    float ped_gyro_mean = 0.0F;
    float ped_high_peak = 0.0F;              // decaying maximum of d
    float ped_low_peak = 0.0F;               // decaying minimum of d
    float ped_peak_acc = 0.0F;               // highest d of the current step
    float ped_gyro_max = 0.0F;               // highest ped_gyro_mean of the current step
    std::array<float, 3> ped_global_peak{};  // largest |global_acc| per axis this step
    float ped_previous_acc = 0.0F;           // d of the previous call
    std::array<float, 4> ped_intervals{5.0F, 5.0F, 5.0F, 5.0F};  // newest first
    std::array<float, 5> ped_lengths{};                          // m, newest first
    float ped_walking = 0.0F;                                    // 1.0 while walking

    void step(float* out) noexcept;
    std::array<float*, 3> timers() noexcept {
        return {&ped_stage_timer, &ped_interval_timer, &ped_step_timer};
    }

private:
    struct Signals {
        float d;      // dynamic acceleration, g
        float g;      // mean squared rate, (rad/s)^2
        double up;    // a step begins above this
        double down;  // ... and turns below this
    };
    Signals update_signals(float dt) noexcept;
    void on_idle(const Signals& s) noexcept;
    void on_rising(const Signals& s) noexcept;
    void on_falling(const Signals& s, float* out) noexcept;
    int judge(float d) const noexcept;
    void accept(float* out) noexcept;
    void back_to_idle() noexcept;
};

// The process's instance behind sfc_get_pedometer.
Pedometer& pedometer() noexcept;

// Step length in metres from the step interval in seconds.
float step_length_m(float interval_s) noexcept;

}  // namespace imu
