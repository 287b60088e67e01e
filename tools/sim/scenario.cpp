#include "sim/scenario.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace imu::sim {
namespace {

struct ArgLimits {
    const char* what;
    double lo;
    double hi;
    bool whole;
};

struct StepForm {
    const char* name;
    StepKind kind;
    int required;  // numbers that must be given; the rest have defaults
    int count;     // numbers the step takes
    double defaults[2];
    ArgLimits args[2];
};

constexpr ArgLimits kSeconds{"seconds", 0.001, 3600.0, false};
constexpr ArgLimits kMoveSeconds{"seconds", 0.2, 10.0, false};
constexpr ArgLimits kFlipSeconds{"seconds", 0.2, 5.0, false};
constexpr ArgLimits kNone{"", 0.0, 0.0, false};

constexpr StepForm kSteps[] = {
    {"still", StepKind::kStill, 1, 1, {0.0, 0.0}, {kSeconds, kNone}},
    {"pick_up", StepKind::kPickUp, 0, 1, {1.0, 0.0}, {kMoveSeconds, kNone}},
    {"lay_flat", StepKind::kLayFlat, 0, 1, {1.0, 0.0}, {kMoveSeconds, kNone}},
    {"turn",
     StepKind::kTurn,
     1,
     2,
     {0.0, 1.0},
     {{"degrees", -3600.0, 3600.0, false}, {"seconds", 0.1, 600.0, false}}},
    {"walk",
     StepKind::kWalk,
     1,
     2,
     {0.0, 0.5},
     {{"steps", 1.0, 10000.0, true}, {"period", 0.3, 1.5, false}}},
    {"shake", StepKind::kShake, 0, 0, {0.0, 0.0}, {kNone, kNone}},
    {"double_tap", StepKind::kDoubleTap, 0, 1, {0.3, 0.0}, {{"gap", 0.1, 0.5, false}, kNone}},
    {"snap", StepKind::kSnap, 0, 0, {0.0, 0.0}, {kNone, kNone}},
    {"face_down", StepKind::kFaceDown, 0, 1, {0.6, 0.0}, {kFlipSeconds, kNone}},
    {"face_up", StepKind::kFaceUp, 0, 1, {0.6, 0.0}, {kFlipSeconds, kNone}},
};

const char* pose_name(HeldPose p) {
    switch (p) {
        case HeldPose::kFlat:
            return "lying flat face up";
        case HeldPose::kFaceDown:
            return "lying face down";
        case HeldPose::kHand:
            return "held in the hand";
    }
    return "?";
}

// The pose a step needs before it (false: any).
bool needs_pose(StepKind kind, HeldPose* needed) {
    switch (kind) {
        case StepKind::kPickUp:
        case StepKind::kFaceDown:
            *needed = HeldPose::kFlat;
            return true;
        case StepKind::kLayFlat:
        case StepKind::kWalk:
        case StepKind::kDoubleTap:
            *needed = HeldPose::kHand;
            return true;
        case StepKind::kFaceUp:
            *needed = HeldPose::kFaceDown;
            return true;
        default:
            return false;
    }
}

const char* how_to_reach(HeldPose p) {
    switch (p) {
        case HeldPose::kFlat:
            return "lay_flat or face_up first";
        case HeldPose::kFaceDown:
            return "face_down first";
        case HeldPose::kHand:
            return "pick_up first";
    }
    return "";
}

bool parse_number(const std::string& text, double* value) {
    errno = 0;
    char* end = nullptr;
    *value = std::strtod(text.c_str(), &end);
    return !text.empty() && errno == 0 && end == text.c_str() + text.size() &&
           std::isfinite(*value);
}

std::string format_limit(double v) {
    if (v == std::floor(v) && std::fabs(v) < 1e15) {
        return std::to_string(static_cast<long long>(v));
    }
    std::ostringstream s;
    s << v;
    return s.str();
}

// Checks one number against its limits; throws with the step's name.
double checked(const std::string& step, const ArgLimits& want, const std::string& text,
               const Scenario& sc, int line) {
    // "walk: steps must be ..." for a step's numbers, "seed must be ..." for a setting.
    const std::string subject = *want.what == '\0' ? step : step + ": " + want.what;
    double v = 0.0;
    if (!parse_number(text, &v)) {
        throw ScenarioError(sc.name, line, subject + " must be a number, not '" + text + "'");
    }
    const bool whole_ok = !want.whole || v == std::floor(v);
    if (v < want.lo || v > want.hi || !whole_ok) {
        throw ScenarioError(sc.name, line,
                            subject + " must be " + (want.whole ? "a whole number " : "") +
                                "from " + format_limit(want.lo) + " to " + format_limit(want.hi) +
                                ", not '" + text + "'");
    }
    return v;
}

std::vector<std::string> tokens_of(const std::string& line) {
    std::string text = line.substr(0, line.find('#'));
    std::istringstream in(text);
    std::vector<std::string> tokens;
    std::string t;
    while (in >> t) {
        tokens.push_back(t);
    }
    return tokens;
}

// rate, mag_rate, seed, noise, start. Returns false for any other word.
bool parse_setting(const std::vector<std::string>& tok, Scenario& sc, int line, bool steps_seen) {
    const std::string& word = tok[0];
    if (word != "rate" && word != "mag_rate" && word != "seed" && word != "noise" &&
        word != "start") {
        return false;
    }
    if (steps_seen) {
        throw ScenarioError(sc.name, line, word + " must come before the first step");
    }
    if (word == "start") {
        if (tok.size() < 2 || tok.size() > 3) {
            throw ScenarioError(sc.name, line,
                                "start takes a pose (flat, face_down or hand) and an "
                                "optional azimuth in degrees");
        }
        if (tok[1] == "flat") {
            sc.start = HeldPose::kFlat;
        } else if (tok[1] == "face_down") {
            sc.start = HeldPose::kFaceDown;
        } else if (tok[1] == "hand") {
            sc.start = HeldPose::kHand;
        } else {
            throw ScenarioError(sc.name, line,
                                "start: unknown pose '" + tok[1] + "' (flat, face_down or hand)");
        }
        if (tok.size() == 3) {
            sc.start_azimuth_deg =
                checked("start", {"azimuth", 0.0, 360.0, false}, tok[2], sc, line);
        }
        return true;
    }
    if (tok.size() != 2) {
        throw ScenarioError(sc.name, line, word + " takes one number");
    }
    if (word == "rate") {
        sc.rate_hz = checked(word, {"", 20.0, 1000.0, false}, tok[1], sc, line);
    } else if (word == "mag_rate") {
        sc.mag_rate_hz = checked(word, {"", 1.0, 1000.0, false}, tok[1], sc, line);
    } else if (word == "seed") {
        sc.seed = static_cast<std::uint32_t>(
            checked(word, {"", 0.0, 4294967295.0, true}, tok[1], sc, line));
    } else {
        sc.noise = checked(word, {"", 0.0, 10.0, false}, tok[1], sc, line);
    }
    return true;
}

std::string step_names() {
    std::string names;
    for (const StepForm& s : kSteps) {
        names += names.empty() ? "" : ", ";
        names += s.name;
    }
    return names;
}

}  // namespace

