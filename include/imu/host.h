#ifndef IMU_HOST_H
#define IMU_HOST_H

/* Host control API: exists only in host builds of libimu.so. Tests and tools
 * use it to place the library's files under a folder of their own, to catch
 * its log lines and to drive the simulated sensor hub. */

#include <stdint.h>

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* Directory under which every fixed platform path is looked up:
   /data/system/..., /data/velmo/..., /dev/input, /sys/class/input.
   NULL or "" means the real paths (the default). A directory longer than
   4095 bytes is refused and the root stays as it was. */
IMU_EXPORT void imu_host_set_root(const char* dir);
/* The current root, "" by default. Valid until the next imu_host_set_root. */
IMU_EXPORT const char* imu_host_root(void);

/* Log lines. prio is the Android priority (3 debug, 6 error); tag is the
   line's tag; text is the formatted message as the library formatted it.
   The default sink writes "<E|D>/<tag>: <text>" to stderr. NULL restores it.
   The sink is called from any thread, one call at a time. */
typedef void (*imu_host_log_fn)(int prio, const char* tag, const char* text, void* ctx);
IMU_EXPORT void imu_host_set_log_sink(imu_host_log_fn fn, void* ctx);

/* The simulated sensor hub behind the host sensor and looper functions.
   Types are framework types: 1 accelerometer, 2 magnetic field,
   4 gyroscope, 5 light, 8 proximity. */
/* All five present by default; an absent type has no default sensor. */
IMU_EXPORT void imu_host_sensor_set_present(int type, int present);
/* Queues one event on every queue that has the sensor enabled. count values
   are copied (at most 16). Returns 1 when queued; 0 when dropped (sensor
   not enabled, unknown type, bad arguments, or the queue full). */
IMU_EXPORT int imu_host_sensor_post(int type, const float* values, int count, int64_t timestamp_ns);
/* 1 while some event queue has the sensor enabled. */
IMU_EXPORT int imu_host_sensor_enabled(int type);
/* The last period requested for the sensor in microseconds, 0 if none. */
IMU_EXPORT int imu_host_sensor_period_us(int type);

IMU_EXTERN_C_END

#endif /* IMU_HOST_H */
