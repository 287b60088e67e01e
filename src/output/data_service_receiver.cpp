#include "output/data_service_receiver.h"

#include <android/log.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/local_socket.h"

namespace imu::data_service {
namespace {

// Folders that other applications' sockets live in are open to everyone.
constexpr unsigned kFolderMode = 0777;

// Pause after each datagram.
constexpr std::chrono::milliseconds kReceivePause{1};

class Lock {
public:
    explicit Lock(pthread_mutex_t* m) : m_(m) { pthread_mutex_lock(m_); }
    ~Lock() { pthread_mutex_unlock(m_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t* m_;
};

bool running(const ServiceParts& s) { return s.running->load(std::memory_order_relaxed); }

// The receiver whose thread this is, if any: a callback on the receiver
// thread cannot restart or wait for its own thread.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): per thread, set once
thread_local const VelmoReceiverThread* t_receiver = nullptr;

bool on_receiver_thread(const VelmoReceiverThread& r) { return t_receiver == &r; }

// The service's path as it is now; the host may change it at any time.
void read_path(const ServiceParts& s, char* out, std::size_t cap) {
    const Lock lock(s.mutex);
    std::strncpy(out, s.path, cap - 1);
    out[cap - 1] = '\0';
}

// A socket bound to the service's path, or -1 once the service is stopped.
int bind_socket(const ServiceParts& s) {
    char path[platform::kPathMax + 8];
    while (running(s)) {
        {
            const Lock lock(s.mutex);
            std::memset(s.latest, 0, s.record_size);
        }
        const int fd = platform::local_socket_open();
        if (fd < 0) {
            __android_log_print(kLogError, kTag, "Server_start FAIL");
            continue;
        }
        read_path(s, path, sizeof path);
        if (platform::local_socket_bind(fd, path) == 0) {
            return fd;
        }
        __android_log_print(kLogError, kTag, "bind_start fail");
        platform::local_socket_close(fd);
    }
    return -1;
}

void receive_loop(const ServiceParts& s, int fd, OnRecord on_record, void* self) {
    unsigned char incoming[kMaxRecordBytes];
    unsigned char snapshot[kMaxRecordBytes];
    while (running(s)) {
        const long n =
            platform::local_socket_receive(fd, s.receiver->wake_fd, incoming, s.record_size);
        if (n == platform::kReceiveWoken) {
            break;
        }
        if (n >= 0) {
            {
                // Held only while the record is written, never during the wait.
                const Lock lock(s.mutex);
                std::memcpy(s.latest, incoming, static_cast<std::size_t>(n));
                std::memcpy(snapshot, s.latest, s.record_size);
            }
            if (on_record != nullptr) {
                on_record(self, snapshot);
            }
        }
        std::this_thread::sleep_for(kReceivePause);
    }
}

}  // namespace

void init_service(const ServiceParts& s, platform::FixedPath socket) {
    pthread_mutex_init(s.mutex, nullptr);
    s.running->store(false, std::memory_order_relaxed);
    std::memset(s.latest, 0, s.record_size);
    platform::fixed_path(socket, s.path, s.path_cap);
    char folder[platform::kPathMax];
    if (platform::fixed_path(platform::FixedPath::kVelmoDir, folder, sizeof folder) >= 0) {
        create_folder(folder);  // an existing folder is fine
    }
}

void destroy_service(const ServiceParts& s) {
    __android_log_print(kLogError, kTag, "daemond_data_service kill");
    stop_receiver(s);
    join_receiver(s);
    pthread_mutex_destroy(s.mutex);
}

int create_folder(const char* path) {
    if (platform::make_folder(path, kFolderMode) != 0) {
        return -1;
    }
    return platform::change_mode(path, kFolderMode) != 0 ? -2 : 0;
}

int set_path(const ServiceParts& s, const char* path) {
    if (path == nullptr) {
        return -EINVAL;
    }
    const std::size_t len = ::strnlen(path, platform::kSocketPathMax + 1);
    if (len > platform::kSocketPathMax || len >= s.path_cap) {
        return -ENAMETOOLONG;
    }
    const Lock lock(s.mutex);
    std::memcpy(s.path, path, len + 1);
    return 0;
}

int send_record(const ServiceParts& s, const void* record) {
    if (record == nullptr) {
        return -EINVAL;
    }
    char path[platform::kPathMax + 8];
    read_path(s, path, sizeof path);
    platform::local_socket_send(path, record, s.record_size);  // delivery is not reported
    return 0;
}

int copy_latest(const ServiceParts& s, void* out) {
    if (out == nullptr) {
        return -EINVAL;
    }
    const Lock lock(s.mutex);
    std::memcpy(out, s.latest, s.record_size);
    return 0;
}

void start_receiver(const ServiceParts& s, platform::ThreadEntry entry, void* self) {
    VelmoReceiverThread& r = *s.receiver;
    if (running(s) || on_receiver_thread(r)) {
        return;
    }
    join_receiver(s);  // a stopped thread ends promptly: its wake signal is raised
    if (s.running->exchange(true, std::memory_order_relaxed)) {
        return;
    }
    __android_log_print(kLogError, kTag, "daemond_data_service start");
    r.wake_fd = platform::wake_signal_open();
    r.joinable = r.wake_fd >= 0 && platform::start_joinable_thread(entry, self, &r.thread);
    if (!r.joinable) {
        platform::wake_signal_close(r.wake_fd);
        r.wake_fd = -1;
        s.running->store(false, std::memory_order_relaxed);
    }
}

void stop_receiver(const ServiceParts& s) {
    s.running->store(false, std::memory_order_relaxed);
    platform::wake_signal_raise(s.receiver->wake_fd);
}

void join_receiver(const ServiceParts& s) {
    VelmoReceiverThread& r = *s.receiver;
    if (!r.joinable || on_receiver_thread(r) || !platform::join_thread(r.thread)) {
        return;
    }
    r.joinable = false;
    platform::wake_signal_close(r.wake_fd);
    r.wake_fd = -1;
}

int run_receiver(const ServiceParts& s, OnRecord on_record, void* self) {
    t_receiver = s.receiver;
    const int fd = bind_socket(s);
    if (fd >= 0) {
        receive_loop(s, fd, on_record, self);
        platform::local_socket_close(fd);
    }
    const int still_running = running(s) ? 1 : 0;
    __android_log_print(kLogError, kTag, "Server_end :%d", still_running);
    return still_running;
}

}  // namespace imu::data_service
