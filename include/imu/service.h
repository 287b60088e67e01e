#ifndef IMU_SERVICE_H
#define IMU_SERVICE_H

/* The fusion service: the API a sensor service calls.
 *
 * One service object per process, created by the first call of any function
 * below except Initialization. It keeps 27 virtual sensors (index 0 to 26:
 * 0 Gyro, 1 LinearAcceleration, 2 Gravity, 3 RotationVector, 4 Orientation,
 * 5 calibration status, 6 Acceleration, 7 Magnetic, 8 Light, 9 Proximity,
 * 10 Snap, 11 Shake, 12 Tap, 13 Turn_Over, 14 Rolling, 15 Double_Flip,
 * 16 Raise_Up, 17 Put_Down, 18 Rotate, 19 Air_Mouse, 20 Corrected_Gyro,
 * 21 Tap_Desk, 22 Tap_Pocket, 23 Motion_Detection, 24 Pedometer,
 * 25 Zoom_In_Out, 26 Hand_Held), reads the platform's accelerometer,
 * magnetometer, light and proximity sensors on a thread of its own, and runs
 * one fusion cycle per gyroscope sample pushed with input_raw_data, on the
 * caller's thread. Every function returns 0. */

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* Switches virtual sensor index on (enable nonzero) or off. Index 0 and 6
 * only prepare (6 forgets the accelerometer data); indices from 32 on
 * change no bit. The first enabling call re-initialises the posture
 * filter. */
IMU_EXPORT int control_fusiond(int index, int enable);
IMU_EXPORT int control_SensorFusion(int index, int enable);

/* Copies the three floats of virtual sensor index into out. An index outside
 * 0 to 26 or a null out leaves out untouched. */
IMU_EXPORT int get_fusiond_data(int index, float* out);
IMU_EXPORT int get_SensorFusion_data(int index, float* out);

/* Sets the service mode (0 to 5); any other value is stored and makes the
 * control path and the sample input do nothing until a known mode is set. */
IMU_EXPORT int set_fusiond_moed(int mode);
IMU_EXPORT int set_SensorFusion_mode(int mode);

/* Pushes one sample: type 0 gyroscope (rad/s; runs a cycle), 6 accelerometer
 * (m/s^2), 7 magnetometer (uT), each data[0..2]; 999 a button word in
 * data[0]. timestamp: for type 0 the sample time in ns (modes 0, 1, 3, 5) or
 * the ns since the previous gyroscope sample (modes 2, 4). Other types and a
 * null data do nothing. */
IMU_EXPORT int input_raw_data(int type, float* data, long long timestamp);

/* Re-initialises the posture filter. Creates no service object. */
IMU_EXPORT int Initialization(void);

IMU_EXTERN_C_END

#ifdef __cplusplus
/* Names the next save log after the local time (C++ linkage). */
IMU_EXPORT int set_library_time();
#endif

#endif /* IMU_SERVICE_H */
