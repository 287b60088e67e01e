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

namespace {

// Many bisections at once. The search sums the distances of all 240
// samples, and each bisection is a chain of dependent steps, each waiting
// for three divisions; run side by side in vector lanes, the steps of
// different points overlap and the divisions share one instruction.
//
// A point takes a lane when its numbers are small enough for every step to
// be exact in 32-bit lanes: |e| < 2^13 and |e y| < 2^24 keep t, t + e^2
// and q within int32 and make the float quotient ey / q, cut toward zero,
// the integer quotient (a quotient of integers below 2^24 never rounds
// across an integer). The sign of F needs no more than the squared terms
// up to 1025^2: a larger one makes F positive alone, so the terms are
// clamped there and the sum stays within int32. Other points, and all
// points of a wide ellipsoid, take the scalar bisector.

using V4i = std::int32_t __attribute__((vector_size(16)));
using V4f = float __attribute__((vector_size(16)));

constexpr i64 kLaneMaxE = i64{1} << 13;
constexpr i64 kLaneMaxEy = i64{1} << 24;
constexpr int kVectors = 4;
constexpr int kLanes = 4 * kVectors;
constexpr float kTiny = 1.0F / 1024.0F;
constexpr float kClamp = 1025.0F;
constexpr float kOneF = 1048576.0F;  // 2^20
constexpr std::int32_t kAbsMask = 0x7FFFFFFF;

bool fits_lane(const Setup& st) {
    if (st.n < 1) {
        return false;
    }
    for (int i = 0; i < st.n; ++i) {
        if (fit::abs64(st.e[i]) >= kLaneMaxE || st.y[i] >= kLaneMaxEy ||
            fit::abs64(st.e[i]) * st.y[i] >= kLaneMaxEy) {
            return false;
        }
    }
    return true;
}

// The points waiting for a lane, and one step of all lanes of a vector.
class LaneBatch {
public:
    // Adds a point that fits_lane accepted; runs the batch when it is full
    // and returns the sum of the distances found (0 while it fills).
    i64 add(const Setup& st) {
        const int v = count_ / 4;
        const int l = count_ % 4;
        n_[count_] = st.n;
        i64 ey_max = fit::kMin;
        for (int i = 0; i < 3; ++i) {
            const i64 e = i < st.n ? st.e[i] : 0;
            y_[count_][i] = i < st.n ? st.y[i] : 0;
            esq_[i][v][l] = static_cast<std::int32_t>(e * e);
            const i64 ey = e * y_[count_][i];
            eyf_[i][v][l] = static_cast<float>(ey);  // exact: |ey| < 2^24
            if (i < st.n) {
                ey_max = std::max(ey_max, ey);
            }
        }
        const i64 last_esq = st.e[st.n - 1] * st.e[st.n - 1];
        t0_[v][l] = static_cast<std::int32_t>(st.e[st.n - 1] * st.y[st.n - 1] - last_esq);
        t1_[v][l] = static_cast<std::int32_t>(2 * ey_max - last_esq);
        ++count_;
        return count_ == kLanes ? run() : 0;
    }

    // Bisects the points added since the last run and returns the sum of
    // their distances.
    i64 run() {
        if (count_ == 0) {
            return 0;
        }
        for (int k = count_; k < kLanes; ++k) {  // idle lanes stop at once
            const int v = k / 4;
            const int l = k % 4;
            t0_[v][l] = 0;
            t1_[v][l] = 0;
            for (int i = 0; i < 3; ++i) {
                esq_[i][v][l] = 0;
                eyf_[i][v][l] = 0.0F;
            }
        }
        // The bracket halves with each step: from below 2^28 it closes
        // within 30 steps, far inside the scalar bound.
        for (int it = 0; it < kBisections; ++it) {
            V4i any = V4i{};
            for (int v = 0; v < kVectors; ++v) {
                any |= step(v);
            }
            if ((any[0] | any[1] | any[2] | any[3]) == 0) {
                break;
            }
        }
        i64 sum = 0;
        for (int k = 0; k < count_; ++k) {
            const std::int32_t a = t0_[k / 4][k % 4];
            const std::int32_t b = t1_[k / 4][k % 4];
            sum += surface(k, (a >> 1) + (b >> 1) + (a & b & 1));
        }
        count_ = 0;
        return sum;
    }

private:
    // One bisection step of the four lanes of vector v, as bisector takes
    // it. A lane whose midpoint is an end or whose F is 0 keeps its
    // bracket from then on, so its midpoint stays the t it stopped at.
    // Returns the lanes that moved.
    V4i step(int v) {
        const V4i a = t0_[v];
        const V4i b = t1_[v];
        const V4i mid = (a >> 1) + (b >> 1) + (a & b & 1);
        V4f sq = V4f{};
        for (int i = 0; i < 3; ++i) {
            const V4i q = (mid + esq_[i][v]) >> 10;
            // For q of 0 the term is ey^2 2^20: dividing by 2^-10 gives
            // |ey| 2^10, that is 0, exactly 2^10, or beyond the clamp.
            const V4f qf = q == 0 ? kTiny : __builtin_convertvector(q, V4f);
            const V4f quo = eyf_[i][v] / qf;
            V4f mag = reinterpret_cast<V4f>(reinterpret_cast<V4i>(quo) & kAbsMask);
            mag = mag < kClamp ? mag : kClamp;
            mag = __builtin_convertvector(__builtin_convertvector(mag, V4i), V4f);
            sq += mag * mag;  // below 2^22: exact
        }
        const V4i moving = (mid != a) & (mid != b) & (sq != kOneF);
        t0_[v] = moving & (sq > kOneF) ? mid : a;
        t1_[v] = moving & (sq < kOneF) ? mid : b;
        return moving;
    }

    // The squared distance of point k once its bisection ended at t.
    i64 surface(int k, std::int32_t t) const {
        const int v = k / 4;
        const int l = k % 4;
        i64 r = 0;
        for (int i = 0; i < n_[k]; ++i) {
            const i64 esq = esq_[i][v][l];
            const i64 den = i64{t} + esq;
            const i64 num = esq * y_[k][i];  // below 2^37: exact as a double
            const i64 x = den != 0 ? static_cast<i64>(static_cast<double>(num) /
                                                      static_cast<double>(den))
                                   : num;
            r = fit::sat_add(r, fit::sat_sq(x - y_[k][i]));
        }
        return fit::clamp32(r);
    }

    V4i t0_[kVectors] = {};
    V4i t1_[kVectors] = {};
    V4i esq_[3][kVectors] = {};
    V4f eyf_[3][kVectors] = {};
    i64 y_[kLanes][3] = {};
    int n_[kLanes] = {};
    int count_ = 0;
};

}  // namespace

std::int64_t summed_distance(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                             std::int32_t s) noexcept {
    if (p == nullptr || points == nullptr) {
        return 0;
    }
    int order[3];
    axis_order(p, order);
    const i64 sc = s < 1 ? 1 : s;
    LaneBatch batch;
    i64 sum = 0;
    for (int i = 0; i < count; ++i) {
        const Setup st = setup(p, order, points[i], sc);
        if (!st.bisect) {
            sum += fit::clamp32(st.value);
        } else if (fits_lane(st)) {
            sum += batch.add(st);
        } else {
            sum += bisector(st.n, st.e, st.y);
        }
    }
    return sum + batch.run();
}

}  // namespace imu
