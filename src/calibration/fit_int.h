#pragma once
// Integer helpers of the ellipsoid and sphere fits. The fits keep 32-bit
// values; every sum and product is formed in 64 bits and saturates at the
// ends of the 64-bit range instead of overflowing. Where the 32-bit result
// would have fitted, the result is the same number.

#include <cstdint>
#include <limits>

namespace imu::fit {

using i64 = std::int64_t;

inline constexpr i64 kMax = std::numeric_limits<i64>::max();
inline constexpr i64 kMin = std::numeric_limits<i64>::min();

inline i64 sat_add(i64 a, i64 b) noexcept {
    i64 r = 0;
    if (__builtin_add_overflow(a, b, &r)) {
        return b > 0 ? kMax : kMin;
    }
    return r;
}

inline i64 sat_sub(i64 a, i64 b) noexcept {
    i64 r = 0;
    if (__builtin_sub_overflow(a, b, &r)) {
        return b < 0 ? kMax : kMin;
    }
    return r;
}

inline i64 sat_mul(i64 a, i64 b) noexcept {
    i64 r = 0;
    if (__builtin_mul_overflow(a, b, &r)) {
        return (a < 0) != (b < 0) ? kMin : kMax;
    }
    return r;
}

inline i64 sat_sq(i64 a) noexcept {
    return sat_mul(a, a);
}

// Integer quotient truncated toward zero; 0 for a divisor of 0.
inline i64 sat_div(i64 a, i64 b) noexcept {
    if (b == 0) {
        return 0;
    }
    if (a == kMin && b == -1) {
        return kMax;
    }
    return a / b;
}

inline i64 abs64(i64 a) noexcept {
    if (a == kMin) {
        return kMax;
    }
    return a < 0 ? -a : a;
}

// floor((a + b) / 2), the arithmetic shift of the sum, without forming it.
inline i64 mid(i64 a, i64 b) noexcept {
    return (a >> 1) + (b >> 1) + (a & b & 1);
}

inline std::int32_t clamp32(i64 v) noexcept {
    if (v > std::numeric_limits<std::int32_t>::max()) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (v < std::numeric_limits<std::int32_t>::min()) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(v);
}

// A float truncated toward zero to int32: NaN gives 0, a value beyond the
// range the nearest end.
inline std::int32_t trunc32(float v) noexcept {
    constexpr float kTwo31 = 2147483648.0F;
    if (!(v == v)) {
        return 0;
    }
    if (v >= kTwo31) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (v < -kTwo31) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(v);
}

}  // namespace imu::fit
