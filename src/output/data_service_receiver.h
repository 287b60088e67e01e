#pragma once
// The socket mechanics the data socket services share: the socket path,
// the folder, starting and stopping the receiver thread, binding, and the
// receive loop that keeps the latest record.
//
//   constructed --start--> binding --bound--> receiving --stop--> ended
//                              ^  | bind fails: logged, retried at once   |
//                              +--+                                       |
//   start after stop: join the ended thread, then a new one rebinds <-----+

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "imu/data_service.h"
#include "platform/joinable_thread.h"
#include "platform/paths.h"

namespace imu::data_service {

inline constexpr const char* kTag = "VLM_SFC";
inline constexpr int kLogError = 6;

// The longest record a service receives (sensor_event).
inline constexpr std::size_t kMaxRecordBytes = 112;

// What the shared code needs of a service object.
struct ServiceParts {
    pthread_mutex_t* mutex;  // guards latest and path
    char* path;
    std::size_t path_cap;
    unsigned char* latest;
    std::size_t record_size;
    std::atomic<bool>* running;
    VelmoReceiverThread* receiver;
};

// The parts of a service class (daemond_data_service,
// calibrator_data_service, touch_service): they share the field names.
template <typename Service>
ServiceParts parts_of(Service& s) {
    return {&s.mutex,
            s.socket_path,
            sizeof s.socket_path,
            reinterpret_cast<unsigned char*>(&s.latest),
            sizeof s.latest,
            &s.running,
            &s.receiver};
}

// The constructors' shared part: mutex, path = the fixed socket path
// (with the host root), not running, and the folder "/data/velmo".
void init_service(const ServiceParts& s, platform::FixedPath socket);
// The destructors' shared part: the log line, stop, join, mutex.
void destroy_service(const ServiceParts& s);

// mkdir + chmod with mode 0777: 0, -1 (mkdir failed) or -2 (chmod failed).
int create_folder(const char* path);

// Copies path into the service's path under its mutex: 0, -EINVAL for
// null, -ENAMETOOLONG when it does not fit a socket address.
int set_path(const ServiceParts& s, const char* path);

// Sends the record's bytes to the service's path. 0, or -EINVAL for null.
int send_record(const ServiceParts& s, const void* record);

// Copies the latest record under the mutex. 0, or -EINVAL for null.
int copy_latest(const ServiceParts& s, void* out);

// Starts entry(self) on a new receiver thread unless one runs; a thread
// that was stopped is joined first. Does nothing on the receiver thread.
void start_receiver(const ServiceParts& s, platform::ThreadEntry entry, void* self);
// Clears the running flag and wakes the receiver from its wait.
void stop_receiver(const ServiceParts& s);
// Waits for a started receiver to end (not from the receiver itself).
void join_receiver(const ServiceParts& s);

// Called with a copy of the latest record after every datagram.
using OnRecord = void (*)(void* self, const unsigned char* latest);

// The receiver loop: binds the path, clearing the latest record before
// each try and retrying at once on failure, then receives datagrams into
// the latest record until stopped. Logs "Server_end :%d" and returns the
// running flag.
int run_receiver(const ServiceParts& s, OnRecord on_record, void* self);

}  // namespace imu::data_service
