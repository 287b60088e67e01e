#pragma once
// Helpers for the socket service tests: a raw datagram client, waits with
// a deadline, and the process's thread count.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace imu::test {

using Bytes = std::vector<unsigned char>;

// Bytes of a record object.
template <typename T>
Bytes bytes_of(const T& v) {
    const auto* p = reinterpret_cast<const unsigned char*>(&v);
    return Bytes(p, p + sizeof v);
}

// Sends one datagram to the local socket at path; true when it was accepted.
bool send_datagram(const std::string& path, const Bytes& bytes);
// True when path is a bound local socket's file.
bool is_socket(const std::string& path);
// Polls pred until it holds or the limit passes; returns its last value.
bool wait_until(const std::function<bool()>& pred,
                std::chrono::milliseconds limit = std::chrono::seconds(10));
// Threads of this process now (entries of /proc/self/task; under an
// emulator, once the count has settled).
int thread_count();

}  // namespace imu::test
