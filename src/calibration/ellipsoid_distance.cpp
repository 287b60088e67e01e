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
#include <atomic>
#include <cstdint>
#include <utility>

#include "calibration/fit_int.h"
#include "calibration/fitting.h"

namespace imu {
namespace {

using fit::i64;

constexpr int kBisections = 256;
constexpr i64 kOne = i64{1} << 20;  // 1.0 in the squared fixed point
constexpr i64 kLaneMaxE = i64{1} << 15;  // semi-axes the vector lanes take, below

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

// The ellipsoid as every point of a sum sees it: axes in distance order,
// with the centre and the scaled semi-axes in that order.
struct Frame {
    int order[3];
    i64 centre[3];
    i64 e[3];
    i64 sc;
    double scd;
    // For points off all three centre planes: the semi-axes suit the lanes
    // (0 <= e2 <= e1 and e0, those two below 2^15), their squares, and their
    // part of the memo key.
    bool lanes3;
    std::int32_t esq[3];
    std::uint64_t key_a;
    std::uint64_t key_b;
};

Frame make_frame(const std::int32_t* p, i64 sc) {
    Frame f{};
    axis_order(p, f.order);
    for (int j = 0; j < 3; ++j) {
        f.centre[j] = p[f.order[j]];
        f.e[j] = p[3 + f.order[j]] / sc;
    }
    f.sc = sc;
    f.scd = static_cast<double>(sc);
    f.lanes3 = f.e[2] >= 0 && f.e[1] >= f.e[2] && f.e[0] >= f.e[2] && f.e[0] < kLaneMaxE &&
               f.e[1] < kLaneMaxE;
    if (f.lanes3) {
        for (int j = 0; j < 3; ++j) {
            f.esq[j] = static_cast<std::int32_t>(f.e[j] * f.e[j]);
        }
        const auto u = [](i64 v) { return static_cast<std::uint64_t>(v); };
        f.key_a = u(f.e[0]) << 48;
        f.key_b = u(f.e[1]) << 24 | u(f.e[2]) << 39 | u(3) << 54;
    }
    return f;
}

// d / sc: through doubles, which is the integer quotient for numbers
// below 2^53 (here below 2^33).
i64 scaled(const Frame& f, i64 d) {
    return f.sc == 1 ? d : static_cast<i64>(static_cast<double>(d) / f.scd);
}

Setup setup(const Frame& f, const std::int32_t* q) {
    Setup st;
    i64 d[3];
    for (int j = 0; j < 3; ++j) {
        d[j] = fit::abs64(i64{q[f.order[j]]} - f.centre[j]);
    }
    for (int j = 0; j < 3; ++j) {
        if (d[j] > 0) {
            st.e[st.n] = f.e[j];
            st.y[st.n] = scaled(f, d[j]);
            ++st.n;
        }
    }
    if (d[2] > 0) {
        st.bisect = true;
    } else {
        planar(st, f.e[2]);
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
    const Setup st = setup(make_frame(p, s < 1 ? 1 : s), q);
    return st.bisect ? bisector(st.n, st.e, st.y) : fit::clamp32(st.value);
}

namespace {

// Many bisections at once. The search sums the distances of all 240
// samples, and each bisection is a chain of dependent steps, each waiting
// for three divisions; run side by side in vector lanes, the steps of
// different points overlap and the divisions share one instruction.
//
// A point takes a lane when every step is exact in 32-bit lanes:
// - 0 <= e < 2^15 and e y < 2^24 keep t, t0 + t1 and t + e^2 within int32
//   (t0 = e y - e^2 > -2^30 and t1 >= t0), and make
//   the float quotient ey / q, cut toward zero, the integer quotient (a
//   quotient of integers below 2^24 never rounds across an integer);
// - e y >= 2^10 along the smallest axis, with e^2 no smaller there than
//   along the others, makes t + e^2 >= 2^10 for every t of the bracket,
//   so q >= 1: no division by 0 and no negative quotient.
// Squares of quotients up to 1024 and their sum are exact in float; a
// larger quotient makes F positive alone, and rounding cannot pull the sum
// back to 2^20, so the sign of F is always right. Other points take the
// scalar bisector.

// Lanes of W 32-bit numbers: 4 (128-bit vectors) everywhere, 8 (256-bit)
// where the processor has them.
template <int W>
struct Lanes;
template <>
struct Lanes<4> {
    using I = std::int32_t __attribute__((vector_size(16)));
    using F = float __attribute__((vector_size(16)));
    using D = double __attribute__((vector_size(32)));
};
template <>
struct Lanes<8> {
    using I = std::int32_t __attribute__((vector_size(32)));
    using F = float __attribute__((vector_size(32)));
    using D = double __attribute__((vector_size(64)));
};

#if defined(__x86_64__)
#define IMU_WIDE_LANES 1
#else
#define IMU_WIDE_LANES 0
#endif

constexpr i64 kLaneMaxEy = i64{1} << 24;
constexpr i64 kLaneMinEy = i64{1} << 10;
constexpr std::int32_t kUnusedEsq = std::int32_t{1} << 26;  // q >= 1 and a term of 0
constexpr int kLanes = 48;
constexpr float kOneF = 1048576.0F;  // 2^20
constexpr float kTiny = 1.0F / 1024.0F;
constexpr float kClamp = 1025.0F;
constexpr std::int32_t kAbsMask = 0x7FFFFFFF;
constexpr double kTwo31 = 2147483648.0;
constexpr double kInt32Max = 2147483647.0;

bool fits_lane(int n, const i64* e, const i64* y) {
    if (n < 1) {
        return false;
    }
    const i64 last = e[n - 1];
    for (int i = 0; i < n; ++i) {
        if (e[i] < last || e[i] >= kLaneMaxE || y[i] >= kLaneMaxEy || e[i] * y[i] >= kLaneMaxEy) {
            return false;
        }
    }
    return last >= 0 && last * y[n - 1] >= kLaneMinEy;
}

// The general lanes take any point with |e| < 2^15 and |e y| < 2^24 (the
// same exact quotients), at the cost of handling q <= 0 in every step: a
// negative q gives the quotient's magnitude, and for q of 0 the term
// ey^2 2^20 is 0, exactly 2^20, or more. The terms are clamped at 1025^2,
// which keeps the sign of F and the sum exact.
bool fits_general_lane(int n, const i64* e, const i64* y) {
    if (n < 1) {
        return false;
    }
    for (int i = 0; i < n; ++i) {
        if (fit::abs64(e[i]) >= kLaneMaxE || y[i] >= kLaneMaxEy ||
            fit::abs64(e[i]) * y[i] >= kLaneMaxEy) {
            return false;
        }
    }
    return true;
}

// Distances found before, by their exact inputs: the search meets the same
// scaled semi-axes and offsets again and again across its probes and
// sweeps. Only points that fit a lane are kept; their numbers pack into
// two words (n >= 1 makes the second one non-zero, so a zeroed entry is
// empty). Direct-mapped: a new distance takes the place of the old one.
class DistanceMemo {
public:
    struct Entry {
        std::uint64_t a;
        std::uint64_t b;
        std::int32_t value;
    };

    static Entry key(int n, const i64* e, const i64* y) {
        const auto u = [](i64 v) { return static_cast<std::uint64_t>(v); };
        const i64 e1 = n > 1 ? e[1] : 0;
        const i64 e2 = n > 2 ? e[2] : 0;
        const i64 y1 = n > 1 ? y[1] : 0;
        const i64 y2 = n > 2 ? y[2] : 0;
        return Entry{u(y[0]) | u(y1) << 24 | u(e[0]) << 48,
                     u(y2) | u(e1) << 24 | u(e2) << 39 | u(n) << 54, 0};
    }

    Entry& slot(const Entry& k) {
        const std::uint64_t h = (k.a * 0x9E3779B97F4A7C15ULL) ^ (k.b * 0xC2B2AE3D27D4EB4FULL);
        return entries_[h >> (64 - kBits)];
    }

private:
    static constexpr int kBits = 12;
    Entry entries_[std::size_t{1} << kBits];
};

// The process's memo, used by one sum at a time: a sum that finds it taken
// (another thread fitting) goes without.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
DistanceMemo g_memo;
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic_flag g_memo_taken = ATOMIC_FLAG_INIT;

// Up to kLanes points in lanes, settled together once the batch is full:
// enough vectors side by side to keep the divider busy.
template <int W>
class LaneBatch {
    using V4i = typename Lanes<W>::I;
    using V4f = typename Lanes<W>::F;
    using V4d = typename Lanes<W>::D;
    static constexpr int kVectors = kLanes / W;

public:
    // A batch of simple points (fits_lane), or of general ones: those
    // that only fits_general_lane takes. The two kinds are kept apart, so
    // that a general point never makes a batch of simple ones bisect.
    LaneBatch(DistanceMemo* memo, bool general) : memo_(memo), general_(general) {}

    // Takes the point if it is of the batch's kind and adds to sum the
    // distances of the batch when it is full.
    bool add(int n, const i64* e, const i64* y, i64& sum) {
        const bool simple = fits_lane(n, e, y);
        if (general_ ? simple || !fits_general_lane(n, e, y) : !simple) {
            return false;
        }
        bool keyed = memo_ != nullptr;
        for (int i = 0; i < n; ++i) {
            keyed = keyed && e[i] >= 0;  // the key holds non-negative semi-axes
        }
        DistanceMemo::Entry* entry = nullptr;
        DistanceMemo::Entry key{};
        if (keyed) {
            key = DistanceMemo::key(n, e, y);
            entry = &memo_->slot(key);
            if (entry->a == key.a && entry->b == key.b) {
                sum += entry->value;
                return true;
            }
        }
        entry_[count_] = entry;
        key_[count_] = key;
        const int v = count_ / W;
        const int l = count_ % W;
        n_[count_] = n;
        i64 ey_max = e[0] * y[0];
        for (int i = 0; i < 3; ++i) {
            if (i < n) {
                const i64 ey = e[i] * y[i];
                y_[i][v][l] = static_cast<std::int32_t>(y[i]);
                esq_[i][v][l] = static_cast<std::int32_t>(e[i] * e[i]);
                eyf_[i][v][l] = static_cast<float>(ey);
                ey_max = std::max(ey_max, ey);
            } else {
                y_[i][v][l] = 0;
                esq_[i][v][l] = kUnusedEsq;
                eyf_[i][v][l] = 0.0F;
            }
        }
        const i64 last_esq = e[n - 1] * e[n - 1];
        const i64 t0 = e[n - 1] * y[n - 1] - last_esq;
        const i64 t1 = 2 * ey_max - last_esq;
        t0_[v][l] = static_cast<std::int32_t>(t0);
        t1_[v][l] = static_cast<std::int32_t>(t1);
        width_ = std::max(width_, fit::abs64(t1 - t0));
        blocks_ = std::max(blocks_, blocks(t0, t1));
        ++count_;
        if (count_ == kLanes) {
            sum += run();
        }
        return true;
    }

    // The same for a point off all three centre planes of an ellipsoid
    // with lanes3 set, with its scaled offsets y, into a simple batch.
    bool add3(const Frame& f, const i64* y, i64& sum) {
        const i64 ey[3] = {f.e[0] * y[0], f.e[1] * y[1], f.e[2] * y[2]};  // below 2^46
        const i64 ey_max = std::max(std::max(ey[0], ey[1]), ey[2]);
        if ((y[0] | y[1] | y[2]) >= kLaneMaxEy || ey_max >= kLaneMaxEy || ey[2] < kLaneMinEy) {
            return false;
        }
        DistanceMemo::Entry* entry = nullptr;
        DistanceMemo::Entry key{};
        if (memo_ != nullptr) {
            const auto u = [](i64 v) { return static_cast<std::uint64_t>(v); };
            key = DistanceMemo::Entry{u(y[0]) | u(y[1]) << 24 | f.key_a, u(y[2]) | f.key_b, 0};
            entry = &memo_->slot(key);
            if (entry->a == key.a && entry->b == key.b) {
                sum += entry->value;
                return true;
            }
        }
        entry_[count_] = entry;
        key_[count_] = key;
        const int v = count_ / W;
        const int l = count_ % W;
        n_[count_] = 3;
        for (int i = 0; i < 3; ++i) {
            y_[i][v][l] = static_cast<std::int32_t>(y[i]);
            esq_[i][v][l] = f.esq[i];
            eyf_[i][v][l] = static_cast<float>(ey[i]);
        }
        const i64 t0 = ey[2] - f.esq[2];
        const i64 t1 = 2 * ey_max - f.esq[2];
        t0_[v][l] = static_cast<std::int32_t>(t0);
        t1_[v][l] = static_cast<std::int32_t>(t1);
        width_ = std::max(width_, t1 - t0);
        blocks_ = std::max(blocks_, blocks(t0, t1));
        ++count_;
        if (count_ == kLanes) {
            sum += run();
        }
        return true;
    }

    // Bisects the points added since the last run and returns the sum of
    // their distances.
    i64 run() {
        if (count_ == 0) {
            return 0;
        }
        for (int k = count_; k < kLanes; ++k) {  // idle lanes: an empty bracket
            const int v = k / W;
            const int l = k % W;
            t0_[v][l] = 0;
            t1_[v][l] = 0;
            for (int i = 0; i < 3; ++i) {
                y_[i][v][l] = 0;
                esq_[i][v][l] = kUnusedEsq;
                eyf_[i][v][l] = 0.0F;
            }
        }
        settle();
        i64 sum = 0;
        for (int k = 0; k < count_; ++k) {
            const int v = k / W;
            const int l = k % W;
            const std::int32_t d = general_ ? surface(k, t_[v][l]) : d_[v][l];
            if (entry_[k] != nullptr) {
                *entry_[k] = key_[k];
                entry_[k]->value = d;
            }
            sum += d;
        }
        count_ = 0;
        width_ = 0;
        blocks_ = 0;
        return sum;
    }

    // Ends the bisection of every lane (t_ = the t bisector stops at) and,
    // for a batch of simple points, finds their distances (d_).
    void settle();

private:
    // The lanes of a batch of simple points are settled by locate, those
    // of a batch with general ones (or where locate cannot) by bisecting.
    __attribute__((always_inline)) void settle_lanes() {
        if (!general_ && locate()) {
            surfaces();
            return;
        }
        // A bracket w wide is at most 1 wide after bit_width (w) halvings,
        // and then its midpoint is its lower end, where bisector stops.
        int steps = 0;
        for (i64 w = width_; w > 0; w >>= 1) {
            ++steps;
        }
        bisect(steps);
        for (int v = 0; v < kVectors; ++v) {
            t_[v] = (t0_[v] >> 1) + (t1_[v] >> 1) + (t0_[v] & t1_[v] & 1);
        }
        if (!general_) {
            surfaces();
        }
    }

    // d_ = the squared distance of every lane once its bisection ended at
    // t_, as surface gives it for points that fit a lane: there t + e^2 >=
    // 2^10, e^2 y = e (e y) < 2^39 is exact as a double and the quotient
    // cut toward zero is the integer one, x < 2^29 and |x - y| < 2^30. The
    // squares add exactly in doubles up to 2^31, and a sum that reaches
    // 2^31 stays there, where it is clamped.
    __attribute__((always_inline)) void surfaces() {
        for (int v = 0; v < kVectors; ++v) {
            V4d r = V4d{};
#pragma GCC unroll 3
            for (int i = 0; i < 3; ++i) {
                const V4d esq = __builtin_convertvector(esq_[i][v], V4d);
                const V4d den = __builtin_convertvector(t_[v] + esq_[i][v], V4d);
                const V4d num = esq * __builtin_convertvector(y_[i][v], V4d);
                const V4i x = __builtin_convertvector(num / den, V4i);
                const V4d gap = __builtin_convertvector(x - y_[i][v], V4d);
                r += gap * gap;
            }
            r = r < kTwo31 ? r : kInt32Max;
            d_[v] = __builtin_convertvector(r, V4i);
        }
    }

    // Steps every lane steps times.
    __attribute__((always_inline)) void bisect(int steps) {
        for (int it = 0; it < steps; ++it) {
            for (int v = 0; v < kVectors; ++v) {
                if (general_) {
                    step_general(v);
                } else {
                    step(v);
                }
            }
        }
    }

    // The blocks of 1024 t that [t0, t1] reaches with its t > t0.
    static i64 blocks(i64 t0, i64 t1) { return (t1 >> 10) - ((t0 + 1) >> 10) + 1; }

    // F * 2^20 + 2^20 at t for the lanes of vector v, t clamped into the
    // bracket (t0, t1]: above 2^20 where F > 0, exactly 2^20 where F = 0.
    __attribute__((always_inline)) void terms(int v, const V4i& at, V4f& sq) const {
        const V4i lo = t0_[v] + 1;
        V4i t = at < lo ? lo : at;
        t = t > t1_[v] ? t1_[v] : t;
        sq = V4f{};
#pragma GCC unroll 3
        for (int i = 0; i < 3; ++i) {
            const V4f q = __builtin_convertvector((t + esq_[i][v]) >> 10, V4f);
            const V4i quo = __builtin_convertvector(eyf_[i][v] / q, V4i);
            const V4f quof = __builtin_convertvector(quo, V4f);
            sq += quof * quof;
        }
    }

    // Where every lane of a batch of simple points ends its bisection,
    // found in fewer steps: t_ = the t bisector stops at. False if some
    // lane meets F = 0 on the way, where the bisection's own path matters.
    //
    // F only grows or stays as t falls (q grows with t, and the quotients
    // are positive), so the t where F > 0 all come before those where
    // F <= 0. Let A be the first t of (t0, t1] with F <= 0 (t1 if there is
    // none). Where F(A) < 0 no midpoint meets F = 0, every step keeps A in
    // (t0, t1], and the bisection ends at t1 = t0 + 1: at t = A - 1.
    //
    // F changes only where some q = (t + e^2) >> 10 does, where t + e^2 is
    // a multiple of 1024: at most three times in each block of 1024 t, at
    // its start or (-e^2) mod 1024 after it. So locate halves over blocks
    // for the first whose last t gives F <= 0, then tries that block's
    // start and change points in two steps: about ten steps fewer than the
    // bisection. The vectors step side by side, so that their chains of
    // divisions overlap.
    __attribute__((always_inline)) bool locate() {
        // The first block whose last t gives F <= 0, by halving over the
        // blocks from the one of t0 + 1 on; beyond the one of t1, F is
        // taken at t1.
        int steps = 0;
        for (i64 w = blocks_ - 1; w > 0; w >>= 1) {
            ++steps;
        }
        V4i block[kVectors];
        for (int v = 0; v < kVectors; ++v) {
            block[v] = (t0_[v] + 1) >> 10;
        }
        for (int half = (1 << steps) >> 1; half > 0; half >>= 1) {
            for (int v = 0; v < kVectors; ++v) {
                V4f sq;
                terms(v, ((block[v] + (half - 1)) << 10) + 1023, sq);
                block[v] += sq > kOneF ? half : 0;
            }
        }
        // Its start and change points in order, none past its end; two
        // steps find the first of them with F <= 0.
        V4i start[kVectors];
        V4i c1[kVectors];
        V4i c2[kVectors];
        V4i c3[kVectors];
        V4i down1[kVectors];
        V4f sq[kVectors];
        for (int v = 0; v < kVectors; ++v) {
            start[v] = block[v] << 10;
            const V4i end = start[v] + 1023;
            V4i c[3];
            for (int i = 0; i < 3; ++i) {
                const V4i at = start[v] + (-esq_[i][v] & 1023);
                c[i] = at == start[v] || at > end ? end : at;
            }
            const V4i lo = c[0] < c[1] ? c[0] : c[1];
            const V4i hi = c[0] < c[1] ? c[1] : c[0];
            const V4i mid = lo < c[2] ? c[2] : lo;
            c1[v] = lo < c[2] ? lo : c[2];
            c2[v] = hi < mid ? hi : mid;
            c3[v] = hi < mid ? mid : hi;
            terms(v, c1[v], sq[v]);
        }
        for (int v = 0; v < kVectors; ++v) {
            down1[v] = sq[v] <= kOneF;
            terms(v, down1[v] ? start[v] : c2[v], sq[v]);
        }
        for (int v = 0; v < kVectors; ++v) {
            const V4i down2 = sq[v] <= kOneF;
            V4i at = down1[v] ? (down2 ? start[v] : c1[v]) : (down2 ? c2[v] : c3[v]);
            const V4i first = t0_[v] + 1;
            at = at < first ? first : at;
            t_[v] = at > t1_[v] ? t1_[v] : at;
            terms(v, t_[v], sq[v]);
        }
        // Where F > 0 all through (t0, t1], A is t1; a bracket of one or
        // two t ends at t0.
        bool exact = true;
        for (int v = 0; v < kVectors; ++v) {
            const V4i t0 = t0_[v];
            const V4i t1 = t1_[v];
            const V4i at = sq[v] > kOneF ? t1 : t_[v];
            const V4i open = t1 - t0 > 1;
            t_[v] = open ? at - 1 : t0;
            const V4i zero = open && sq[v] == kOneF;
            for (int l = 0; l < W; ++l) {
                exact = exact && zero[l] == 0;
            }
        }
        return exact;
    }

    // One bisection step of the lanes of vector v. The bracket
    // [a, b] (a <= b, a + b within int32) moves to the midpoint as in
    // bisector. Where F is 0 it stays, so its midpoint stays the t that
    // bisector stops at; where the midpoint is a, the bracket shrinks to
    // [a, a] at most, and the midpoint stays a, where bisector stops too.
    __attribute__((always_inline)) void step(int v) {
        const V4i a = t0_[v];
        const V4i b = t1_[v];
        const V4i mid = (a + b) >> 1;
        V4f sq = V4f{};
#pragma GCC unroll 3
        for (int i = 0; i < 3; ++i) {
            const V4f q = __builtin_convertvector((mid + esq_[i][v]) >> 10, V4f);
            const V4i quo = __builtin_convertvector(eyf_[i][v] / q, V4i);
            const V4f quof = __builtin_convertvector(quo, V4f);
            sq += quof * quof;
        }
        t0_[v] = sq > kOneF ? mid : a;
        t1_[v] = sq < kOneF ? mid : b;
    }

    // The same step for a batch with general lanes. The bracket may also
    // run downward (a > b) there: the midpoint still moves as in bisector,
    // and where it is b the bracket shrinks to [b, b] at most.
    __attribute__((always_inline)) void step_general(int v) {
        const V4i a = t0_[v];
        const V4i b = t1_[v];
        const V4i mid = (a >> 1) + (b >> 1) + (a & b & 1);  // a + b may not fit
        V4f sq = V4f{};
#pragma GCC unroll 3
        for (int i = 0; i < 3; ++i) {
            const V4i q = (mid + esq_[i][v]) >> 10;
            const V4f qf = q == 0 ? kTiny : __builtin_convertvector(q, V4f);
            const V4f quo = eyf_[i][v] / qf;
            V4f mag = reinterpret_cast<V4f>(reinterpret_cast<V4i>(quo) & kAbsMask);
            mag = mag < kClamp ? mag : kClamp;
            mag = __builtin_convertvector(__builtin_convertvector(mag, V4i), V4f);
            sq += mag * mag;
        }
        t0_[v] = sq > kOneF ? mid : a;
        t1_[v] = sq < kOneF ? mid : b;
    }

    // The squared distance of point k once its bisection ended at t.
    std::int32_t surface(int k, std::int32_t t) const {
        const int v = k / W;
        const int l = k % W;
        i64 r = 0;
        for (int i = 0; i < n_[k]; ++i) {
            const i64 esq = esq_[i][v][l];
            const i64 den = i64{t} + esq;
            const i64 y = y_[i][v][l];
            const i64 num = esq * y;  // e (e y), below 2^39: exact as a double
            const i64 x = den != 0 ? static_cast<i64>(static_cast<double>(num) /
                                                      static_cast<double>(den))
                                   : num;
            r = fit::sat_add(r, fit::sat_sq(x - y));
        }
        return fit::clamp32(r);
    }

    V4i t0_[kVectors] = {};
    V4i t1_[kVectors] = {};
    V4i t_[kVectors] = {};
    V4i d_[kVectors] = {};
    V4i esq_[3][kVectors] = {};
    V4f eyf_[3][kVectors] = {};
    V4i y_[3][kVectors] = {};
    int n_[kLanes] = {};
    DistanceMemo::Entry* entry_[kLanes] = {};
    DistanceMemo::Entry key_[kLanes] = {};
    DistanceMemo* memo_;
    int count_ = 0;
    i64 width_ = 0;
    i64 blocks_ = 0;
    bool general_;
};

template <int W>
void LaneBatch<W>::settle() {
    settle_lanes();
}

#if IMU_WIDE_LANES
// The eight-lane steps, in 256-bit instructions.
template <>
__attribute__((target("avx2"))) void LaneBatch<8>::settle() {
    settle_lanes();
}
#endif

template <int W>
i64 sum_distances(const Frame& f, const std::int32_t (*points)[3], int count, DistanceMemo* memo) {
    LaneBatch<W> simple(memo, false);
    LaneBatch<W> general(memo, true);
    i64 sum = 0;
    const auto add = [&](int n, const i64* e, const i64* y) {
        return simple.add(n, e, y, sum) || general.add(n, e, y, sum);
    };
    for (int i = 0; i < count; ++i) {
        i64 d[3];
        for (int j = 0; j < 3; ++j) {
            d[j] = fit::abs64(i64{points[i][f.order[j]]} - f.centre[j]);
        }
        if (d[0] > 0 && d[1] > 0 && d[2] > 0) {  // the usual case: setup in short
            const i64 y[3] = {scaled(f, d[0]), scaled(f, d[1]), scaled(f, d[2])};
            if (!(f.lanes3 && simple.add3(f, y, sum)) && !add(3, f.e, y)) {
                sum += bisector(3, f.e, y);
            }
            continue;
        }
        const Setup st = setup(f, points[i]);
        if (!st.bisect) {
            sum += fit::clamp32(st.value);
        } else if (!add(st.n, st.e, st.y)) {
            sum += bisector(st.n, st.e, st.y);
        }
    }
    return sum + simple.run() + general.run();
}

bool wide_lanes() {
#if IMU_WIDE_LANES
    static const bool wide = __builtin_cpu_supports("avx2") != 0;
    return wide;
#else
    return false;
#endif
}

}  // namespace

std::int64_t summed_distance_lanes(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                                   std::int32_t s, int width) noexcept {
    if (p == nullptr || points == nullptr) {
        return 0;
    }
    const Frame f = make_frame(p, s < 1 ? 1 : s);
    const bool own_memo = !g_memo_taken.test_and_set(std::memory_order_acquire);
    DistanceMemo* memo = own_memo ? &g_memo : nullptr;
    const i64 sum = width == 8 && wide_lanes() ? sum_distances<8>(f, points, count, memo)
                                               : sum_distances<4>(f, points, count, memo);
    if (own_memo) {
        g_memo_taken.clear(std::memory_order_release);
    }
    return sum;
}

std::int64_t summed_distance(const std::int32_t* p, const std::int32_t (*points)[3], int count,
                             std::int32_t s) noexcept {
    return summed_distance_lanes(p, points, count, s, 8);
}

}  // namespace imu
