#include "engine/matrix.h"

#include <cmath>

namespace {

// Largest temporary ABAT needs: a 5x5 covariance.
constexpr int kMaxTemp = 25;

}  // namespace

extern "C" {

IMU_EXPORT void AT(const float* A, float* B, int m, int n) {
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < n; ++j) {
            B[j * m + i] = A[i * n + j];
        }
    }
}

// C[k] for row r = k / q, column c = k mod q: sum over t < p of A[r n + t] B[t q + c].
IMU_EXPORT void array_multiply(const float* A, const float* B, float* C, int m, int n, int p,
                               int q) {
    for (int k = 0; k < m * q; ++k) {
        const int r = k / q;
        const int c = k % q;
        C[k] = 0.0F;
        for (int t = 0; t < p; ++t) {
            C[k] += A[r * n + t] * B[t * q + c];
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
    for (int i = 0; i < 3; ++i) {
        float down = 1.0F;
        float up = 1.0F;
        for (int j = 0; j < 3; ++j) {
            down *= A[((i + j) % 3) * 3 + j];
            up *= A[((i + j) % 3) * 3 + (2 - j)];
        }
        det += down - up;
    }
    if (det == 0.0F) {
        return -1;
    }
    for (int c = 1; c <= 3; ++c) {
        const int r0 = c % 3;
        const int r1 = (c + 1) % 3;
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
