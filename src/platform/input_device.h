#pragma once
// Input devices: the name of an open event device.

#include <cstddef>

namespace imu::platform {

// Reads the name of the input device open on fd into name (at most cap
// bytes, terminated), as the EVIOCGNAME request with length cap does.
// Returns the request's result: the bytes copied including the terminator,
// or -1 on failure.
//
// On the host, a node that is not an evdev device (a FIFO made by a test)
// answers with the contents of <root>/sys/class/input/<node>/device/name,
// trailing newline removed, where <node> is the last component of
// node_path.
int input_device_name(int fd, const char* node_path, char* name, std::size_t cap) noexcept;

}  // namespace imu::platform
