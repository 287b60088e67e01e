#ifndef IMU_DATA_SERVICE_H
#define IMU_DATA_SERVICE_H

/* Data socket services: another process hands records to the library over
 * local datagram sockets under "/data/velmo".
 *
 * daemond_data_service keeps the latest sensor_event received on
 * "/data/velmo/service" for polling with get_data; calibrator_data_service
 * receives calib_sensors_event records on "/data/velmo/calibrator_service"
 * and hands each one to a registered callback as a VLEvent. Both have the
 * client side too: send_clien_data sends one record to the object's path.
 * The library does not create these objects; a host process does.
 *
 * C++ only: from C this header declares nothing. */

#ifdef __cplusplus

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "imu/export.h"

/* Records, opaque to the library: the sending process defines their fields,
 * the services move their bytes. */
struct sensor_event {
    unsigned char bytes[112];
};
struct calib_sensors_event {
    unsigned char bytes[60];
};
static_assert(sizeof(sensor_event) == 112, "sensor_event is 112 bytes");
static_assert(sizeof(calib_sensors_event) == 60, "calib_sensors_event is 60 bytes");

/* The services pass controller 1 to every callback. */
enum VLCONTROLLER_ID : std::int32_t { VLCONTROLLER_ID_VELMO = 1 };

/* VLEvent.type: which record the event carries. */
enum VLEventType : std::int32_t { VLEVENT_CALIBRATION = 1, VLEVENT_TOUCH = 2 };

/* The event handed to a callback: the type, three zero words, then the
 * received record byte for byte (60 bytes of a calibration record, 24 of a
 * touch record; the rest is 0). */
struct VLEvent {
    std::int32_t type;
    std::int32_t zero[3];
    unsigned char record[60];
};
static_assert(sizeof(VLEvent) == 76, "VLEvent is 16 bytes of header and 60 of record");
static_assert(offsetof(VLEvent, record) == 16, "the record starts at byte 16");

/* Called on the service's receiver thread for every datagram received,
 * with 0, controller 1 and the event. */
typedef void (*VLEventCallback)(unsigned int, VLCONTROLLER_ID, const VLEvent&);

/* The callback-style services. */
class IMU_EXPORT VelmoBaseEvent {
public:
    /* Registers the callback. */
    virtual int Init(VLEventCallback callback) = 0;
    virtual int Exit() = 0;
    virtual ~VelmoBaseEvent();
};

/* Bookkeeping of a service's receiver thread; only the library touches it. */
struct VelmoReceiverThread {
    pthread_t thread{};
    int wake_fd = -1;      /* raised by stop_service: ends the thread's wait */
    bool joinable = false; /* a thread was started and not yet joined */
};

/* Threads: construct, start, stop, update the path and destroy from one
 * thread at a time; get_data and send_clien_data from any thread.
 *
 * Lifecycle: constructed (folder created, not running) -> start_service ->
 * stop_service -> start_service again (rebinds the path) ... -> destroyed.
 * The destructor stops the receiver and waits for it to end. */
class IMU_EXPORT daemond_data_service {
public:
    /* Socket path "/data/velmo/service"; creates the folder "/data/velmo"
     * (an existing folder or a failure is not an error). */
    daemond_data_service();
    ~daemond_data_service();
    daemond_data_service(const daemond_data_service&) = delete;
    daemond_data_service& operator=(const daemond_data_service&) = delete;

    /* Uses path as the socket path from the next bind or send on. Returns
     * 0; -22 for a null path and -36 (ENAMETOOLONG) for one longer than a
     * local socket address holds (107 bytes), which leave the path as it
     * was. */
    int update_service_path(char* path);
    /* mkdir path with mode 0777, then chmod 0777 against the umask. Returns
     * 0, -1 when mkdir fails (also for an existing folder, which is left as
     * it is, and for a null path) or -2 when chmod fails. */
    int creat_service_folder(char* path);
    /* Starts the receiver thread unless it runs. Returns 0. */
    int start_service();
    /* Ends the receiver promptly, also while it waits for a datagram.
     * Returns 0. */
    int stop_service();
    /* Copies the latest record; never waits for a datagram. Returns 0, or
     * -22 for a null out. */
    int get_data(sensor_event* out);
    /* Sends rec as one datagram to the socket path. Returns 0 whether or
     * not it was delivered, -22 for a null rec. */
    int send_clien_data(sensor_event* rec);
    /* Receiver thread entry: runs pollSensors_server of the object. */
    static int daemond_data_serviceThread(void* self);
    /* The receiver loop: binds the socket path (clearing the latest record
     * before each try), then makes every datagram (up to 112 bytes; a
     * shorter one overwrites only its own bytes) the latest record until
     * stopped. Returns the running flag, 0. */
    int pollSensors_server();

    pthread_mutex_t mutex;  /* guards latest and socket_path */
    char socket_path[4100]; /* resolved, with the host root */
    sensor_event latest;
    std::atomic<bool> running;
    VelmoReceiverThread receiver; /* managed by the library */
};

/* Threads as daemond_data_service. The callback runs on the receiver
 * thread and may call get_data and stop_service. */
class IMU_EXPORT calibrator_data_service : public VelmoBaseEvent {
public:
    /* Socket path "/data/velmo/calibrator_service"; creates "/data/velmo". */
    calibrator_data_service();
    ~calibrator_data_service() override;
    calibrator_data_service(const calibrator_data_service&) = delete;
    calibrator_data_service& operator=(const calibrator_data_service&) = delete;

    /* Registers handler and starts the service. Returns 0, or -22 for a
     * null callback (nothing changes then). */
    int Init(VLEventCallback handler) override;
    /* Does nothing. Returns 0. */
    int Exit() override;

    /* As in daemond_data_service, with 60-byte records. */
    int update_service_path(char* path);
    int creat_service_folder(char* path);
    int start_service();
    int stop_service();
    int get_data(calib_sensors_event* out);
    int send_clien_data(calib_sensors_event* rec);
    static int daemond_data_serviceThread(void* self);
    /* As in daemond_data_service, and after every datagram (also an empty
     * or short one) the callback, if registered, gets a VLEvent of type 1
     * with the whole latest record. */
    int pollSensors_server();

    std::atomic<std::int32_t> callback_set;
    std::atomic<VLEventCallback> callback;
    pthread_mutex_t mutex;  /* guards latest and socket_path */
    char socket_path[4096]; /* resolved, with the host root */
    calib_sensors_event latest;
    std::atomic<bool> running;
    VelmoReceiverThread receiver; /* managed by the library */
};

#endif /* __cplusplus */

#endif /* IMU_DATA_SERVICE_H */
