#ifndef IMU_CALIBRATION_H
#define IMU_CALIBRATION_H

/* Sensor calibration: the calibration block, its file
 * "/data/system/velmoGR.ini" and the correction of samples.
 *
 * The block holds 15 floats: gyroscope offset (3), accelerometer offset (3)
 * and scale (3), magnetometer offset (3) and scale (3). A corrected triple is
 * (raw - offset) * scale per axis; the gyroscope has an offset only.
 * None of these functions locks: run the input and fusion paths on one
 * thread at a time. */

#include "imu/engine.h"
#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* Creates the calibration file with the default block when it is missing or
 * not readable and writable. Tries once per process; a failure is logged. */
IMU_EXPORT void check_calibration_file(void);

/* Loads the block from the calibration file, creating it first if missing.
 * Returns 0 when at least one number was read (a short line updates only the
 * leading fields), else a negated errno: -ENOENT etc. when the file cannot be
 * opened, -EINVAL when it holds no number. Fields whose text is not a finite
 * float stop the reading there; the block keeps its values from that field on. */
IMU_EXPORT int read_calibration(void);

/* Writes the block to the calibration file with five decimals per field.
 * Returns 0, or a negated errno (the file is then left as it was). */
IMU_EXPORT int save_calibration(void);

/* Which sensors the correction applies to: 0 none, 1 accelerometer,
 * 2 accelerometer and magnetometer. The gyroscope offset always applies.
 * Other values leave the corrected accelerometer and magnetometer unwritten.
 * Returns 0. */
IMU_EXPORT int set_calibrator_mode(int mode);

/* Kept for callers of the service API; does nothing. Returns 0. */
IMU_EXPORT int set_sensitive(void* service);

/* The correction inside each posture update: gyro = gyro_raw - gyro_offset,
 * acc and mag from their raw triples by the calibrator mode. A gyro_offset
 * whose x differs from the stored one is stored and saved. Loads the
 * calibration file on its first call. Null arguments do nothing. */
IMU_EXPORT void apply_calibration(IMU* imu, const float* gyro_offset);

/* The correction of one raw triple on the input path: type 0 gyroscope,
 * 6 accelerometer, 7 magnetometer. Other types, other calibrator modes and
 * null pointers leave out unwritten. Loads the file on its first call. */
IMU_EXPORT void GetZarnCalibratedData(int type, const float* in, float* out);

/* ---- Calibration run ----
 * While the calibrator virtual sensor is on and an application has written
 * 1 into "/data/system/velmo_calibrator_s.ini", each fusion cycle offers its
 * sample to the run. A sample is kept when the phone's direction (third
 * column of the rotation matrix) lies more than 0.002741 and at most 0.1
 * (squared distance) from the last kept one; kept samples go to
 * "/data/system/acc_mag_raw.txt". After 120 kept samples the reference
 * direction's z flips to -1, after 240 the next update fits the
 * accelerometer and magnetometer ellipsoids and stores offsets and scales
 * in the calibration block and its file. Collection lines and the fit's
 * verdict are printed on standard output. Run these on the fusion path. */

/* Starts a new run at the next sfc_update_sensor_calibration. Returns 0. */
IMU_EXPORT int init_zarncalibrator(void);

/* One step of the run with the cycle's sample and the nine row-major
 * elements of its rotation matrix. Returns the run state: 0 collecting the
 * first half, 1 the second half, 2 fit pending, 3 finished with both fits
 * accepted, -1 accelerometer fit rejected, -2 magnetometer, -3 both.
 * A null pointer offers nothing (the state is returned unchanged, though a
 * pending fit still runs). */
IMU_EXPORT int sfc_update_sensor_calibration(const IMU* imu, const float* rotation_matrix);

/* Samples kept in the current run, 0 to 240. */
IMU_EXPORT int return_data_collect_counter(void);

/* Writes "0\n" to the request file and sets its mode to 0777, so that an
 * application can write 1. Returns 0; -1 when the mode cannot be set (logged
 * "change file failed.\n"); the negated errno when the file cannot be
 * written (logged "Unable to open <path> (<reason>)"). */
IMU_EXPORT int creat_app_calibration_file(void);

/* Reads the integer in the request file and logs
 * "check_app_calibration_file = <n>". Returns it (a number beyond int range
 * is clamped to the nearest end), or a negated errno with nothing logged:
 * the file's when it cannot be opened or read, -ENODATA when it holds no
 * number. */
IMU_EXPORT int check_app_calibration_file(void);

IMU_EXTERN_C_END

#endif /* IMU_CALIBRATION_H */
