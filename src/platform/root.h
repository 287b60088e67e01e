#pragma once
// The host root under which fixed paths are looked up (include/imu/host.h).

#include <cstddef>

namespace imu::platform {

// Copies the current root into out (cap bytes). Returns its length, or -1
// when it does not fit.
int copy_root(char* out, std::size_t cap) noexcept;

}  // namespace imu::platform
