#pragma once
// Host stand-in for the NDK's <android/sensor.h>, over the simulated sensor
// hub that include/imu/host.h drives.

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "android/looper.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ASENSOR_TYPE_ACCELEROMETER = 1,
    ASENSOR_TYPE_MAGNETIC_FIELD = 2,
    ASENSOR_TYPE_GYROSCOPE = 4,
    ASENSOR_TYPE_LIGHT = 5,
    ASENSOR_TYPE_PROXIMITY = 8,
};

// The event record as on the phone: 104 bytes.
typedef struct ASensorEvent {
    int32_t version;  // sizeof(ASensorEvent)
    int32_t sensor;   // the sensor's handle
    int32_t type;     // framework type
    int32_t reserved0;
    int64_t timestamp;  // ns
    float data[16];
    uint32_t flags;
    int32_t reserved1[3];
} ASensorEvent;

struct ASensorManager;
typedef struct ASensorManager ASensorManager;
struct ASensorEventQueue;
typedef struct ASensorEventQueue ASensorEventQueue;
struct ASensor;
typedef struct ASensor ASensor;
typedef ASensor const* ASensorRef;

ASensorManager* ASensorManager_getInstance(void);
// Null when the type is absent (imu_host_sensor_set_present) or unknown.
ASensor const* ASensorManager_getDefaultSensor(ASensorManager* manager, int type);
// Null when the looper is null or every queue slot is taken.
ASensorEventQueue* ASensorManager_createEventQueue(ASensorManager* manager, ALooper* looper,
                                                   int ident, ALooper_callbackFunc callback,
                                                   void* data);
int ASensorManager_destroyEventQueue(ASensorManager* manager, ASensorEventQueue* queue);
// 0 on success, a negative value for a null queue or sensor.
int ASensorEventQueue_enableSensor(ASensorEventQueue* queue, ASensor const* sensor);
int ASensorEventQueue_disableSensor(ASensorEventQueue* queue, ASensor const* sensor);
int ASensorEventQueue_setEventRate(ASensorEventQueue* queue, ASensor const* sensor, int32_t usec);
// Moves up to count pending events into events, oldest first; returns how
// many, 0 when none is pending, a negative value for bad arguments.
ssize_t ASensorEventQueue_getEvents(ASensorEventQueue* queue, ASensorEvent* events, size_t count);

#ifdef __cplusplus
}
#endif
