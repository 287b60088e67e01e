// array_multiply has unrolled copies for the filter's shapes; they must
// give the same bits as the plain in-order sum for every shape.

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "engine/matrix.h"

namespace {

// The defining sum: C[k] = 0, then C[k] += A[r n + t] B[t q + c] for t < p.
void reference(const float* A, const float* B, float* C, int m, int n, int p, int q) {
    for (int k = 0; k < m * q; ++k) {
        const int r = k / q;
        const int c = k % q;
        C[k] = 0.0F;
        for (int t = 0; t < p; ++t) {
            C[k] += A[r * n + t] * B[t * q + c];
        }
    }
}

TEST(MatrixShapes, EveryShapeMatchesTheInOrderSumBitForBit) {
    std::mt19937 gen(7);
    std::uniform_real_distribution<float> value(-3.0F, 3.0F);
    float a[25];
    float b[25];
    for (int m = 1; m <= 5; ++m) {
        for (int n = 1; n <= 5; ++n) {
            for (int q = 1; q <= 5; ++q) {
                for (float& v : a) {
                    v = value(gen);
                }
                for (float& v : b) {
                    v = value(gen);
                }
                float got[25] = {};
                float want[25] = {};
                array_multiply(a, b, got, m, n, n, q);
                reference(a, b, want, m, n, n, q);
                ASSERT_EQ(std::memcmp(got, want, sizeof got), 0)
                    << "m=" << m << " n=" << n << " q=" << q;
            }
        }
    }
}

// p smaller than n sums over the first p columns of A only.
TEST(MatrixShapes, ShortSumUsesPTerms) {
    const float a[8] = {1, 2, 100, 100, 3, 4, 100, 100};  // 2x4, only 2 columns used
    const float b[4] = {1, 0, 0, 1};                      // 2x2
    float c[4] = {};
    array_multiply(a, b, c, 2, 4, 2, 2);
    const float want[4] = {1, 2, 3, 4};
    EXPECT_EQ(std::memcmp(c, want, sizeof c), 0);
}

}  // namespace
