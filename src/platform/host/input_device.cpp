#include "platform/input_device.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

#include "platform/paths.h"

namespace imu::platform {
namespace {

// The name file of a test's stand-in device: <root>/sys/class/input/<node>/device/name.
int name_from_sysfs(const char* node_path, char* name, std::size_t cap) noexcept {
    const char* slash = std::strrchr(node_path, '/');
    const char* node = slash == nullptr ? node_path : slash + 1;
    char rel[kPathMax];
    char path[kPathMax];
    if (std::strlen(node) + sizeof "/device/name" > sizeof rel) {
        return -1;
    }
    std::strcpy(rel, node);
    std::strcat(rel, "/device/name");
    if (fixed_path_join(FixedPath::kSysClassInput, rel, path, sizeof path) < 0) {
        return -1;
    }
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const ssize_t n = ::read(fd, name, cap - 1);
    ::close(fd);
    if (n < 0) {
        return -1;
    }
    std::size_t len = static_cast<std::size_t>(n);
    while (len > 0 && (name[len - 1] == '\n' || name[len - 1] == '\r')) {
        --len;
    }
    name[len] = '\0';
    return static_cast<int>(len + 1);
}

}  // namespace

int input_device_name(int fd, const char* node_path, char* name, std::size_t cap) noexcept {
    if (name == nullptr || cap == 0) {
        return -1;
    }
    name[0] = '\0';
    const int n = ::ioctl(fd, EVIOCGNAME(cap), name);
    if (n >= 0 || node_path == nullptr) {
        return n;
    }
    return name_from_sysfs(node_path, name, cap);
}

}  // namespace imu::platform
