#include "sim/calib_samples.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace imu::test {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kHalf = 120;

double rad(double deg) { return deg * kPi / 180.0; }

// Small deterministic generator: uniform in [-1, 1].
struct Noise {
    unsigned state;
    double next() {
        state = state * 1664525U + 1013904223U;
        return static_cast<double>(state >> 8) / static_cast<double>(1U << 23) - 1.0;
    }
};

// y = R^T x for the row-major 3x3 R.
void rotate_back(const float* r, const double* x, double* y) {
    for (int j = 0; j < 3; ++j) {
        y[j] = static_cast<double>(r[j]) * x[0] + static_cast<double>(r[3 + j]) * x[1] +
               static_cast<double>(r[6 + j]) * x[2];
    }
}

// The sensor's reading of a device-frame vector, per axis.
void read_through(const CalibSensorTruth& t, const double* device, float* raw) {
    for (int k = 0; k < 3; ++k) {
        raw[k] = static_cast<float>(static_cast<double>(t.offset[k]) +
                                    device[k] / static_cast<double>(t.scale[k]));
    }
}

// Reference-frame vector seen in the device frame (filter frame with y and
// z reversed).
void to_device(const float* matrix, const double* ref, double* device) {
    double filter[3];
    rotate_back(matrix, ref, filter);
    device[0] = filter[0];
    device[1] = -filter[1];
    device[2] = -filter[2];
}

void readings(const CalibRunSetup& setup, const float* matrix, double* acc, double* mag) {
    const double up[3] = {0.0, 0.0, -kStandardGravity};  // reference z points down
    const double dip = rad(setup.inclination_deg);
    const double field[3] = {0.0, -setup.field_ut * std::cos(dip), setup.field_ut * std::sin(dip)};
    to_device(matrix, up, acc);
    to_device(matrix, field, mag);
}

}  // namespace

void direction_matrix(const double* v, double spin_rad, float* out) {
    // Rodrigues rotation about n = z x v / |z x v| by the angle between z and v.
    const double c = std::clamp(v[2], -1.0, 1.0);
    const double s = std::sqrt(std::max(0.0, 1.0 - c * c));
    const double n[3] = {s > 0 ? -v[1] / s : 1.0, s > 0 ? v[0] / s : 0.0, 0.0};
    double r[9];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            r[i * 3 + j] = (i == j ? c : 0.0) + (1.0 - c) * n[i] * n[j];
        }
    }
    r[1] -= s * n[2];
    r[2] += s * n[1];
    r[3] += s * n[2];
    r[5] -= s * n[0];
    r[6] -= s * n[1];
    r[7] += s * n[0];
    // Spin about the device z: R = R_min * Rz(spin); the third column stays v.
    const double cz = std::cos(spin_rad);
    const double sz = std::sin(spin_rad);
    for (int i = 0; i < 3; ++i) {
        const double a = r[i * 3];
        const double b = r[i * 3 + 1];
        out[i * 3] = static_cast<float>(a * cz + b * sz);
        out[i * 3 + 1] = static_cast<float>(-a * sz + b * cz);
        out[i * 3 + 2] = static_cast<float>(r[i * 3 + 2]);
    }
}

void sensor_readings(const CalibRunSetup& setup, const float* matrix, IMU* imu) {
    double acc[3];
    double mag[3];
    readings(setup, matrix, acc, mag);
    read_through(setup.acc, acc, imu->acc_raw);
    read_through(setup.mag, mag, imu->mag_raw);
}

CalibRun make_calib_run(const CalibRunSetup& setup) {
    CalibRun run;
    Noise noise{setup.seed};
    double phi = 0.0;
    for (int i = 0; i < 2 * kHalf; ++i) {
        // Polar angle from the pole of the half: 15 deg out to 85 and back,
        // azimuth steps that keep each move about 10 deg long.
        const double theta = rad(15.0 + 70.0 * std::sin(kPi * (i % kHalf) / (kHalf - 1)));
        const double z = i < kHalf ? std::cos(theta) : -std::cos(theta);
        const double v[3] = {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), z};
        // The spin undoes the azimuth and turns a full circle every 15 steps,
        // so that the readings spread evenly about each sensor's centre.
        const double spin = phi + rad(24.0 * i);
        phi += std::min(rad(40.0), rad(10.0) / std::sin(theta));

        CalibStep step{};
        direction_matrix(v, spin, step.matrix);
        double acc[3];
        double mag[3];
        readings(setup, step.matrix, acc, mag);
        for (int k = 0; k < 3; ++k) {
            acc[k] += setup.acc_noise * noise.next();
            mag[k] += setup.mag_noise * noise.next();
        }
        read_through(setup.acc, acc, step.imu.acc_raw);
        read_through(setup.mag, mag, step.imu.mag_raw);
        double r2 = 0.0;
        for (int k = 0; k < 3; ++k) {
            const double d = static_cast<double>(step.imu.mag_raw[k] - setup.mag.offset[k]);
            r2 += d * d;
        }
        run.mag_radius += std::sqrt(r2) / (2 * kHalf);
        run.steps.push_back(step);
    }
    return run;
}

std::string raw_file_text(const CalibRun& run) {
    std::string text;
    char line[256];
    for (const CalibStep& s : run.steps) {
        const float* a = s.imu.acc_raw;
        const float* m = s.imu.mag_raw;
        std::snprintf(line, sizeof line, "%.5f\t%.5f\t%.5f\t%.5f\t%.5f\t%.5f\n",
                      static_cast<double>(a[0]), static_cast<double>(a[1]),
                      static_cast<double>(a[2]), static_cast<double>(m[0]),
                      static_cast<double>(m[1]), static_cast<double>(m[2]));
        text += line;
    }
    return text;
}

}  // namespace imu::test
