// Renders a scenario from the motion generators: turns and gestures from
// GestureSequence, walks, taps and the hand's tremor from ActivityScript.
// The truth always follows the gyroscope, the magnetometer reads the
// earth's field in the true pose, and noise is added last.

#include <algorithm>
#include <cmath>
#include <sstream>

#include "sim/activity_sequences.h"
#include "sim/gaussian.h"
#include "sim/gesture_sequences.h"
#include "sim/scenario.h"

namespace imu::sim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kHandPitchDeg = 40.0;  // the hand carry of ActivityScript
// Shake twists: peak 6.5 rad/s over 0.15 s, above the shake threshold
// (5.5 rad/s) and below the snap threshold (7 rad/s).
constexpr double kTwistS = 0.15;
constexpr double kTwistPeakRps = 6.5;
// Noise of level 1, standard deviation per axis.
constexpr double kAccNoiseMps2 = 0.02;
constexpr double kGyroNoiseRps = 0.001;
constexpr double kMagNoiseUt = 0.3;

struct Tick {
    double acc[3];
    double gyro[3];
    Quat truth;
};

Quat to_quat(const test::Quatd& q) { return {q.w, q.x, q.y, q.z}; }
test::Quatd to_quatd(const Quat& q) { return {q.w, q.x, q.y, q.z}; }

