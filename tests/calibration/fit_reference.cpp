// The reference fit: the distance by one bisection per point and the
// pattern search, exactly as first written (messages left out).

#include "calibration/fit_reference.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "calibration/fit_int.h"

namespace imu::test::reference {
namespace {

using fit::i64;

constexpr int kBisections = 256;
constexpr i64 kOne = i64{1} << 20;  // 1.0 in the squared fixed point

// F(t) * 2^20 for one axis term, and its sum: exact where it fits, and
// saturated (same sign) where it would not.
i64 term(i64 t, i64 esq, i64 ey) {
    const i64 q = fit::sat_add(t, esq) >> 10;
    return q != 0 ? fit::sat_sq(fit::sat_div(ey, q)) : fit::sat_mul(fit::sat_sq(ey), kOne);
}

// The bracket [t0, t1] of the root and the terms' constants.
struct Bracket {
    i64 esq[3] = {0, 0, 0};
    i64 ey[3] = {0, 0, 0};
    i64 t0 = 0;
    i64 t1 = 0;
};

Bracket make_bracket(int n, const i64* e, const i64* y) {
    Bracket b;
    i64 ey_max = fit::kMin;
    for (int i = 0; i < n; ++i) {
        b.esq[i] = fit::sat_sq(e[i]);
        b.ey[i] = fit::sat_mul(e[i], y[i]);
        ey_max = std::max(ey_max, b.ey[i]);
    }
    b.t0 = fit::sat_sub(b.ey[n - 1], b.esq[n - 1]);
    b.t1 = fit::sat_sub(fit::sat_mul(2, ey_max), b.esq[n - 1]);
    return b;
}

// sum_i (x_i - y_i)^2 with x_i = esq_i y_i / (t + esq_i), or esq_i y_i
// where t + esq_i is 0.
i64 surface_distance(int n, const i64* esq, const i64* y, i64 t) {
    i64 r = 0;
    for (int i = 0; i < n; ++i) {
        const i64 den = fit::sat_add(t, esq[i]);
        const i64 num = fit::sat_mul(esq[i], y[i]);
        const i64 x = den != 0 ? fit::sat_div(num, den) : num;
        r = fit::sat_add(r, fit::sat_sq(fit::sat_sub(x, y[i])));
    }
    return r;
}

// What the distance needs once the axes are sorted: either its value, or a
// bisection over n axes.
struct Setup {
    int n = 0;
    i64 e[3] = {0, 0, 0};
    i64 y[3] = {0, 0, 0};
    bool bisect = false;
    i64 value = 0;
};

// Eberly's closed form for a point in the plane of the two larger axes,
// in integers; it hands over to the bisection where it does not apply.
void planar(Setup& st, i64 emin) {
    const i64 emin2 = fit::sat_sq(emin);
    i64 x[3] = {0, 0, 0};
    for (int i = 0; i < st.n; ++i) {
        const i64 den = fit::sat_sub(fit::sat_sq(st.e[i]), emin2);
        const i64 num = fit::sat_mul(st.e[i], st.y[i]);
        if (num >= den) {
            st.bisect = true;
            return;
        }
        x[i] = fit::sat_div(num, den);
    }
    i64 disc = 1;
    for (int i = 0; i < st.n; ++i) {
        disc = fit::sat_sub(disc, fit::sat_sq(x[i]));
    }
    if (disc <= 0) {
        st.bisect = true;
        return;
    }
    st.value = fit::sat_mul(disc, emin2);
    for (int i = 0; i < st.n; ++i) {
        const i64 gap = fit::sat_sub(fit::sat_mul(st.e[i], x[i]), st.y[i]);
        st.value = fit::sat_add(st.value, fit::sat_sq(gap));
    }
}

// Axes of p by semi-axis, largest first; among equal ones z, then x, then y.
void axis_order(const std::int32_t* p, int* order) {
    order[0] = 2;
    order[1] = 0;
    order[2] = 1;
    for (int i = 1; i < 3; ++i) {
        for (int j = i; j > 0 && p[3 + order[j - 1]] < p[3 + order[j]]; --j) {
            std::swap(order[j - 1], order[j]);
        }
    }
}

Setup setup(const std::int32_t* p, const int* order, const std::int32_t* q, i64 sc) {
    Setup st;
    i64 d[3];
    for (int k = 0; k < 3; ++k) {
        d[k] = fit::abs64(i64{q[k]} - p[k]);
    }
    for (int j = 0; j < 3; ++j) {
        const int k = order[j];
        if (d[k] > 0) {
            st.e[st.n] = p[3 + k] / sc;
            st.y[st.n] = d[k] / sc;
            ++st.n;
        }
    }
    const int smallest = order[2];
    if (d[smallest] > 0) {
        st.bisect = true;
    } else {
        planar(st, p[3 + smallest] / sc);
    }
    return st;
}

}  // namespace

std::int32_t bisector(int n, const i64* e, const i64* y) noexcept {
    if (n < 1 || n > 3 || e == nullptr || y == nullptr) {
        return 0;
    }
    Bracket b = make_bracket(n, e, y);
    i64 t = b.t0;
    for (int it = 0; it < kBisections; ++it) {
        t = fit::mid(b.t0, b.t1);
        if (t == b.t0 || t == b.t1) {
            break;  // the ends are equal or adjacent integers
        }
        i64 f = -kOne;
        for (int i = 0; i < n; ++i) {
            f = fit::sat_add(f, term(t, b.esq[i], b.ey[i]));
        }
        if (f == 0) {
            break;
        }
        b.t0 = f > 0 ? t : b.t0;  // no branches: the sign is a coin toss
        b.t1 = f < 0 ? t : b.t1;
    }
    return fit::clamp32(surface_distance(n, b.esq, y, t));
}

std::int32_t distance(const std::int32_t* p, const std::int32_t* q, std::int32_t s) noexcept {
    if (p == nullptr || q == nullptr) {
        return 0;
    }
    int order[3];
    axis_order(p, order);
    const Setup st = setup(p, order, q, s < 1 ? 1 : s);
    return st.bisect ? bisector(st.n, st.e, st.y) : fit::clamp32(st.value);
}

// The sum of the distances of count points, axis order worked out once.
std::int64_t summed_distance(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                             std::int32_t s) noexcept {
    int order[3];
    axis_order(p, order);
    const i64 sc = s < 1 ? 1 : s;
    i64 sum = 0;
    for (int i = 0; i < count; ++i) {
        const Setup st = setup(p, order, points[i], sc);
        sum += st.bisect ? bisector(st.n, st.e, st.y) : fit::clamp32(st.value);
    }
    return sum;
}

namespace {

using fit::i64;

constexpr int kSweeps = 30;
constexpr int kPassIterations = 30;
constexpr i64 kScaledMax = 2000;  // the scale divisor keeps numbers at or below this
constexpr float kThousand = 1000.0F;

using Points = std::int32_t[kCalibSamples][3];

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

// Summed distances of the last two probes evaluated. In each iteration of
// a pass one probe stays as it was, so its sum is taken from here: the same
// numbers for half the distance calls.
class ProbeSums {
public:
    i64 sum(const std::int32_t* p, const Points& points, std::int32_t s) {
        for (int j = 0; j < 2; ++j) {
            if (valid_[j] && std::equal(p, p + 6, probe_[j])) {
                used_[j] = ++clock_;
                return sum_[j];
            }
        }
        const int j = used_[0] <= used_[1] ? 0 : 1;  // the least recently used
        std::copy(p, p + 6, probe_[j]);
        sum_[j] = summed_distance(p, points, kCalibSamples, s);
        valid_[j] = true;
        used_[j] = ++clock_;
        return sum_[j];
    }

private:
    std::int32_t probe_[2][6] = {};
    i64 sum_[2] = {0, 0};
    bool valid_[2] = {false, false};
    std::uint64_t used_[2] = {0, 0};
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
        if (di > limit || fit::abs64(di - mean) > limit) {
            return which == kAccSensor ? -1 : -2;
        }
    }
    return 0;
}

bool has_flat_axis(const float* fit_values) {
    return !(fit_values[3] > 0.0F && fit_values[4] > 0.0F && fit_values[5] > 0.0F);
}

}  // namespace

FitResult fitting(calibrator_data_struct* ws, int which) noexcept {
    FitResult r;
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
    for (int i = 0; i < 6; ++i) {
        r.fit[i] = static_cast<float>(st.cur[i] / 1000.0);
    }
    const std::int32_t limit = which == kAccSensor ? ws->acc_fit_limit : ws->mag_fit_limit;
    r.result = check_limit(st.cur, points, s, which, limit);
    if (r.result == 0 && has_flat_axis(r.fit)) {
        r.result = which == kAccSensor ? -1 : -2;
    }
    return r;
}

}  // namespace imu::test::reference
