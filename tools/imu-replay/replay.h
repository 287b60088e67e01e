#pragma once
// Replays a recording through the library's service API as a sensor service
// would feed it: accelerometer and magnetometer samples as input types 6 and
// 7, gyroscope samples as type 0 (each runs a fusion cycle), button words as
// type 999; light and proximity go to the host's simulated sensor hub, from
// which the service's poll thread takes them as on a phone.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "recording.h"

namespace imu::replay {

inline constexpr int kSlots = 27;
inline constexpr int kCalibrationSlot = 5;
inline constexpr int kOrientationSlot = 4;
inline constexpr int kRotationVectorSlot = 3;
inline constexpr int kPedometerSlot = 24;

// The name of virtual sensor index (0 to 26), as the service's log prints it.
const char* slot_name(int index);
// The index of a name (case-insensitive) or of a number 0 to 26; -1 if none.
int slot_index(const std::string& name);
// Indices whose third value marks the cycle that recognised a gesture.
bool is_gesture(int index);

struct Gesture {
    double t_s = 0.0;
    int index = 0;
};

struct Step {
    double t_s = 0.0;
    float steps = 0.0F;  // counted in that cycle (the pedometer holds the first ones back)
    float length_m = 0.0F;
};

struct PlotPoint {
    float t_s;
    float angles[3];  // azimuth, pitch, roll, degrees
};

struct ReplaySettings {
    int mode = 0;
    std::vector<int> enable;     // virtual sensor indices
    std::vector<int> out_slots;  // slots written per cycle to out
    std::FILE* out = nullptr;    // per-cycle CSV, or none
    std::size_t plot_points = 4000;  // at most this many orientation samples kept
    bool progress = false;           // progress bar on stderr after a second
    double settle_s = 2.0;           // orientation error counted from here on
};

struct ReplayResult {
    std::size_t samples = 0;
    std::size_t cycles = 0;
    std::size_t not_ready = 0;    // gyroscope samples that ran no cycle for missing data
    std::size_t time_errors = 0;  // gyroscope samples rejected for their interval
    double wall_s = 0.0;
    double cycles_per_s = 0.0;
    std::vector<Gesture> gestures;
    std::vector<Step> steps;
    double step_count = 0.0;
    double distance_m = 0.0;
    float final_orientation[3] = {};
    std::size_t error_cycles = 0;  // cycles with a truth, from settle_s on
    double error_rms_deg = 0.0;
    double error_max_deg = 0.0;
    std::vector<PlotPoint> plot;
};

// Echo the library's log lines to stderr (they are only counted otherwise).
void set_log_echo(bool echo);

// Runs the replay. The service object lives for the whole process, so each
// call continues where the previous one left off; absolute timestamps are
// shifted so that every replay follows the previous one by one period.
// Returns "" or an error text (writing out failed).
std::string run_replay(const Recording& rec, const ReplaySettings& settings,
                       ReplayResult& result);

// Writes the summary (see main) to f.
void print_summary(std::FILE* f, const std::string& name, const Recording& rec,
                   const ReplaySettings& settings, const ReplayResult& result);

// Draws the orientation angles over time, with the recognised gestures and
// steps marked and the script's events along the bottom, into a PNG with
// gnuplot. Returns "" or an error text.
std::string write_plot(const std::string& png, const std::string& title,
                       const ReplayResult& result, const std::vector<ScriptEvent>& script = {});

}  // namespace imu::replay
