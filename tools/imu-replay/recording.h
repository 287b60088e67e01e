#pragma once
// A recording of a phone's sensors, read from one of two CSV layouts:
//
//   event stream  timestamp_ns,sensor,x,y,z[,true_qw,true_qx,true_qy,true_qz]
//                 one sample per row; sensors acc, gyro, mag, light,
//                 proximity, button
//   wide          t_s,acc_x,acc_y,acc_z,gyro_x,gyro_y,gyro_z,mag_x,mag_y,mag_z
//                 [,q_w,q_x,q_y,q_z]; one row holds one sample of each of the
//                 three motion sensors, in the units chosen by Units
//
// Lines starting with '#' are comments; "# event,<time_s>,<name>[,<detail>]"
// lines give the script of a synthetic recording. A header row is optional
// in both layouts. The true orientation is q_world_from_device, scalar
// first, world east-north-up.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace imu::replay {

enum class Sensor : std::uint8_t { kAcc, kGyro, kMag, kLight, kProximity, kButton };

struct Row {
    std::int64_t t_ns = 0;
    float v[3] = {};
    float truth[4] = {};  // w, x, y, z when has_truth
    Sensor sensor = Sensor::kAcc;
    bool has_truth = false;
};

struct ScriptEvent {
    double t_s = 0.0;
    std::string name;
    std::string detail;
};

enum class Layout { kAuto, kEventStream, kWide };

// Units of the wide layout; the event stream always carries m/s^2 and rad/s.
struct Units {
    bool acc_in_g = false;
    bool gyro_in_deg = false;
};

struct Recording {
    Layout layout = Layout::kEventStream;
    std::vector<Row> rows;  // in file order, timestamps non-decreasing
    std::vector<ScriptEvent> script;
    std::size_t count[6] = {};  // rows per Sensor
    bool has_truth = false;     // some row carries the true orientation
    double duration_s() const;
};

// Parses text; name is the file name used in error messages. Returns "" on
// success, else one line "<name>:<line>: column <n> (<column>): <what>"
// (or "<name>: <what>" for the file as a whole).
std::string parse_recording(std::string_view text, const std::string& name, Layout layout,
                            const Units& units, Recording& out);

// Reads the whole file and parses it.
std::string read_recording(const std::string& path, Layout layout, const Units& units,
                           Recording& out);

const char* sensor_name(Sensor s);

}  // namespace imu::replay