HeldPose pose_after(StepKind kind, HeldPose before) {
    switch (kind) {
        case StepKind::kPickUp:
            return HeldPose::kHand;
        case StepKind::kLayFlat:
        case StepKind::kFaceUp:
            return HeldPose::kFlat;
        case StepKind::kFaceDown:
            return HeldPose::kFaceDown;
        default:
            return before;
    }
}

ScenarioError::ScenarioError(const std::string& name, int line, const std::string& what)
    : std::runtime_error(name + (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " +
                         what),
      line_(line) {}

Scenario parse_scenario(std::istream& in, const std::string& name) {
    Scenario sc;
    sc.name = name;
    HeldPose pose = sc.start;
    std::string text;
    int line = 0;
    while (std::getline(in, text)) {
        ++line;
        const std::vector<std::string> tok = tokens_of(text);
        if (tok.empty()) {
            continue;
        }
        if (parse_setting(tok, sc, line, !sc.steps.empty())) {
            pose = sc.start;
            continue;
        }
        const StepForm* def = nullptr;
        for (const StepForm& s : kSteps) {
            if (tok[0] == s.name) {
                def = &s;
            }
        }
        if (def == nullptr) {
            throw ScenarioError(name, line,
                                "unknown step '" + tok[0] + "' (steps: " + step_names() +
                                    "; settings: rate, mag_rate, seed, noise, start)");
        }
        const int given = static_cast<int>(tok.size()) - 1;
        if (given < def->required) {
            throw ScenarioError(name, line, std::string(def->name) + " needs " + def->args[0].what);
        }
        if (given > def->count) {
            throw ScenarioError(
                name, line,
                std::string(def->name) + " takes " +
                    (def->count == 0 ? std::string("no numbers")
                                     : "at most " + std::to_string(def->count) +
                                           (def->count == 1 ? " number" : " numbers")));
        }
        ScenarioStep step;
        step.kind = def->kind;
        step.line = line;
        for (int i = 0; i < def->count; ++i) {
            const auto k = static_cast<std::size_t>(i);
            step.args[k] = i < given ? checked(def->name, def->args[k], tok[k + 1], sc, line)
                                     : def->defaults[k];
        }
        if (step.kind == StepKind::kTurn && step.args[0] == 0.0) {
            throw ScenarioError(name, line, "turn: degrees must not be 0");
        }
        HeldPose needed = HeldPose::kFlat;
        if (needs_pose(step.kind, &needed) && pose != needed) {
            throw ScenarioError(name, line,
                                std::string(def->name) + " needs the phone " + pose_name(needed) +
                                    ", but it is " + pose_name(pose) + " (" + how_to_reach(needed) +
                                    ")");
        }
        pose = pose_after(step.kind, pose);
        sc.steps.push_back(step);
    }
    if (sc.steps.empty()) {
        throw ScenarioError(name, 0, "no steps");
    }
    return sc;
}

}  // namespace imu::sim
