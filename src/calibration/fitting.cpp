// The ellipsoid fit of a calibration run: a pattern search over the six
// integers of an axis-aligned ellipsoid that minimises the summed squared
// distance of the samples from its surface, after D. Eberly's integer
// point-to-ellipsoid distance; and the sphere fit that gives the
// magnetometer's own mean radius.

#include "calibration/fitting.h"

#include <android/log.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "calibration/calibration_block.h"
#include "calibration/fit_int.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"

namespace imu {
namespace {

using fit::i64;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
calibrator_data_struct g_workspace;

constexpr const char* kTag = "VLM_SFC";
constexpr int kSweeps = 30;
constexpr int kPassIterations = 30;
constexpr int kSphereIterations = 300;
constexpr i64 kScaledMax = 2000;  // the scale divisor keeps numbers at or below this
constexpr float kThousand = 1000.0F;
constexpr double kGravity = 9.8066;  // m/s^2: the accelerometer's sphere radius

using Points = std::int32_t[kCalibSamples][3];

bool valid(const calibrator_data_struct* ws, int which) {
    return ws != nullptr && (which == kAccSensor || which == kMagSensor);
}

float* triple(calibrator_data_struct* ws, int i, int which) {
    return which == kAccSensor ? ws->sample[i].acc : ws->sample[i].mag;
}

// Running sum: the int32 sum goes through float for each added value.
std::int32_t add_running(std::int32_t sum, float v) {
    return fit::trunc32(static_cast<float>(sum) + v);
}

// Centroid of the selected triple by running sums, and the largest
// |trunc(v)| of all its components.
i64 centroid(calibrator_data_struct* ws, int which, std::int32_t* centre) {
    std::int32_t sum[3] = {0, 0, 0};
    i64 m = 0;
    for (int i = 0; i < kCalibSamples; ++i) {
        const float* v = triple(ws, i, which);
        for (int k = 0; k < 3; ++k) {
            sum[k] = add_running(sum[k], v[k]);
            m = std::max(m, fit::abs64(fit::trunc32(v[k])));
        }
    }
    for (int k = 0; k < 3; ++k) {
        centre[k] = sum[k] / kCalibSamples;
    }
    return m;
}

std::int32_t scale_divisor(i64 m) {
    std::int32_t s = 1;
    while (m > kScaledMax) {
        m /= 10;
        s *= 10;
    }
    return s;
}

void load_points(calibrator_data_struct* ws, int which, Points& points) {
    for (int i = 0; i < kCalibSamples; ++i) {
        const float* v = triple(ws, i, which);
        for (int k = 0; k < 3; ++k) {
            points[i][k] = fit::trunc32(v[k]);
        }
    }
}

bool within_one(const std::int32_t* a, const std::int32_t* b) {
    for (int i = 0; i < 6; ++i) {
        if (fit::abs64(i64{a[i]} - b[i]) > 1) {
            return false;
        }
    }
    return true;
}

// Summed distances of the last probes evaluated. In each iteration of a
// pass one probe stays as it was, and passes meet earlier probes again, so
// their sums are taken from here.
class ProbeSums {
public:
    i64 sum(const std::int32_t* p, const Points& points, std::int32_t s) {
        int oldest = 0;
        for (int j = 0; j < kKept; ++j) {
            if (valid_[j] && std::equal(p, p + 6, probe_[j])) {
                used_[j] = ++clock_;
                return sum_[j];
            }
            oldest = used_[j] < used_[oldest] ? j : oldest;
        }
        std::copy(p, p + 6, probe_[oldest]);
        sum_[oldest] = summed_distance(p, points, kCalibSamples, s);
        valid_[oldest] = true;
        used_[oldest] = ++clock_;
        return sum_[oldest];
    }

private:
    static constexpr int kKept = 8;
    std::int32_t probe_[kKept][6] = {};
    i64 sum_[kKept] = {};
    bool valid_[kKept] = {};
    std::uint64_t used_[kKept] = {};
    std::uint64_t clock_ = 0;
};

// The search state: the current ellipsoid and the two probes either side.
struct Search {
    std::int32_t cur[6];
    std::int32_t a[6];
    std::int32_t b[6];
    ProbeSums sums;
};

// One pass over the parameters of mask: probe a step either side, then
// halve toward the better probe until cur settles back near its start.
void run_pass(Search& st, int mask, const Points& points, std::int32_t s) {
    std::int32_t start[6];
    std::copy(st.cur, st.cur + 6, start);
    for (int i = 0; i < 6; ++i) {
        if ((mask & (1 << i)) != 0) {
            const std::int32_t step = i < 3 ? st.cur[i + 3] / 10 : st.cur[i] / 5;
            st.a[i] = fit::clamp32(i64{st.cur[i]} + step);
            st.b[i] = fit::clamp32(i64{st.cur[i]} - step);
        }
    }
    for (int it = 0; it < kPassIterations; ++it) {
        const i64 sa = st.sums.sum(st.a, points, s);
        const i64 sb = st.sums.sum(st.b, points, s);
        const bool toward_a = sb > sa;
        for (int i = 0; i < 6; ++i) {
            if ((mask & (1 << i)) == 0) {
                continue;
            }
            std::int32_t& end = toward_a ? st.a[i] : st.b[i];
            (toward_a ? st.b[i] : st.a[i]) = st.cur[i];
            st.cur[i] = static_cast<std::int32_t>(fit::mid(st.cur[i], end));
        }
        if (within_one(st.cur, start)) {
            return;
        }
    }
}

void search(Search& st, const Points& points, std::int32_t s) {
    int changed = 0;  // parameters that moved in the last sweep
    for (int sweep = 0; sweep < kSweeps; ++sweep) {
        std::int32_t sweep_start[6];
        std::copy(st.cur, st.cur + 6, sweep_start);
        std::copy(st.cur, st.cur + 6, st.a);
        std::copy(st.cur, st.cur + 6, st.b);
        for (const int mask : {changed, 32, 16, 8, 4, 2, 1}) {
            run_pass(st, mask, points, s);
        }
        if (within_one(st.cur, sweep_start)) {
            return;
        }
        changed = 0;
        for (int i = 0; i < 6; ++i) {
            if (fit::abs64(i64{st.cur[i]} - sweep_start[i]) > 1) {
                changed |= 1 << i;
            }
        }
    }
}

// The first sample whose distance, or its deviation from the mean
// distance, breaks the limit rejects the fit.
int check_limit(const std::int32_t* cur, const Points& points, std::int32_t s, int which,
                std::int32_t limit) {
    std::int32_t d[kCalibSamples];
    i64 sum = 0;
    for (int i = 0; i < kCalibSamples; ++i) {
        d[i] = distance(cur, points[i], s);
        sum += d[i];
    }
    const i64 mean = sum / kCalibSamples;
    for (const std::int32_t di : d) {
        const i64 dev = fit::abs64(di - mean);
        if (di <= limit && dev <= limit) {
            continue;
        }
        if (which == kAccSensor) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "dist =%d \ttemp =%d", di,
                                fit::clamp32(dev));
            std::puts("Acc Calibration Failed!");
            return -1;
        }
        std::puts("Mag Calibration Failed!");
        return -2;
    }
    return 0;
}

