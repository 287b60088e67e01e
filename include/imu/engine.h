#ifndef IMU_ENGINE_H
#define IMU_ENGINE_H

/* Fusion engine: the sample and output records, the matrix functions, the
 * posture filter and the functions that read its results.
 *
 * Frames: the device frame is the sensor framework's (x right, y up the
 * screen, z out of the screen; m/s^2, rad/s, uT). The filter frame is the
 * device frame with y and z reversed. The reference frame of the filter has
 * z down, x to magnetic east and y to magnetic south. Matrices are flat
 * row-major float arrays: element (i, j) of an r x c matrix is at index
 * i*c + j. */

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

/* ---- Posture filter ------------------------------------------------------
 * One filter per process, shared by every function below; none of them
 * locks, so an update, a re-initialisation and the getters must not run at
 * the same time. */

/* One posture update from the sample's raw fields (acc_raw m/s^2, gyro_raw
 * rad/s, mag_raw uT, device frame) after time_ns nanoseconds since the
 * previous sample. Runs the motion statistics and the calibration step,
 * which rewrites the sample's acc, gyro and mag. Returns 0 when the filter
 * updated (also when the update ended in the not-a-number recovery), 1 when
 * it did not filter (magnetometer missing in fusion modes 0, 3 and 4, or the
 * initialisation update), -22 for a null sample (nothing runs). */
IMU_EXPORT int sfc_update_posture(IMU* imu, int32_t time_ns);

/* One posture update from nine floats: acceleration (m/s^2), angular rate
 * (rad/s), magnetic field (uT), device frame; microseconds since the
 * previous sample. Returns what sfc_update_posture returns; -22 for a null
 * sample. */
IMU_EXPORT int run_library(const float* sample, int microseconds);

/* The next update initialises the quaternion from accelerometer and
 * magnetometer; state, covariance and all outputs become zero. Returns 0. */
IMU_EXPORT int sfc_re_initialize(void);

/* Fusion modes 0, 3 and 4 skip an update whose magnetometer components are
 * all below 1e-6 in magnitude; every other mode filters without it. */
IMU_EXPORT void sfc_set_fusion_mode(int32_t mode);
IMU_EXPORT int32_t sfc_get_fusion_mode(void);
/* Stores *mode; a null pointer does nothing. */
IMU_EXPORT void set_fusion_mode(const int32_t* mode);

/* Test hook: the next filtering update ends in the not-a-number recovery. */
IMU_EXPORT int qal_ForceNAN(void);
IMU_EXPORT extern int32_t qal_ForceNAN_flag; /* NOLINT: exported by name */

/* ---- Outputs -------------------------------------------------------------
 * Getters return 0, or -22 for a null buffer, for output that is not valid
 * (after a not-a-number recovery, until the next good update; nothing is
 * written then) and, where noted, for an all-zero result. */

/* Azimuth [0, 360), pitch, roll in degrees. -22 also when all three are 0. */
IMU_EXPORT int sfc_get_euler_angle(float* out);
/* Vector part of the device-frame quaternion. Does not check validity;
 * -22 when all three are 0 (they are written first). */
IMU_EXPORT int sfc_get_rotation_vector(float* out);
/* Device-frame quaternion (x, y, z, w) with w >= 0. */
IMU_EXPORT int sfc_get_quaternion(float* out);
/* Linear acceleration in g, device frame, after a 20-sample high-pass that
 * every successful call advances. -22 also when all three are 0. */
IMU_EXPORT int sfc_get_linear_acceleration(float* out);
/* Gravity in g, device frame, pointing up at rest. Does not check validity;
 * -22 when all three are 0. */
IMU_EXPORT int sfc_get_gravity(float* out);
/* R(q) filter frame to reference frame, 9 floats row-major. Does not check
 * validity. */
IMU_EXPORT int sfc_get_rotation_matrix(float* out);
/* Measured down direction in the reference frame, as (y, x, -z), in g.
 * -22 also when all three are 0. */
IMU_EXPORT int sfc_get_global_acceleration(float* out);
/* out[0] = compass heading in degrees [0, 360), out[1] = 0, out[2] is the
 * caller's. -22 also when the heading and out[2] are both 0. */
IMU_EXPORT int sfc_get_compass_heading(float* out);
/* Fills the whole record; fields whose getter fails for validity keep their
 * contents (euler, global_acc) or become 0 (linear_acc). Returns 0, or -22
 * for a null record. */
IMU_EXPORT int sfc_get_sfc_out(SFC_OUT* out);

/* The filter-frame quaternion (q0, q1, q2, q3) as published, no sign change.
 * A null buffer does nothing. */
IMU_EXPORT void get_quaternion(float* out);
IMU_EXPORT int get_gravity(float* out);
IMU_EXPORT int get_rotation_vector(float* out);
IMU_EXPORT int get_linear_acceleration(float* out);
IMU_EXPORT int get_euler_angles(float* out);

/* Stores a centre yaw angle; no output depends on it. */
IMU_EXPORT void sfc_set_center_yaw_angle(float yaw);
/* Zeroes the components of imu->gyro smaller than threshold_dps (degrees
 * per second) in magnitude. A null sample does nothing. */
IMU_EXPORT void sfc_gyro_filter(IMU* imu, float threshold_dps);

IMU_EXTERN_C_END

#endif /* IMU_ENGINE_H */
