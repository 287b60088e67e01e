#pragma once
// Helpers for the data socket service tests: a raw datagram client, waits
// with a deadline, and the process's thread count.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace imu::test {

using Bytes = std::vector<unsigned char>;

// n bytes of value v.
Bytes filled(std::size_t n, unsigned char v);
// n bytes counting up from first.
Bytes counting(std::size_t n, unsigned char first);

// Sends bytes as one datagram to the local socket at path. Returns true
// when the datagram was accepted (somebody is bound there).
bool send_datagram(const std::string& path, const Bytes& bytes);

// True when path is a bound local socket's file.
bool is_socket(const std::string& path);

// Polls pred until it holds or the limit passes; returns its last value.
bool wait_until(const std::function<bool()>& pred,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

// Threads of this process now (entries of /proc/self/task).
int thread_count();

}  // namespace imu::test
