#pragma once
// Synthetic recordings as the text of the two CSV layouts imu-replay reads.

#include <string>
#include <vector>

#include "sim/sim_recording.h"

namespace imu::test {

// Event stream: per sample an acc, a mag (every mag_every-th sample) and a
// gyro row at t_s in integer ns, each with the true orientation; a header.
std::string event_stream_csv(const std::vector<sim::Sample>& samples, int mag_every = 1);

// Wide layout with the true orientation, accelerometer in g or m/s^2,
// gyroscope in deg/s or rad/s.
std::string wide_csv(const std::vector<sim::Sample>& samples, bool acc_in_g, bool gyro_in_deg);

// Writes text to a fresh file under the temporary directory; returns its path.
std::string write_temp_file(const std::string& text, const std::string& suffix = ".csv");

}  // namespace imu::test
