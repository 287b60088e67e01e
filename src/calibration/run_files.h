#pragma once
// The two files of a calibration run: the raw sample file
// "/data/system/acc_mag_raw.txt" (one tab-separated line of acc_raw and
// mag_raw per kept sample) and the request file
// "/data/system/velmo_calibrator_s.ini" (an application writes 1 to ask for
// a run). Each function opens its file, does its job and closes it.

#include <cstdint>

#include "imu/engine.h"

namespace imu {

struct RunFileState {
    std::int32_t raw_file_started = 0;  // the current run has emptied the raw file
};

// The run-file state of the process.
RunFileState& run_file_state() noexcept;

// Appends acc_raw and mag_raw of imu as one line; the first sample of a run
// (raw_file_started clear) empties the file first. Returns 0, a negated
// errno when the file cannot be opened, or -22 for a null imu.
int save_acc_mag_raw(const IMU* imu) noexcept;

// Loads up to 240 lines of the raw file into the workspace's sample table.
// Returns 0 after the 240th sample. When the numbers end earlier the
// entries read so far are filled and the rest keep their values; the result
// is then the stream's negated errno, or -ENODATA at the end of the input
// or at text that is not a number. A missing file gives its negated errno.
int read_acc_mag_raw() noexcept;

// Sets the request file's mode to 0777. Returns 0, or -1 with the log line
// "change file failed.\n".
int changeFile_mode() noexcept;  // NOLINT(readability-identifier-naming)

}  // namespace imu
