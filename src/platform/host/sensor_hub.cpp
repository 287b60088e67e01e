// The simulated sensor hub: host versions of the NDK's sensor manager, event
// queues and looper. Tests post events with imu_host_sensor_post; they come
// out of ASensorEventQueue_getEvents of every queue that has the sensor
// enabled, one at a time, in order. Nothing here allocates.

#include <android/looper.h>
#include <android/sensor.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>

#include "imu/host.h"

struct ALooper {
    int unused;
};

struct ASensor {
    int type;
    int handle;
};

struct ASensorManager {
    int unused;
};

namespace {

constexpr int kTypes[] = {ASENSOR_TYPE_ACCELEROMETER, ASENSOR_TYPE_MAGNETIC_FIELD,
                          ASENSOR_TYPE_GYROSCOPE, ASENSOR_TYPE_LIGHT, ASENSOR_TYPE_PROXIMITY};
constexpr int kSensorCount = sizeof(kTypes) / sizeof(kTypes[0]);
constexpr int kQueueSlots = 4;
constexpr int kQueueCapacity = 512;  // events a queue holds before it drops
constexpr int kMaxValues = 16;

int sensor_index(int type) {
    for (int i = 0; i < kSensorCount; ++i) {
        if (kTypes[i] == type) {
            return i;
        }
    }
    return -1;
}

struct Queue {
    bool used = false;
    const ALooper* looper = nullptr;
    int ident = 0;
    void* data = nullptr;
    bool enabled[kSensorCount] = {};
    ASensorEvent events[kQueueCapacity] = {};
    int head = 0;   // oldest pending event
    int count = 0;  // pending events
};

struct Hub {
    std::mutex mutex;
    std::condition_variable posted;
    bool present[kSensorCount] = {true, true, true, true, true};
    int period_us[kSensorCount] = {};
    ASensor sensors[kSensorCount] = {{1, 1}, {2, 2}, {4, 3}, {5, 4}, {8, 5}};
    ASensorManager manager = {};
    Queue queues[kQueueSlots];
};
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
Hub g_hub;

// The calling thread's looper, once prepared.
thread_local ALooper t_looper_storage = {};
thread_local bool t_looper_prepared = false;

Queue* as_queue(ASensorEventQueue* q) { return reinterpret_cast<Queue*>(q); }

bool valid_queue(ASensorEventQueue* q) {
    const Queue* queue = as_queue(q);
    return queue >= g_hub.queues && queue < g_hub.queues + kQueueSlots && queue->used;
}

int sensor_slot(ASensor const* sensor) {
    return sensor == nullptr ? -1 : sensor_index(sensor->type);
}

int set_enabled(ASensorEventQueue* q, ASensor const* sensor, bool on) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_slot(sensor);
    if (!valid_queue(q) || s < 0) {
        return -22;
    }
    as_queue(q)->enabled[s] = on;
    return 0;
}

const Queue* pending_queue(const ALooper* looper) {
    for (const Queue& q : g_hub.queues) {
        if (q.used && q.looper == looper && q.count > 0) {
            return &q;
        }
    }
    return nullptr;
}

}  // namespace

extern "C" {

ALooper* ALooper_prepare(int /*opts*/) {
    t_looper_prepared = true;
    return &t_looper_storage;
}

int ALooper_pollAll(int timeoutMillis, int* outFd, int* outEvents, void** outData) {
    if (!t_looper_prepared) {
        return ALOOPER_POLL_ERROR;
    }
    const ALooper* looper = &t_looper_storage;
    std::unique_lock<std::mutex> lock(g_hub.mutex);
    const Queue* q = pending_queue(looper);
    if (q == nullptr && timeoutMillis != 0) {
        auto ready = [&] { return (q = pending_queue(looper)) != nullptr; };
        if (timeoutMillis < 0) {
            g_hub.posted.wait(lock, ready);
        } else {
            g_hub.posted.wait_for(lock, std::chrono::milliseconds(timeoutMillis), ready);
        }
    }
    if (q == nullptr) {
        return ALOOPER_POLL_TIMEOUT;
    }
    if (outFd != nullptr) {
        *outFd = -1;
    }
    if (outEvents != nullptr) {
        *outEvents = 1;  // ALOOPER_EVENT_INPUT
    }
    if (outData != nullptr) {
        *outData = q->data;
    }
    return q->ident;
}

ASensorManager* ASensorManager_getInstance(void) { return &g_hub.manager; }

ASensor const* ASensorManager_getDefaultSensor(ASensorManager* manager, int type) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_index(type);
    if (manager == nullptr || s < 0 || !g_hub.present[s]) {
        return nullptr;
    }
    return &g_hub.sensors[s];
}

