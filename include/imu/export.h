#ifndef IMU_EXPORT_H
#define IMU_EXPORT_H

/* Marks a name that libimu.so exports. Everything else is hidden. */
#define IMU_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define IMU_EXTERN_C_BEGIN extern "C" {
#define IMU_EXTERN_C_END }
#else
#define IMU_EXTERN_C_BEGIN
#define IMU_EXTERN_C_END
#endif

#endif /* IMU_EXPORT_H */
