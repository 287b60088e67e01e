#pragma once
// Integer helpers of the two step-counting modules.
//
// The modules' values are int32. Products and sums are formed in 64 bits,
// so a result that fits int32 is exactly what 32-bit arithmetic gives; one
// that does not fit is clamped to the int32 range instead of wrapping.

#include <cstdint>
#include <limits>

namespace imu::sam {

constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kInt32Min = std::numeric_limits<std::int32_t>::min();

constexpr std::int32_t clamp32(std::int64_t v) {
    return static_cast<std::int32_t>(v > kInt32Max ? kInt32Max : (v < kInt32Min ? kInt32Min : v));
}

constexpr std::int32_t add32(std::int32_t a, std::int64_t b) {
    // |b| stays far below 2^62 wherever this is used.
    return clamp32(a + b);
}

// trunc(a * b / div) for div > 0. When a * b does not fit 64 bits the
// quotient cannot fit 32 bits either, and takes the sign of the product.
inline std::int32_t mul_div32(std::int64_t a, std::int64_t b, std::int64_t div) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product)) {
        return clamp32((a < 0) != (b < 0) ? kInt32Min : kInt32Max);
    }
    return clamp32(product / div);
}

// (x^2 + y^2 + z^2) / 1000: the squared magnitude in the modules' scale.
// The sum of three squared int32 fits an unsigned 64-bit word.
constexpr std::int32_t square_sum_scaled(std::int32_t x, std::int32_t y, std::int32_t z) {
    const auto sq = [](std::int32_t v) {
        const std::int64_t w = v;
        return static_cast<std::uint64_t>(w * w);
    };
    const std::uint64_t sum = (sq(x) + sq(y) + sq(z)) / 1000U;
    return static_cast<std::int32_t>(sum > static_cast<std::uint64_t>(kInt32Max) ? kInt32Max : sum);
}

constexpr std::int32_t max32(std::int32_t a, std::int32_t b) { return a > b ? a : b; }

constexpr std::int32_t min32(std::int32_t a, std::int32_t b) { return a < b ? a : b; }

// Shifts a newest-last history one place and appends v: h[0] drops.
template <int N>
void push_oldest_first(std::int32_t (&h)[N], std::int32_t v) {
    for (int i = 0; i + 1 < N; ++i) {
        h[i] = h[i + 1];
    }
    h[N - 1] = v;
}

// Shifts a newest-first history one place and puts v first: h[N-1] drops.
template <int N>
void push_newest_first(std::int32_t (&h)[N], std::int32_t v) {
    for (int i = N - 1; i > 0; --i) {
        h[i] = h[i - 1];
    }
    h[0] = v;
}

}  // namespace imu::sam
