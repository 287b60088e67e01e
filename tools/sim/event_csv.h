#pragma once
// The event-stream CSV: one sensor sample per row, with the true
// orientation as optional extra columns, and "# event" comment lines that
// say what a synthetic recording scripted and when.
//
//   # event,12.500,shake
//   timestamp_ns,sensor,x,y,z,true_qw,true_qx,true_qy,true_qz
//   0,acc,0.0000,0.0000,9.8066,1.000000,0.000000,0.000000,0.000000
//
// Sensors: acc (m/s^2), gyro (rad/s), mag (uT), light (lux in x),
// proximity (cm in x), button (the button word in x), device frame. The
// truth is q_world_from_device, scalar first, world east-north-up.

#include <cstdint>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/sim_recording.h"

namespace imu::sim {

enum class SensorKind { kAcc, kGyro, kMag, kLight, kProximity, kButton };

// "acc", "gyro", ...; nullopt for any other name.
const char* sensor_name(SensorKind kind);
std::optional<SensorKind> sensor_from_name(const std::string& name);

struct EventRow {
    std::int64_t timestamp_ns = 0;
    SensorKind sensor = SensorKind::kAcc;
    double v[3] = {};
    std::optional<Quat> truth;
};

// Something the scenario scripted: "# event,<time_s>,<name>[,<detail>]".
struct ScriptEvent {
    double t_s = 0.0;
    std::string name;
    std::string detail;
};

struct EventStream {
    std::vector<std::string> comments;  // free "# " lines written before the header
    std::vector<EventRow> rows;         // non-decreasing timestamps
    std::vector<ScriptEvent> events;    // in time order
};

// Decimals written per sensor: what a phone resolves, and keeps the file
// small. The truth gets 6 (about 0.0001 deg).
int decimals(SensorKind kind);
inline constexpr int kTruthDecimals = 6;

// Writes the comments, the header, then the rows; each event line goes
// right before the first row at or after its time.
void write_event_csv(std::ostream& out, const EventStream& stream);

// Reads a stream as write_event_csv writes it (header optional, truth
// columns optional, "# event" lines collected, other comments skipped).
// On failure returns false and sets error to "line N: what".
bool read_event_csv(std::istream& in, EventStream* stream, std::string* error);

}  // namespace imu::sim
