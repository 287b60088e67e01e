// The host root: a folder under which every fixed path is looked up.

#include "platform/root.h"

#include <cstring>
#include <mutex>

#include "imu/host.h"
#include "platform/paths.h"

namespace {
struct Root {
    std::mutex mutex;
    char dir[imu::platform::kPathMax] = {};
};
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
Root g_root;
}  // namespace

namespace imu::platform {

int copy_root(char* out, std::size_t cap) noexcept {
    const std::lock_guard<std::mutex> lock(g_root.mutex);
    const std::size_t n = std::strlen(g_root.dir);
    if (n >= cap) {
        return -1;
    }
    std::memcpy(out, g_root.dir, n + 1);
    return static_cast<int>(n);
}

}  // namespace imu::platform

extern "C" IMU_EXPORT void imu_host_set_root(const char* dir) {
    const char* d = dir == nullptr ? "" : dir;
    const std::size_t n = std::strlen(d);
    if (n >= sizeof g_root.dir) {
        return;
    }
    const std::lock_guard<std::mutex> lock(g_root.mutex);
    std::memcpy(g_root.dir, d, n + 1);
}

extern "C" IMU_EXPORT const char* imu_host_root(void) { return g_root.dir; }
