#pragma once
// Synthetic recordings for the tap, pedometer and motion detectors: what the
// gesture pipeline sees once per cycle (sample, fusion output, cycle time),
// at 200 Hz, with a known truth (where the steps and taps are).
//
// Device frame: x right, y up the screen, z out of the screen. Gravity in
// the fusion output points up at rest (+9.8066 in z lying face up). The
// fusion output's global acceleration is in g with z reading -1 at rest (the
// pipeline adds 1), so its z is the vertical acceleration minus 1 g.
//
// Every signal is deterministic: tremor is a sum of sines at unrelated
// frequencies, never a random draw.

#include <vector>

#include "imu/engine.h"

namespace imu::test {

inline constexpr int kActivityDtUs = 5000;  // 200 Hz, the service's rate
inline constexpr double kActivityDtS = 0.005;
inline constexpr double kStandardGravity = 9.8066;

struct ActivityFrame {
    IMU imu;
    SFC_OUT out;
    int dt_us;
};

using ActivityRecording = std::vector<ActivityFrame>;

// How the phone is held.
enum class Carry {
    kFlat,    // face up on a desk: gravity along +z, no tremor
    kHand,    // in front of the user, screen tilted 40 deg toward the face;
              // hand tremor about 0.02 rad/s
    kPocket,  // upright in a trouser pocket: gravity along +y, body sway
};

// Builds a recording segment by segment; each call appends frames.
class ActivityScript {
public:
    explicit ActivityScript(Carry carry) : carry_(carry) {}

    // The phone held as it is, with its carry's tremor only.
    ActivityScript& hold(double seconds);
    // Steps of period step_s with the acceleration pattern of a step with
    // the phone in the hand (0.35 g vertical swing, a heel-strike harmonic,
    // hand sway of 0.15 rad/s). Each step yields one candidate; step k's
    // candidate falls at a fixed phase of its period.
    ActivityScript& steps(int count, double step_s);
    // Walking with the phone carried loosely: the same steps with the
    // phone swinging about 1.2 rad/s (a strong motion level).
    ActivityScript& swinging_steps(int count, double step_s);
    // One tap: a rate pulse about the given axis (0 x, 2 z) of peak_rps over
    // 20 ms with a rebound, and a jolt of |acc| by jolt_mps2.
    ActivityScript& tap(double peak_rps, int axis, double jolt_mps2);
    // One sample with |acc| set to acc_mps2 (the rest of the frame as held).
    ActivityScript& jolt_to(double acc_mps2);

    const ActivityRecording& frames() const { return frames_; }
    double seconds() const { return static_cast<double>(frames_.size()) * kActivityDtS; }

private:
    struct Motion {
        double vertical_g = 0.0;  // acceleration along gravity, g
        double rate_rps[3] = {};  // added to the tremor
        double jolt_mps2 = 0.0;   // added to |acc| along gravity
        double forward_g = 0.0;   // horizontal acceleration, g
    };
    void push(const Motion& m);
    void step_cycle(double step_s, double sway_rps);

    Carry carry_;
    ActivityRecording frames_;
};

// Ready-made recordings with their truth.
struct TapRecording {
    ActivityRecording frames;
    double first_tap_s;  // time of the first tap's pulse
};

// A double tap on a phone held in the hand: 2 s of holding, two taps about
// x gap_s apart, 1.5 s of holding. z_axis: the taps twist about z instead.
TapRecording hand_double_tap(double gap_s, bool z_axis = false);
// A double tap on a phone lying on a desk: 1 s still, two light taps gap_s
// apart, 1 s still.
TapRecording desk_double_tap(double gap_s);
// A double tap on a phone in a pocket: 2 s of standing, two taps gap_s
// apart, 1.5 s standing. jolt_between: one sample with |acc| at 30 m/s^2
// 0.2 s after the first tap, inside the attempt (out of range). z_axis as for the hand.
TapRecording pocket_double_tap(double gap_s, bool jolt_between = false, bool z_axis = false);

// A walk with the phone in the hand: lead_in_s of standing, `steps` steps
// of period step_s (0.5 s and 0.7 s are the usual paces), 1 s of standing.
ActivityRecording hand_walk(int steps, double step_s, double lead_in_s = 4.0);

// A phone carried loosely while walking: the same steps with the phone
// swinging by 1.2 rad/s, from the first sample on.
ActivityRecording carried_walk(int steps, double step_s);

// The phone lying flat and still for the given time.
ActivityRecording still_flat(double seconds);

// Runs the gesture pipeline on one frame (the shared signals follow it).
void feed_pipeline(const ActivityFrame& frame);

}  // namespace imu::test
