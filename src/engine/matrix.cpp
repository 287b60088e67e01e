#include "engine/matrix.h"

#include <cmath>

namespace {

// Largest temporary ABAT needs: a 5x5 covariance.
constexpr int kMaxTemp = 25;

// C (M x Q) = A (M x N) . B (N x Q) with the sizes known to the compiler.
template <int M, int N, int Q>
void multiply(const float* A, const float* B, float* C) {
    for (int r = 0; r < M; ++r) {
#pragma GCC unroll 4
        for (int c = 0; c < Q; ++c) {
            float sum = 0.0F;
#pragma GCC unroll 4
            for (int t = 0; t < N; ++t) {
                sum += A[r * N + t] * B[t * Q + c];
            }
            C[r * Q + c] = sum;
        }
    }
}

// The shapes of the posture filter. Returns false for any other shape.
bool multiply_fixed(const float* A, const float* B, float* C, int m, int n, int q) {
    if (m < 1 || m > 4 || n < 1 || n > 4 || q < 1 || q > 4) {
        return false;
    }
    switch (m * 100 + n * 10 + q) {
        case 444:
            multiply<4, 4, 4>(A, B, C);
            return true;
        case 441:
            multiply<4, 4, 1>(A, B, C);
            return true;
        case 443:
            multiply<4, 4, 3>(A, B, C);
            return true;
        case 433:
            multiply<4, 3, 3>(A, B, C);
            return true;
        case 431:
            multiply<4, 3, 1>(A, B, C);
            return true;
        case 434:
            multiply<4, 3, 4>(A, B, C);
            return true;
        case 414:
            multiply<4, 1, 4>(A, B, C);
            return true;
        case 344:
            multiply<3, 4, 4>(A, B, C);
            return true;
        case 343:
            multiply<3, 4, 3>(A, B, C);
            return true;
        case 331:
            multiply<3, 3, 1>(A, B, C);
            return true;
        case 144:
            multiply<1, 4, 4>(A, B, C);
            return true;
        case 141:
            multiply<1, 4, 1>(A, B, C);
            return true;
        default:
            return false;
    }
}

}  // namespace

extern "C" {

IMU_EXPORT void AT(const float* A, float* B, int m, int n) {
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < n; ++j) {
            B[j * m + i] = A[i * n + j];
        }
    }
}

// C[k] for row r = k / q, column c = k mod q: sum over t < p of A[r n + t] B[t q + c],
// accumulated in order from 0. The rows and columns are walked directly (no
// division per element) and the common small shapes have unrolled copies of
// the same sum, so the results are the same bits either way.
IMU_EXPORT void array_multiply(const float* A, const float* B, float* C, int m, int n, int p,
                               int q) {
    if (n == p && multiply_fixed(A, B, C, m, n, q)) {
        return;
    }
    for (int r = 0; r < m; ++r) {
        for (int c = 0; c < q; ++c) {
            float sum = 0.0F;
            for (int t = 0; t < p; ++t) {
                sum += A[r * n + t] * B[t * q + c];
            }
            C[r * q + c] = sum;
        }
    }
}

// C = (A B) A^T through two cleared temporaries of 25 floats.
IMU_EXPORT void ABAT(const float* A, const float* B, float* C, int m, int n, int p, int q) {
    if (m < 0 || n < 0 || q < 0 || m * n > kMaxTemp || m * q > kMaxTemp) {
        return;  // the temporaries would overflow
    }
    float At[kMaxTemp] = {};
    float AB[kMaxTemp] = {};
    AT(A, At, m, n);
    array_multiply(A, B, AB, m, n, p, q);
    array_multiply(AB, At, C, m, n, n, m);
}

IMU_EXPORT void array_multiply_double(const double* A, const double* B, double* C, int m, int n,
                                      int p, int q) {
    for (int k = 0; k < m * q; ++k) {
        const int r = k / q;
        const int c = k % q;
        C[k] = 0.0;
        for (int t = 0; t < p; ++t) {
            C[k] += A[r * n + t] * B[t * q + c];
        }
    }
}

// det by the rule of Sarrus:
//   det = sum_i ( prod_j A[(i+j)%3][j] - prod_j A[(i+j)%3][2-j] )
// B = adj(A) / det, element by element:
//   B[k-1][c-1] = ( A[r0][k%3] A[r1][(k+1)%3] - A[r1][k%3] A[r0][(k+1)%3] ) / det,
//   r0 = c % 3, r1 = (c+1) % 3, for c, k = 1..3.
IMU_EXPORT int Array3x3_Inverse(const float* A, float* B) {
    float det = 0.0F;
#pragma GCC unroll 3
    for (int i = 0; i < 3; ++i) {
        float down = 1.0F;
        float up = 1.0F;
#pragma GCC unroll 3
        for (int j = 0; j < 3; ++j) {
            down *= A[((i + j) % 3) * 3 + j];
            up *= A[((i + j) % 3) * 3 + (2 - j)];
        }
        det += down - up;
    }
    if (det == 0.0F) {
        return -1;
    }
#pragma GCC unroll 3
    for (int c = 1; c <= 3; ++c) {
        const int r0 = c % 3;
        const int r1 = (c + 1) % 3;
#pragma GCC unroll 3
        for (int k = 1; k <= 3; ++k) {
            B[(k - 1) * 3 + (c - 1)] = (A[r0 * 3 + k % 3] * A[r1 * 3 + (k + 1) % 3] -
                                        A[r1 * 3 + k % 3] * A[r0 * 3 + (k + 1) % 3]) /
                                       det;
        }
    }
    return 0;
}

}  // extern "C"

namespace imu {

void vector_normalize(float* v, int n) noexcept {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += static_cast<double>(v[i] * v[i]);
    }
    const auto norm = static_cast<float>(std::sqrt(sum));
    for (int i = 0; i < n; ++i) {
        v[i] /= norm;
    }
}

void axis_transform(float* out, const float* in) noexcept {
    for (int r = 0; r < 3; ++r) {
        float sum = 0.0F;
        for (int j = 0; j < 3; ++j) {
            sum += in[j] * kAxisMatrix[r * 3 + j];
        }
        out[r] = sum;
    }
}

}  // namespace imu
