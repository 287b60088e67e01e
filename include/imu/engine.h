#ifndef IMU_ENGINE_H
#define IMU_ENGINE_H

/* Fusion engine: the sample and output records and the matrix functions.
 *
 * Frames: the device frame is the sensor framework's (x right, y up the
 * screen, z out of the screen; m/s^2, rad/s, uT). The filter frame is the
 * device frame with y and z reversed. Matrices are flat row-major float
 * arrays: element (i, j) of an r x c matrix is at index i*c + j. */

#include <stddef.h>
#include <stdint.h>

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* One sample set: eight float triplets, device frame. */
typedef struct IMU {
    float acc[3];       /* m/s^2, calibrated from acc_raw */
    float acc_raw[3];   /* m/s^2, as delivered */
    float gyro[3];      /* rad/s, gyro_raw minus the bias estimate */
    float gyro_raw[3];  /* rad/s, as delivered */
    float mag[3];       /* uT, calibrated from mag_raw */
    float mag_raw[3];   /* uT, as delivered */
    float light[3];     /* as delivered; not read by the engine */
    float proximity[3]; /* as delivered; the gesture pipeline tests [0] */
} IMU;

/* The engine's output record. */
typedef struct SFC_OUT {
    float euler[3];           /* degrees: azimuth [0, 360), pitch, roll */
    float rotation_vector[3]; /* vector part of q, scalar part made positive */
    float linear_acc[3];      /* m/s^2, device frame, high-passed */
    float gravity[3];         /* m/s^2, device frame, pointing up at rest */
    float global_acc[3];      /* g, reference frame reordered (y, x, -z) */
    float rotation_matrix[9]; /* R(q), filter frame to reference frame */
    float acc_level;          /* accelerometer variance measure */
    float gyro_level;         /* gyroscope variance measure */
} SFC_OUT;

/* B (n x m) = transpose of A (m x n). A and B must not overlap. */
IMU_EXPORT void AT(const float* A, float* B, int m, int n);

/* C (m x q) = A (m x n) . B (p x q), summing over p terms (p == n).
 * C must not overlap A or B. */
IMU_EXPORT void array_multiply(const float* A, const float* B, float* C, int m, int n, int p,
                               int q);

/* C (m x m) = A . B . A^T for A m x n and B n x n (q == n). Needs m*n <= 25
 * and m*q <= 25; other sizes leave C untouched. */
IMU_EXPORT void ABAT(const float* A, const float* B, float* C, int m, int n, int p, int q);

/* array_multiply in double precision. */
IMU_EXPORT void array_multiply_double(const double* A, const double* B, double* C, int m, int n,
                                      int p, int q);

/* B = inverse of the 3x3 matrix A. Returns 0, or -1 when the determinant is
 * exactly 0 (B untouched). */
IMU_EXPORT int Array3x3_Inverse(const float* A, float* B);

IMU_EXTERN_C_END

#endif /* IMU_ENGINE_H */