bool has_flat_axis(const float* fit_values) {
    return !(fit_values[3] > 0.0F && fit_values[4] > 0.0F && fit_values[5] > 0.0F);
}

}  // namespace

calibrator_data_struct& calibrator_workspace() noexcept {
    return g_workspace;
}

int fitting(calibrator_data_struct* ws, int which) noexcept {
    if (!valid(ws, which)) {
        return -22;
    }
    for (int i = 0; i < kCalibSamples; ++i) {
        float* v = triple(ws, i, which);
        for (int k = 0; k < 3; ++k) {
            v[k] *= kThousand;
        }
    }
    Search st{};
    i64 m = centroid(ws, which, st.cur);
    for (int i = 0; i < kCalibSamples; ++i) {
        const float* v = triple(ws, i, which);
        for (int k = 0; k < 3; ++k) {
            const i64 dev = fit::abs64(fit::trunc32(v[k] - static_cast<float>(st.cur[k])));
            st.cur[k + 3] = std::max(st.cur[k + 3], fit::clamp32(dev));
        }
    }
    for (int k = 3; k < 6; ++k) {
        m = std::max(m, i64{st.cur[k]});
    }
    const std::int32_t s = scale_divisor(m);
    Points points;
    load_points(ws, which, points);
    search(st, points, s);

    float* out = which == kAccSensor ? ws->acc_fit : ws->mag_fit;
    for (int i = 0; i < 6; ++i) {
        out[i] = static_cast<float>(st.cur[i] / 1000.0);
    }
    const std::int32_t limit = which == kAccSensor ? ws->acc_fit_limit : ws->mag_fit_limit;
    const int verdict = check_limit(st.cur, points, s, which, limit);
    if (verdict != 0) {
        return verdict;
    }
    if (has_flat_axis(out)) {  // no scale can be derived from a semi-axis of 0
        std::puts(which == kAccSensor ? "Acc Calibration Failed!" : "Mag Calibration Failed!");
        return which == kAccSensor ? -1 : -2;
    }
    std::puts("Calibration Finished!");
    return 0;
}

