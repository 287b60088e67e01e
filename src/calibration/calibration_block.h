#pragma once
// The calibration block and the calibrator mode: process-wide, shared by the
// correction functions, the fitting and the calibration run.

#include <cstdint>

namespace imu {

// Indices into the 15 floats of the block (the file's field order).
inline constexpr int kGyroOffset = 0;
inline constexpr int kAccOffset = 3;
inline constexpr int kAccScale = 6;
inline constexpr int kMagOffset = 9;
inline constexpr int kMagScale = 12;
inline constexpr int kCalibFields = 15;

// Calibrator modes: which sensors the correction applies to.
inline constexpr std::int32_t kCalibrateNone = 0;
inline constexpr std::int32_t kCalibrateAcc = 1;
inline constexpr std::int32_t kCalibrateAccMag = 2;

struct CalibrationState {
    float s_calib2[kCalibFields] = {0, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1};
    std::int32_t calibrator_mode = kCalibrateAcc;
    std::int32_t calib_file_created = 0;   // the default file was tried once
    std::int32_t calib_loaded_input = 0;   // loaded for GetZarnCalibratedData
    std::int32_t calib_loaded_fusion = 0;  // loaded for apply_calibration
};

// The one calibration state of the process.
CalibrationState& calibration_state() noexcept;

}  // namespace imu
