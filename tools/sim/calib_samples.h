#pragma once
// Synthetic calibration runs with a known truth: 240 orientations that the
// collector keeps one after the other (the first 120 screen up, the next
// 120 screen down, each a step of about 10 deg from the last), with the
// accelerometer and magnetometer readings a phone with known offsets and
// axis scales would give at each of them.

#include <string>
#include <vector>

#include "imu/engine.h"

namespace imu::test {

// A sensor's error model: corrected = (raw - offset) * scale, per axis.
struct CalibSensorTruth {
    float offset[3];
    float scale[3];
};

struct CalibRunSetup {
    CalibSensorTruth acc{{0.3F, -0.2F, 0.5F}, {1.02F, 0.97F, 1.05F}};       // m/s^2
    CalibSensorTruth mag{{25.0F, -12.0F, 40.0F}, {1.10F, 0.92F, 1.00F}};   // uT
    double field_ut = 45.0;         // magnitude of the earth's field
    double inclination_deg = 60.0;  // dip of the field below the horizon
    double acc_noise = 0.02;        // m/s^2, uniform +- on each axis
    double mag_noise = 0.2;         // uT
    unsigned seed = 1;
};

struct CalibStep {
    IMU imu;          // acc_raw and mag_raw filled, the rest zero
    float matrix[9];  // rotation matrix, filter frame to reference frame
};

struct CalibRun {
    std::vector<CalibStep> steps;  // 240 steps, each kept by the collector
    // Mean distance of the magnetometer readings from the true offset: the
    // radius the magnetometer scales map the ellipsoid onto.
    double mag_radius = 0.0;
};

inline constexpr double kStandardGravity = 9.8066;

CalibRun make_calib_run(const CalibRunSetup& setup = {});

// The raw sample file the run leaves behind (one "%.5f" tab line a step).
std::string raw_file_text(const CalibRun& run);

// The rotation matrix that turns the device's z axis onto the unit vector
// v (its third column is v) after a spin of spin_rad about the device z.
void direction_matrix(const double* v, double spin_rad, float* out);

// Fills acc_raw and mag_raw of imu as the sensors of setup read them at the
// orientation of matrix, without noise.
void sensor_readings(const CalibRunSetup& setup, const float* matrix, IMU* imu);

}  // namespace imu::test
