#include "support/data_service_client.h"

#include <dirent.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

namespace imu::test {

bool send_datagram(const std::string& path, const Bytes& bytes) {
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path) {
        return false;
    }
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0) {
        return false;
    }
    const ssize_t n = ::sendto(fd, bytes.data(), bytes.size(), 0,
                               reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
    ::close(fd);
    return n == static_cast<ssize_t>(bytes.size());
}

bool is_socket(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode);
}

bool wait_until(const std::function<bool()>& pred, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return pred();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

namespace {

int task_entries() {
    DIR* dir = ::opendir("/proc/self/task");
    if (dir == nullptr) {
        return -1;
    }
    int n = 0;
    while (const dirent* e = ::readdir(dir)) {
        n += e->d_name[0] != '.' ? 1 : 0;
    }
    ::closedir(dir);
    return n;
}

}  // namespace

int thread_count() {
    // The thread sanitizer starts a helper thread along with the first
    // thread the program makes; making one first keeps counts comparable.
    static const bool warmed = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)warmed;
#if defined(__arm__) || defined(__aarch64__)
    // The ARM builds run under qemu-user, which wakes a joiner before the
    // joined thread's host thread has ended: a count taken right after a
    // join can still see it. Take the count once it has held for 20 ms
    // (1 s at most). Native builds count at once, so there a thread that
    // is merely told to stop, not joined, still shows.
    int n = task_entries();
    int held_ms = 0;
    for (int waited_ms = 0; held_ms < 20 && waited_ms < 1000; ++waited_ms) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const int now = task_entries();
        held_ms = now == n ? held_ms + 1 : 0;
        n = now;
    }
    return n;
#else
    return task_entries();
#endif
}

}  // namespace imu::test