float sphere(calibrator_data_struct* ws, int which) noexcept {
    if (!valid(ws, which)) {
        return 0.0F;
    }
    std::int32_t g0[3];
    const std::int32_t s = scale_divisor(centroid(ws, which, g0));
    const float fs = static_cast<float>(s);
    std::int32_t g[3] = {g0[0], g0[1], g0[2]};
    i64 lm = 0;
    for (int it = 0; it < kSphereIterations; ++it) {
        i64 sum[3] = {0, 0, 0};
        i64 sl = 0;
        for (int i = 0; i < kCalibSamples; ++i) {
            const float* v = triple(ws, i, which);
            i64 dv[3];
            i64 sq = 0;
            for (int k = 0; k < 3; ++k) {
                dv[k] = fit::trunc32((v[k] - static_cast<float>(g[k])) / fs);
                sq = fit::sat_add(sq, fit::sat_sq(dv[k]));
            }
            const auto len =
                static_cast<i64>(std::sqrt(static_cast<double>(static_cast<float>(sq))));
            const i64 l = fit::sat_mul(s, len);
            if (l > 0) {
                for (int k = 0; k < 3; ++k) {
                    sum[k] -= dv[k] / l;
                }
                sl = fit::sat_add(sl, l);
            }
        }
        lm = sl / kCalibSamples;
        bool moved = false;
        for (int k = 0; k < 3; ++k) {
            const std::int32_t next =
                fit::clamp32(fit::sat_add(g0[k], fit::sat_mul(lm, sum[k] / kCalibSamples)));
            moved = moved || next != g[k];
            g[k] = next;
        }
        if (!moved) {
            break;
        }
    }
    return static_cast<float>(static_cast<double>(static_cast<float>(lm)) / 1000.0);
}

int calculate_bias() noexcept {
    calibrator_data_struct& ws = g_workspace;
    read_acc_mag_raw();
    ws.acc_fit_limit = kAccFitLimit;
    ws.mag_fit_limit = kMagFitLimit;
    const int ra = fitting(&ws, kAccSensor);
    const int rm = fitting(&ws, kMagSensor);
    const float radius = sphere(&ws, kMagSensor);

    float* c = calibration_state().s_calib2;
    for (int k = 0; k < 3; ++k) {
        c[kAccOffset + k] = ws.acc_fit[k];
        c[kMagOffset + k] = ws.mag_fit[k];
    }
    if (!has_flat_axis(ws.acc_fit)) {
        for (int k = 0; k < 3; ++k) {
            c[kAccScale + k] = static_cast<float>(kGravity / static_cast<double>(ws.acc_fit[3 + k]));
        }
    }
    if (!has_flat_axis(ws.mag_fit)) {
        for (int k = 0; k < 3; ++k) {
            c[kMagScale + k] = radius / ws.mag_fit[3 + k];
        }
    }
    save_calibration();
    return ra + rm;
}

}  // namespace imu
