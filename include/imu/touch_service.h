#ifndef IMU_TOUCH_SERVICE_H
#define IMU_TOUCH_SERVICE_H

/* The virtual touch service: another process drives the touch screen by
 * sending 24-byte vl_touch_sensors_event commands to the local datagram
 * socket "/data/velmo/touch_service".
 *
 * With a callback registered (Init), every command goes to the callback as
 * a VLEvent of type 2. Without one, the commands of group 1 become
 * synthetic multi-touch gestures written into the input device
 * "VelmoVirtualTouch" (provided by the platform):
 *
 *   key_id 1, key_type 1: tap of 100 ms at (500, 500)
 *   key_id 1, key_type 2: two-finger spread around (200, 200), 200 steps
 *   key_id 1, key_type 3: two-finger pinch towards (600, 600), 200 steps
 *   anything else:        logged only
 *
 * Gesture coordinates are in a 1280 x 800 space, scaled to the device's
 * 1500 x 1000. A gesture runs on the receiver thread and blocks it for its
 * whole duration (2 ms per step); commands arriving meanwhile wait in the
 * socket.
 *
 * C++ only: from C this header declares nothing. */

#ifdef __cplusplus

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "imu/data_service.h"
#include "imu/export.h"

/* One command. */
struct vl_touch_sensors_event {
    std::int32_t key_id;   /* 1: the built-in gestures */
    std::int32_t key_type; /* 1 tap, 2 spread, 3 pinch */
    std::int32_t data[4];  /* passed through to the callback */
};
static_assert(sizeof(vl_touch_sensors_event) == 24, "vl_touch_sensors_event is 24 bytes");

/* The touch device as found under /dev/input. */
struct touch_sensor_fd {
    const char* name; /* "VelmoVirtualTouch" */
    std::int32_t reserved;
    int fd;                 /* descriptor of the node, or -1 */
    char class_path[4096];  /* "<sysfs input dir>/<entry>/", or "" */
    char device_path[4096]; /* "/dev/input/<entry>" of the node last tried */
};

/* Threads: construct, start, stop, update the path and destroy from one
 * thread at a time; get_data and send_clien_data from any thread. The
 * gesture functions write to the device from the calling thread: call them
 * while the receiver is not running a gesture.
 *
 * Lifecycle: constructed (folder created, device looked up once and never
 * closed by this class, not running) -> start_service -> stop_service ->
 * start_service again ... -> destroyed (stops the receiver and waits for
 * it, after the gesture it may be running). */
class IMU_EXPORT touch_service : public VelmoBaseEvent {
public:
    /* Socket path "/data/velmo/touch_service"; creates "/data/velmo";
     * opens the device (logs "Failed to open sensor: %s" when missing). */
    touch_service();
    ~touch_service() override;
    touch_service(const touch_service&) = delete;
    touch_service& operator=(const touch_service&) = delete;

    /* Registers handler; from then on no gesture is synthesised. Does not
     * start the service. Returns 0, or -22 for a null handler (nothing
     * changes then). */
    int Init(VLEventCallback handler) override;
    /* Does nothing. Returns 0. */
    int Exit() override;

    /* As in daemond_data_service, with 24-byte records. */
    int update_service_path(char* path);
    int creat_service_folder(char* path);
    int start_service();
    int stop_service();
    int get_data(vl_touch_sensors_event* out);
    int send_clien_data(vl_touch_sensors_event* rec);
    /* Receiver thread entry and loop of the touch_service at self: binds
     * the socket path, then handles every datagram (up to 24 bytes; a
     * shorter one overwrites only its own bytes of the latest record) until
     * stopped. Returns the running flag (0), or -22 for a null self. */
    static int pollSensors_server(void* self);

    /* Looks up the device named dev->name: fd and device path from
     * /dev/input, class path from the sysfs input directory. Returns 0 when
     * open, -1 when not found or dev is null. */
    static int open_sensor(touch_sensor_fd* dev);
    /* The first node of /dev/input whose device name is name, opened with
     * flags; path receives the node last tried (at most path_size bytes; a
     * node whose path does not fit is skipped). Returns the descriptor or
     * -1. */
    static int open_input_device(const char* name, int flags, char* path, int path_size);
    /* The sysfs directory "<dir>/<entry>/" of the device called name, at
     * most size bytes (never cut). Returns 0, or -1 with class_path ""
     * (left untouched for a size of 0 or less). */
    static int get_class_path(char* class_path, const char* name, int size);
    /* Replaces the trailing '\r' and '\n' of s[0, length) by terminators.
     * Returns 0, or -1 for a null s or a negative length. */
    static int chomp(char* s, int length);

    /* Gesture coordinate -> device coordinate, truncated and held within
     * [0, device size]; 0 when the device size is not finite and
     * positive or the scaled value is not a number. */
    int convert_x(int x) const;
    int convert_y(int y) const;

    /* One finger down at (x, y), hold_ms later up again. Returns 0. */
    int touch_point(int x, int y, int hold_ms);
    /* One frame of two contacts (tracking ids 0 and 1), then delay_ms of
     * sleep. down = 0 writes the release frame (positions 0). Returns 0. */
    int touch_muti_point(int x1, int y1, int x2, int y2, int down, int delay_ms);
    /* Pinch: fingers from centre_x -+ steps (held within [0, input width])
     * move one unit closer per frame and stay at centre_x once there; then
     * the release frame. Returns 0. */
    int narrow(int centre_x, int y, int steps);
    /* Spread: fingers from centre_x -+ 11 move one unit apart per frame;
     * then the release frame. Returns 0. */
    int enlarge(int centre_x, int y, int steps);

    /* One event each to the device; 0, or -1 when the write failed
     * (logged "write error: %d %s"). */
    int report_sync();
    int report_mt_sync();
    int report_key(int code, int value);
    int report_abs(int code, int value);

    std::atomic<std::int32_t> callback_set;
    std::atomic<VLEventCallback> callback;
    pthread_mutex_t mutex;  /* guards latest and socket_path */
    char socket_path[4096]; /* resolved, with the host root */
    vl_touch_sensors_event latest;
    std::atomic<bool> running;
    touch_sensor_fd touch;
    float input_width;            /* 1280: the gesture coordinate space */
    float input_height;           /* 800 */
    float device_width;           /* 1500: the device's coordinate range */
    float device_height;          /* 1000 */
    VelmoReceiverThread receiver; /* managed by the library */
};

#endif /* __cplusplus */

#endif /* IMU_TOUCH_SERVICE_H */
