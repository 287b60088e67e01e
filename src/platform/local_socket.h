#pragma once
// Local datagram sockets bound to file-system paths, the wake signal that
// ends a receiver's wait, and the folder that holds the socket files.

#include <cstddef>

namespace imu::platform {

// Longest socket path a local socket address holds, terminator excluded.
inline constexpr std::size_t kSocketPathMax = 107;

// True when path is not empty and fits a local socket address. An empty
// path would bind in the abstract namespace, so it never fits.
bool socket_path_fits(const char* path) noexcept;

// A new AF_UNIX datagram socket, or -1 with errno set.
int local_socket_open() noexcept;

// Removes whatever is at path, then binds fd to it with the address length
// 2 + strlen(path). Returns 0, or -1 with errno set (ENAMETOOLONG when the
// path does not fit, without touching the file system).
int local_socket_bind(int fd, const char* path) noexcept;

// Sends len bytes as one datagram to path from a socket of its own. Returns
// the bytes sent, or -1 (nobody bound there, path does not fit, ...).
long local_socket_send(const char* path, const void* data, std::size_t len) noexcept;

// local_socket_receive's answer when the wake signal ended the wait.
inline constexpr long kReceiveWoken = -2;

// Waits without a time limit until a datagram arrives on fd or wake_fd is
// raised, and receives the datagram into buf. Returns its length (at most
// cap: the rest of a longer datagram is dropped, an empty one gives 0),
// kReceiveWoken, or -1 on an error (EINTR included).
long local_socket_receive(int fd, int wake_fd, void* buf, std::size_t cap) noexcept;

void local_socket_close(int fd) noexcept;

// A wake signal: raised once, it stays raised until closed.
int wake_signal_open() noexcept;  // descriptor, or -1 with errno set
void wake_signal_raise(int fd) noexcept;
void wake_signal_close(int fd) noexcept;

// mkdir(2) and chmod(2): 0, or -1 with errno set.
int make_folder(const char* path, unsigned mode) noexcept;
int change_mode(const char* path, unsigned mode) noexcept;

}  // namespace imu::platform