ASensorEventQueue* ASensorManager_createEventQueue(ASensorManager* manager, ALooper* looper,
                                                   int ident, ALooper_callbackFunc /*callback*/,
                                                   void* data) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    if (manager == nullptr || looper == nullptr) {
        return nullptr;
    }
    for (Queue& q : g_hub.queues) {
        if (!q.used) {
            q.used = true;
            q.looper = looper;
            q.ident = ident;
            q.data = data;
            std::memset(q.enabled, 0, sizeof q.enabled);
            q.head = 0;
            q.count = 0;
            return reinterpret_cast<ASensorEventQueue*>(&q);
        }
    }
    return nullptr;
}

int ASensorManager_destroyEventQueue(ASensorManager* /*manager*/, ASensorEventQueue* queue) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    if (!valid_queue(queue)) {
        return -22;
    }
    as_queue(queue)->used = false;
    return 0;
}

int ASensorEventQueue_enableSensor(ASensorEventQueue* queue, ASensor const* sensor) {
    return set_enabled(queue, sensor, true);
}

int ASensorEventQueue_disableSensor(ASensorEventQueue* queue, ASensor const* sensor) {
    return set_enabled(queue, sensor, false);
}

int ASensorEventQueue_setEventRate(ASensorEventQueue* queue, ASensor const* sensor, int32_t usec) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_slot(sensor);
    if (!valid_queue(queue) || s < 0) {
        return -22;
    }
    g_hub.period_us[s] = usec;
    return 0;
}

ssize_t ASensorEventQueue_getEvents(ASensorEventQueue* queue, ASensorEvent* events, size_t count) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    if (!valid_queue(queue) || events == nullptr) {
        return -22;
    }
    Queue& q = *as_queue(queue);
    size_t n = 0;
    while (n < count && q.count > 0) {
        events[n++] = q.events[q.head];
        q.head = (q.head + 1) % kQueueCapacity;
        --q.count;
    }
    return static_cast<ssize_t>(n);
}

IMU_EXPORT void imu_host_sensor_set_present(int type, int present) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_index(type);
    if (s >= 0) {
        g_hub.present[s] = present != 0;
    }
}

IMU_EXPORT int imu_host_sensor_post(int type, const float* values, int count,
                                    int64_t timestamp_ns) {
    const int s = sensor_index(type);
    if (s < 0 || count < 0 || (values == nullptr && count > 0)) {
        return 0;
    }
    const int n = count < kMaxValues ? count : kMaxValues;
    int queued = 0;
    {
        const std::lock_guard<std::mutex> lock(g_hub.mutex);
        for (Queue& q : g_hub.queues) {
            if (!q.used || !q.enabled[s] || q.count == kQueueCapacity) {
                continue;
            }
            ASensorEvent& e = q.events[(q.head + q.count) % kQueueCapacity];
            e = ASensorEvent{};
            e.version = static_cast<int32_t>(sizeof(ASensorEvent));
            e.sensor = g_hub.sensors[s].handle;
            e.type = type;
            e.timestamp = timestamp_ns;
            if (n > 0) {
                std::memcpy(e.data, values, sizeof(float) * static_cast<size_t>(n));
            }
            ++q.count;
            queued = 1;
        }
    }
    if (queued != 0) {
        g_hub.posted.notify_all();
    }
    return queued;
}

IMU_EXPORT int imu_host_sensor_enabled(int type) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_index(type);
    if (s < 0) {
        return 0;
    }
    for (const Queue& q : g_hub.queues) {
        if (q.used && q.enabled[s]) {
            return 1;
        }
    }
    return 0;
}

IMU_EXPORT int imu_host_sensor_period_us(int type) {
    const std::lock_guard<std::mutex> lock(g_hub.mutex);
    const int s = sensor_index(type);
    return s < 0 ? 0 : g_hub.period_us[s];
}

}  // extern "C"
