// The matrix functions the posture filter is built from.

#include "engine/matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

// The unrolled copies give the bits of the in-order sum
// C[k] = sum_t A[r n + t] B[t q + c] for every shape up to 5x5.
TEST(Matrix, MultiplyMatchesTheInOrderSumForEveryShape) {
    std::mt19937 gen(7);
    std::uniform_real_distribution<float> value(-3.0F, 3.0F);
    float a[25];
    float b[25];
    for (int m = 1; m <= 5; ++m) {
        for (int n = 1; n <= 5; ++n) {
            for (int q = 1; q <= 5; ++q) {
                std::generate(a, a + 25, [&] { return value(gen); });
                std::generate(b, b + 25, [&] { return value(gen); });
                float got[25] = {};
                float want[25] = {};
                array_multiply(a, b, got, m, n, n, q);
                for (int k = 0; k < m * q; ++k) {
                    for (int t = 0; t < n; ++t) {
                        want[k] += a[k / q * n + t] * b[t * q + k % q];
                    }
                }
                ASSERT_EQ(std::memcmp(got, want, sizeof got), 0) << m << "x" << n << "x" << q;
            }
        }
    }
    // p < n sums over the first p columns of A only.
    const float a24[8] = {1, 2, 100, 100, 3, 4, 100, 100};
    const float id[4] = {1, 0, 0, 1};
    float c[4] = {};
    array_multiply(a24, id, c, 2, 4, 2, 2);
    EXPECT_EQ(c[0] + c[1] + c[2] + c[3], 10.0F);
    const double ad[4] = {1, 2, 3, 4};
    const double bd[4] = {5, 6, 7, 8};
    double cd[4] = {};
    array_multiply_double(ad, bd, cd, 2, 2, 2, 2);
    EXPECT_TRUE(cd[0] == 19 && cd[1] == 22 && cd[2] == 43 && cd[3] == 50);
}

}  // namespace