class Renderer {
public:
    Renderer(const Scenario& sc)
        : sc_(sc),
          dt_s_(1.0 / sc.rate_hz),
          dt_us_(static_cast<int>(std::lround(1e6 / sc.rate_hz))),
          held_(sc.start) {
        pose_ = held_pose(sc.start, sc.start_azimuth_deg);
        ticks_.push_back(Tick{{0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, pose_});
        set_still_readings(ticks_.back());
    }

    void run(const ScenarioStep& step) {
        const double t_s = static_cast<double>(ticks_.size() - 1) * dt_s_;
        const double a0 = step.args[0];
        const double a1 = step.args[1];
        switch (step.kind) {
            case StepKind::kStill:
                still(a0);
                break;
            case StepKind::kPickUp:
                event(t_s, "pick_up");
                turn_device({1.0, 0.0, 0.0}, kHandPitchDeg * kPi / 180.0, a0);
                break;
            case StepKind::kLayFlat:
                event(t_s, "lay_flat");
                turn_device({1.0, 0.0, 0.0}, -kHandPitchDeg * kPi / 180.0, a0);
                break;
            case StepKind::kTurn: {
                event(t_s, "turn", number(a0) + " deg");
                // Clockwise seen from above: about the world's down axis.
                const Vec3 down = rotate(conjugate(pose_), {0.0, 0.0, -1.0});
                turn_device({down.x, down.y, down.z}, a0 * kPi / 180.0, a1);
                break;
            }
            case StepKind::kWalk: {
                event(t_s, "walk", number(a0) + " steps");
                test::ActivityScript walk(test::Carry::kHand);
                walk.steps(static_cast<int>(a0), a1);
                append_activity(walk.frames());
                break;
            }
            case StepKind::kShake:
                event(t_s, "shake");
                shake();
                break;
            case StepKind::kDoubleTap: {
                event(t_s, "double_tap");
                constexpr int kTapSamples = 8;  // the length of ActivityScript::tap
                test::ActivityScript taps(test::Carry::kHand);
                taps.tap(2.0, 0, 3.0).hold(a0 - kTapSamples * test::kActivityDtS).tap(2.0, 0, 3.0);
                append_activity(taps.frames());
                break;
            }
            case StepKind::kSnap: {
                event(t_s, "snap");
                test::GestureSequence g(dt_us_);
                g.pose(to_quatd(pose_));
                g.turn({1.0, 0.0, 0.0}, 0.72, 0.12).hold(0.3).turn({1.0, 0.0, 0.0}, -0.72, 1.2);
                append_gesture(g);
                break;
            }
            case StepKind::kFaceDown:
                event(t_s, "face_down");
                turn_device({0.0, 1.0, 0.0}, kPi, a0);
                break;
            case StepKind::kFaceUp:
                event(t_s, "face_up");
                turn_device({0.0, 1.0, 0.0}, -kPi, a0);
                break;
        }
        held_ = pose_after(step.kind, held_);
    }

    EventStream finish() {
        EventStream out;
        std::ostringstream settings;
        settings << "rate " << number(sc_.rate_hz) << " Hz (acc, gyro), mag_rate "
                 << number(sc_.mag_rate_hz) << " Hz, noise " << number(sc_.noise) << ", seed "
                 << sc_.seed;
        out.comments = {"libimu synthetic recording of scenario " + sc_.name, settings.str(),
                        "truth: q_world_from_device, scalar first, world east-north-up"};
        out.events = events_;
        Gaussian noise(sc_.seed);
        const SensorModel model;
        const double mag_period_s = 1.0 / sc_.mag_rate_hz;
        double next_mag_s = 0.0;
        out.rows.reserve(ticks_.size() * 3);
        for (std::size_t k = 0; k < ticks_.size(); ++k) {
            const Tick& tick = ticks_[k];
            const double t_s = static_cast<double>(k) * dt_s_;
            const auto t_ns = static_cast<std::int64_t>(std::llround(t_s * 1e9));
            out.rows.push_back(row(t_ns, SensorKind::kAcc, tick.acc, kAccNoiseMps2 * sc_.noise,
                                   noise, tick.truth));
            if (t_s >= next_mag_s - 1e-9) {
                const Vec3 f = rotate(conjugate(tick.truth), model.field_world_ut);
                const double mag[3] = {f.x, f.y, f.z};
                out.rows.push_back(
                    row(t_ns, SensorKind::kMag, mag, kMagNoiseUt * sc_.noise, noise, tick.truth));
                next_mag_s += mag_period_s;
            }
            out.rows.push_back(row(t_ns, SensorKind::kGyro, tick.gyro, kGyroNoiseRps * sc_.noise,
                                   noise, tick.truth));
        }
        return out;
    }

private:
    static Quat held_pose(HeldPose p, double azimuth_deg) {
        switch (p) {
            case HeldPose::kHand:
                return pose(azimuth_deg, kHandPitchDeg, 0.0);
            case HeldPose::kFaceDown:
                return pose(azimuth_deg, 0.0, 180.0);
            case HeldPose::kFlat:
                break;
        }
        return pose(azimuth_deg, 0.0, 0.0);
    }

    static std::string number(double v) {
        std::ostringstream s;
        s << v;
        return s.str();
    }

    static EventRow row(std::int64_t t_ns, SensorKind kind, const double v[3], double sigma,
                        Gaussian& noise, const Quat& truth) {
        EventRow r;
        r.timestamp_ns = t_ns;
        r.sensor = kind;
        for (int i = 0; i < 3; ++i) {
            const double n = noise.next();
            r.v[i] = v[i] + sigma * n;
        }
        r.truth = truth.w < 0.0 ? Quat{-truth.w, -truth.x, -truth.y, -truth.z} : truth;
        return r;
    }

    void event(double t_s, const std::string& name, const std::string& detail = {}) {
        events_.push_back(ScriptEvent{t_s, name, detail});
    }

    // The accelerometer of a phone at rest in the tick's pose.
    static void set_still_readings(Tick& t) {
        const Vec3 g = rotate(conjugate(t.truth), {0.0, 0.0, test::GestureSequence::kGravityMps2});
        t.acc[0] = g.x;
        t.acc[1] = g.y;
        t.acc[2] = g.z;
    }

    // Held in the hand: the hand's tremor, made a minute at a time so that
    // long holds stay small. Elsewhere: the phone at rest.
    void still(double seconds) {
        if (held_ == HeldPose::kHand) {
            constexpr double kChunkS = 60.0;
            const auto chunks = static_cast<int>(std::ceil(seconds / kChunkS));
            for (int i = 0; i < chunks; ++i) {
                test::ActivityScript hold(test::Carry::kHand);
                hold.hold(std::min(seconds - i * kChunkS, kChunkS));
                append_activity(hold.frames());
            }
            return;
        }
        const auto n = std::lround(seconds * sc_.rate_hz);
        for (long i = 0; i < n; ++i) {
            Tick t{};
            t.truth = pose_;
            set_still_readings(t);
            ticks_.push_back(t);
        }
    }

    // A smooth turn by angle about a device axis (GestureSequence::turn).
    void turn_device(const test::Vec3d& axis, double angle_rad, double seconds) {
        test::GestureSequence g(dt_us_);
        g.pose(to_quatd(pose_)).turn(axis, angle_rad, seconds);
        append_gesture(g);
    }

    // Four alternating twists about z; the shake is recognised on the
    // third, the fourth brings the phone back to where it started.
    void shake() {
        test::GestureSequence g(dt_us_);
        g.pose(to_quatd(pose_));
        const double angle = kTwistPeakRps * kTwistS / 2.0;
        for (int i = 0; i < 4; ++i) {
            g.turn({0.0, 0.0, 1.0}, (i % 2 == 0 ? angle : -angle), kTwistS);
        }
        append_gesture(g);
    }

    void append_gesture(const test::GestureSequence& g) {
        for (const test::GestureFrame& f : g.frames()) {
            Tick t{};
            for (int i = 0; i < 3; ++i) {
                t.acc[i] = static_cast<double>(f.imu.acc[i]);
                t.gyro[i] = static_cast<double>(f.imu.gyro[i]);
            }
            t.truth = to_quat(f.pose);
            ticks_.push_back(t);
        }
        if (!g.frames().empty()) {
            pose_ = to_quat(g.frames().back().pose);
        }
    }

    // ActivityScript runs at 200 Hz; other rates take its signals linearly
    // interpolated. Its frames hold the phone in a fixed carry pose; here
    // the gyroscope turns the truth, and the accelerometer reads gravity in
    // that truth plus the frame's own motion (its reading less the carry's
    // gravity), so that sensors and truth stay consistent.
    void append_activity(const test::ActivityRecording& frames) {
        if (frames.empty()) {
            return;
        }
        const double seconds = static_cast<double>(frames.size()) * test::kActivityDtS;
        const auto n = static_cast<std::size_t>(std::lround(seconds / dt_s_));
        const double last = static_cast<double>(frames.size() - 1);
        for (std::size_t j = 0; j < n; ++j) {
            const double x = std::clamp(
                static_cast<double>(j + 1) * dt_s_ / test::kActivityDtS - 1.0, 0.0, last);
            const auto i0 = static_cast<std::size_t>(std::floor(x));
            const std::size_t i1 = std::min(i0 + 1, frames.size() - 1);
            const double w = x - static_cast<double>(i0);
            const auto mix = [&](const float* a, const float* b, int i) {
                return (1.0 - w) * static_cast<double>(a[i]) + w * static_cast<double>(b[i]);
            };
            const test::ActivityFrame& f0 = frames[i0];
            const test::ActivityFrame& f1 = frames[i1];
            Tick t{};
            for (int i = 0; i < 3; ++i) {
                t.gyro[i] = mix(f0.imu.gyro, f1.imu.gyro, i);
            }
            const Vec3 rate{t.gyro[0], t.gyro[1], t.gyro[2]};
            const double speed = std::sqrt(rate.x * rate.x + rate.y * rate.y + rate.z * rate.z);
            if (speed > 0.0) {
                pose_ = normalized(pose_ * axis_angle(rate, speed * dt_s_));
            }
            t.truth = pose_;
            set_still_readings(t);
            for (int i = 0; i < 3; ++i) {
                t.acc[i] += mix(f0.imu.acc, f1.imu.acc, i) - mix(f0.out.gravity, f1.out.gravity, i);
            }
            ticks_.push_back(t);
        }
    }

    const Scenario& sc_;
    double dt_s_;
    int dt_us_;
    HeldPose held_;
    Quat pose_;
    std::vector<Tick> ticks_;
    std::vector<ScriptEvent> events_;
};

// How long a step lasts (the generators' lengths: four twists of 0.15 s,
// taps of 8 samples at 200 Hz, a flick of 0.12 s, 0.3 s and 1.2 s).
double step_duration_s(const ScenarioStep& step) {
    switch (step.kind) {
        case StepKind::kTurn:
            return step.args[1];
        case StepKind::kWalk:
            return step.args[0] * step.args[1];
        case StepKind::kShake:
            return 4.0 * kTwistS;
        case StepKind::kDoubleTap:
            return step.args[0] + 8.0 * test::kActivityDtS;
        case StepKind::kSnap:
            return 0.12 + 0.3 + 1.2;
        default:
            return step.args[0];
    }
}

}  // namespace

EventStream render_scenario(const Scenario& scenario) {
    if (scenario.mag_rate_hz > scenario.rate_hz) {
        throw ScenarioError(scenario.name, 0, "mag_rate must not exceed rate");
    }
    double total_s = 0.0;
    for (const ScenarioStep& step : scenario.steps) {
        total_s += step_duration_s(step);
        if (total_s * scenario.rate_hz > static_cast<double>(kMaxSamples)) {
            throw ScenarioError(scenario.name, step.line,
                                "the recording grows beyond " + std::to_string(kMaxSamples) +
                                    " samples; shorten the scenario or lower the rate");
        }
    }
    Renderer r(scenario);
    for (const ScenarioStep& step : scenario.steps) {
        r.run(step);
    }
    return r.finish();
}

}  // namespace imu::sim
