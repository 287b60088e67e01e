// Squared distance of a point from the surface of an axis-aligned
// ellipsoid, after D. Eberly's method, in integers. With the point's
// offsets y_i >= 0 along semi-axes e_0 >= e_1 >= e_2 the nearest surface
// point is x_i = e_i^2 y_i / (t + e_i^2), where t is the root of
//
//   F(t) = sum_i (e_i y_i / (t + e_i^2))^2 - 1,
//
// found by bisection in fixed point with 10 fractional bits: the squared
// term is (e_i y_i / ((t + e_i^2) >> 10))^2 against 2^20.

#include <algorithm>
#include <cstdint>
#include <utility>

#include "calibration/fit_int.h"
#include "calibration/fitting.h"

namespace imu {
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

std::int64_t summed_distance(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                             std::int32_t s) noexcept {
    if (p == nullptr || points == nullptr) {
        return 0;
    }
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

}  // namespace imu
