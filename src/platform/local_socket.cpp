#include "platform/local_socket.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace imu::platform {
namespace {

static_assert(sizeof(sockaddr_un::sun_path) == kSocketPathMax + 1);

// Fills addr for path; returns the address length 2 + strlen(path), or 0
// when the path does not fit.
socklen_t make_address(const char* path, sockaddr_un* addr) noexcept {
    if (!socket_path_fits(path)) {
        return 0;
    }
    std::memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    const std::size_t len = std::strlen(path);
    std::memcpy(addr->sun_path, path, len);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + len);
}

}  // namespace

bool socket_path_fits(const char* path) noexcept {
    if (path == nullptr || path[0] == '\0') {
        return false;
    }
    return ::strnlen(path, kSocketPathMax + 1) <= kSocketPathMax;
}

int local_socket_open() noexcept { return ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

int local_socket_bind(int fd, const char* path) noexcept {
    sockaddr_un addr{};
    const socklen_t len = make_address(path, &addr);
    if (len == 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    ::unlink(path);
    return ::bind(fd, reinterpret_cast<const sockaddr*>(&addr), len);
}

long local_socket_send(const char* path, const void* data, std::size_t len) noexcept {
    sockaddr_un addr{};
    const socklen_t addr_len = make_address(path, &addr);
    if (addr_len == 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = local_socket_open();
    if (fd < 0) {
        return -1;
    }
    const ssize_t sent =
        ::sendto(fd, data, len, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&addr), addr_len);
    ::close(fd);
    return static_cast<long>(sent);
}

long local_socket_receive(int fd, int wake_fd, void* buf, std::size_t cap) noexcept {
    pollfd fds[2] = {{wake_fd, POLLIN, 0}, {fd, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
        return -1;
    }
    if ((fds[0].revents & POLLIN) != 0) {
        return kReceiveWoken;
    }
    // The datagram is waiting, so this does not block; a longer datagram
    // is cut to cap and its rest dropped.
    return static_cast<long>(::recv(fd, buf, cap, MSG_DONTWAIT));
}

void local_socket_close(int fd) noexcept {
    if (fd >= 0) {
        ::close(fd);
    }
}

int wake_signal_open() noexcept { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

void wake_signal_raise(int fd) noexcept {
    if (fd < 0) {
        return;
    }
    const std::uint64_t one = 1;
    // The counter stays readable; a full counter (never reached) would
    // already be raised.
    [[maybe_unused]] const ssize_t n = ::write(fd, &one, sizeof one);
}

void wake_signal_close(int fd) noexcept {
    if (fd >= 0) {
        ::close(fd);
    }
}

int make_folder(const char* path, unsigned mode) noexcept {
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return ::mkdir(path, static_cast<mode_t>(mode));
}

int change_mode(const char* path, unsigned mode) noexcept {
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return ::chmod(path, static_cast<mode_t>(mode));
}

}  // namespace imu::platform
