// input_raw_data on arbitrary sequences of sample types, values (NaN,
// +-inf, denormals, huge) and timestamps (backwards, equal, gaps), mixed
// with mode changes and control calls; afterwards a still, flat device
// must bring the filter back to a valid orientation within a bounded
// number of good samples. With IMU_FUZZ_REPORT set, the slowest recovery
// so far is printed.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "engine/fusion_engine.h"
#include "fuzz_support.h"
#include "imu/engine.h"
#include "imu/service.h"

namespace {

using imu::fuzz::check;

constexpr int kMaxOps = 1500;
constexpr long long kPeriodNs = 5000000;  // 200 Hz
// Good samples within which the output must be valid, and within which the
// tilt error must fall below 2 degrees (20 s at 200 Hz).
constexpr int kValidSamples = 10;
constexpr int kRecoverySamples = 4000;

long long g_ts = 1000000000LL;  // the running absolute timestamp

long long next_timestamp(imu::fuzz::Bytes& in, int how) {
    switch (how) {
        case 0:
            g_ts += kPeriodNs;
            return g_ts;
        case 1:
            return g_ts;  // equal
        case 2:
            g_ts -= static_cast<long long>(in.u32());  // backwards
            return g_ts;
        case 3:
            g_ts += static_cast<long long>(in.u32()) * 4;  // gaps up to about 17 s
            return g_ts;
        case 4:
            return static_cast<long long>(in.u64());  // anything
        case 5:
            return 0;
        case 6:
            return (in.u8() & 1) != 0 ? std::numeric_limits<long long>::max()
                                      : std::numeric_limits<long long>::min();
        default:
            return static_cast<long long>(in.u16()) * 1000;  // an interval in ns
    }
}

// Angle between the estimated gravity and the device's up axis, in degrees
// (180 for an estimate upside down); -1 when the output is unusable.
double tilt_error_deg() {
    float q[4];
    float g[3];
    float euler[3];
    if (sfc_get_euler_angle(euler) != 0 || sfc_get_gravity(g) != 0) {
        return -1.0;
    }
    sfc_get_quaternion(q);
    double norm = 0.0;
    for (float v : q) {
        if (!std::isfinite(v)) {
            return -1.0;
        }
        norm += static_cast<double>(v) * static_cast<double>(v);
    }
    const double gn = std::sqrt(static_cast<double>(g[0]) * g[0] + static_cast<double>(g[1]) * g[1] +
                                static_cast<double>(g[2]) * g[2]);
    if (std::fabs(norm - 1.0) > 1e-3 || !(gn > 0.5)) {
        return -1.0;
    }
    return std::acos(std::fmin(1.0, static_cast<double>(g[2]) / gn)) * 57.29577951308232;
}

// Feeds a still, flat device (mode 2, 200 Hz) until the output is valid
// and the tilt error below 2 degrees. A bad sample can leave the filter
// tilted with a small covariance, from which the accelerometer pulls it
// back at the filter's own slow rate (about 2.5 s per factor e); beyond
// 90 deg the still device is re-initialised after 100 updates.
void recover() {
    set_fusiond_moed(2);
    control_fusiond(4, 1);
    float acc[3] = {0.0F, 0.0F, 9.80665F};
    float mag[3] = {8.0F, 20.0F, -40.0F};  // a heading off north: all-zero angles read as invalid
    float gyro[3] = {0.0F, 0.0F, 0.0F};
    static int worst_valid = 0;
    static int worst_level = 0;
    int valid_at = -1;
    double trace[kRecoverySamples / 500] = {};
    for (int i = 0; i < kRecoverySamples; ++i) {
        input_raw_data(6, acc, 0);
        input_raw_data(7, mag, 0);
        input_raw_data(0, gyro, kPeriodNs);
        const double tilt = tilt_error_deg();
        if (i % 500 == 0) {
            trace[i / 500] = tilt;
        }
        if (valid_at < 0 && tilt >= 0.0) {
            valid_at = i;
        }
        check(valid_at >= 0 || i + 1 < kValidSamples, "valid output within 10 good samples");
        if (tilt >= 0.0 && tilt < 2.0) {
            if (std::getenv("IMU_FUZZ_REPORT") != nullptr &&
                (valid_at > worst_valid || i > worst_level)) {
                worst_valid = std::max(worst_valid, valid_at);
                worst_level = std::max(worst_level, i);
                std::fprintf(stderr, "recovery: valid after %d, level after %d samples\n",
                             worst_valid + 1, worst_level + 1);
            }
            return;
        }
    }
    std::fprintf(stderr, "tilt every 500 samples:");
    for (double t : trace) {
        std::fprintf(stderr, " %.2f", t);
    }
    float q[4];
    sfc_get_quaternion(q);
    std::fprintf(stderr, "\nquaternion %g %g %g %g\n", static_cast<double>(q[0]),
                 static_cast<double>(q[1]), static_cast<double>(q[2]), static_cast<double>(q[3]));
    const imu::MotionStats& st = imu::engine().stats;
    std::fprintf(stderr, "levels acc %g gyro %g, bias %g %g %g\n",
                 static_cast<double>(st.acc_level), static_cast<double>(st.gyro_level),
                 static_cast<double>(st.gyro_bias_estimate[0]),
                 static_cast<double>(st.gyro_bias_estimate[1]),
                 static_cast<double>(st.gyro_bias_estimate[2]));
    check(false, "the filter levels within 4000 good samples");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    imu::fuzz::setup_root();
    imu::fuzz::Bytes in(data, size);
    set_fusiond_moed(in.u8() % 6);
    for (int op = 0; op < kMaxOps && !in.empty(); ++op) {
        const std::uint8_t code = in.u8();
        float v[3] = {0.0F, 0.0F, 0.0F};
        switch (code & 7U) {
            case 0:
            case 1:
            case 2:
            case 3:
                in.triple(v, 0.0F, 0.0F, 0.0F);
                input_raw_data(0, v, next_timestamp(in, (code >> 3) & 7));
                break;
            case 4:
                in.triple(v, 0.0F, 0.0F, 9.80665F);
                input_raw_data(6, v, 0);
                break;
            case 5:
                in.triple(v, 0.0F, 20.0F, -40.0F);
                input_raw_data(7, v, 0);
                break;
            case 6:
                v[0] = in.real();
                input_raw_data(999, v, 0);
                break;
            default:
                switch ((code >> 3) & 3U) {
                    case 0:
                        set_fusiond_moed(static_cast<int>(in.u8() % 8));
                        break;
                    case 1:
                        control_fusiond(static_cast<int>(in.u8() % 34) - 1, in.u8() & 1);
                        break;
                    case 2:
                        input_raw_data(in.i32(), v, next_timestamp(in, code >> 5));
                        break;
                    default:
                        input_raw_data(0, nullptr, 0);
                        get_fusiond_data(static_cast<int>(in.u8() % 30) - 1, v);
                        break;
                }
                break;
        }
    }
    recover();
    return 0;
}
