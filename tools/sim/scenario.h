#pragma once
// Scenarios: a small text description of what a phone goes through, turned
// into a synthetic recording with its truth and the list of what was
// scripted. One instruction per line, '#' starts a comment:
//
//   rate 200            gyroscope and accelerometer rate, Hz
//   mag_rate 100        magnetometer rate, Hz
//   seed 1              noise generator seed
//   noise 1             noise level: 0 none, 1 a typical phone
//   start flat 30       start pose (flat, face_down or hand) and azimuth, deg
//   still 5             hold the pose for 5 s (held in the hand: tremor)
//   pick_up 1           flat -> held in the hand (top edge raised 40 deg)
//   lay_flat 1          held in the hand -> flat, face up
//   turn 90 2           turn the heading clockwise by 90 deg in 2 s
//   walk 20 0.5         20 steps, 0.5 s each, held in the hand
//   shake               four quick alternating twists about the screen normal
//   double_tap 0.3      two taps 0.3 s apart, held in the hand
//   snap                one flick about the device x axis and a slow return
//   face_down 0.6       flat face up -> face down (turned about y) in 0.6 s
//   face_up 0.6         face down -> face up
//
// Numbers after a step are optional from the first one that has a default.

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/event_csv.h"

namespace imu::sim {

enum class HeldPose { kFlat, kFaceDown, kHand };

enum class StepKind {
    kStill,
    kPickUp,
    kLayFlat,
    kTurn,
    kWalk,
    kShake,
    kDoubleTap,
    kSnap,
    kFaceDown,
    kFaceUp,
};

struct ScenarioStep {
    StepKind kind = StepKind::kStill;
    double args[2] = {};  // as written, defaults filled in
    int line = 0;
};

struct Scenario {
    std::string name;  // file name or built-in name, for messages
    double rate_hz = 200.0;
    double mag_rate_hz = 100.0;
    std::uint32_t seed = 1;
    double noise = 1.0;
    HeldPose start = HeldPose::kFlat;
    double start_azimuth_deg = 0.0;
    std::vector<ScenarioStep> steps;
};

// A scenario that cannot be read: what() is "<name>:<line>: <what>"
// (line 0 for problems of the whole scenario).
class ScenarioError : public std::runtime_error {
public:
    ScenarioError(const std::string& name, int line, const std::string& what);
    int line() const { return line_; }

private:
    int line_;
};

// The pose a phone is left in by a step that starts from before.
HeldPose pose_after(StepKind kind, HeldPose before);

// Parses a scenario; name is used in error messages. Throws ScenarioError.
Scenario parse_scenario(std::istream& in, const std::string& name);

// The text of a built-in scenario ("demo"), or nullptr.
const char* builtin_scenario(const std::string& name);

// Longest recording rendered, in samples of the main rate.
inline constexpr std::int64_t kMaxSamples = 1000000;

// Renders the scenario into an event stream: acc and gyro at rate_hz, mag
// at mag_rate_hz, all with the truth; the events of the steps (start time,
// name, detail); comments naming the scenario and its settings. Throws
// ScenarioError, naming the step, when the recording would exceed
// kMaxSamples (83 minutes at 200 Hz).
EventStream render_scenario(const Scenario& scenario);

}  // namespace imu::sim
