#include "output/input_device_scan.h"

#include <android/log.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/input_device.h"

namespace imu {
namespace {

constexpr const char* kTag = "VLM_SFC";
constexpr std::size_t kNameQuery = 254;  // bytes asked of EVIOCGNAME
constexpr std::size_t kNameFile = 256;   // a sysfs name file is read up to 255 bytes

using platform::FixedPath;

bool is_dot_entry(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Opens one node and keeps it when its device name is name. Returns the
// descriptor or -1.
int open_if_named(const char* node, const char* name, int open_flags) {
    const int fd = ::open(node, open_flags);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot open device %s: %s\n", node,
                            std::strerror(errno));
        return -1;
    }
    char device_name[kNameQuery];
    if (platform::input_device_name(fd, node, device_name, sizeof device_name) < 1) {
        device_name[0] = '\0';
    }
    if (std::strcmp(device_name, name) != 0) {
        ::close(fd);
        return -1;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Opened device [%s], path is %s, fd is %d\n",
                        device_name, node, fd);
    return fd;
}

// Reads the name file of one sysfs entry into text (chomped). false when
// the file cannot be opened (logged) or does not fit.
bool read_name_file(const char* entry_dir, char* text, std::size_t size) {
    char file[platform::kPathMax];
    const int n = std::snprintf(file, sizeof file, "%s/name", entry_dir);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof file) {
        return false;
    }
    const int fd = ::open(file, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "File %s open failed.", file);
        return false;
    }
    const ssize_t got = ::read(fd, text, size - 1);
    ::close(fd);
    if (got <= 0) {
        text[0] = '\0';
        return true;
    }
    // The last byte read (normally the newline) gives way to the terminator.
    text[got - 1] = '\0';
    chomp(text, static_cast<int>(got - 1));
    return true;
}

}  // namespace

int open_input_device(const char* name, int open_flags, char* path, std::size_t path_size,
                      bool* dir_opened) noexcept {
    if (dir_opened != nullptr) {
        *dir_opened = false;
    }
    if (name == nullptr) {
        return -1;
    }
    char dir_path[platform::kPathMax];
    platform::fixed_path(FixedPath::kDevInput, dir_path, sizeof dir_path);
    DIR* dir = ::opendir(dir_path);
    if (dir == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Directory %s open failed.", dir_path);
        return -1;
    }
    if (dir_opened != nullptr) {
        *dir_opened = true;
    }
    int fd = -1;
    char node[platform::kPathMax];
    for (const dirent* e = ::readdir(dir); e != nullptr && fd < 0; e = ::readdir(dir)) {
        if (is_dot_entry(e->d_name) ||
            platform::fixed_path_join(FixedPath::kDevInput, e->d_name, node, sizeof node) < 0 ||
            std::strlen(node) >= path_size) {
            continue;  // a path that does not fit is never cut short
        }
        if (path != nullptr) {
            std::memcpy(path, node, std::strlen(node) + 1);
        }
        fd = open_if_named(node, name, open_flags);
    }
    const int saved = errno;
    ::closedir(dir);
    errno = saved;
    return fd;
}

int find_input_class_path(platform::FixedPath dir, const char* name, char* class_path,
                          std::size_t size, const char* label) noexcept {
    if (class_path == nullptr || size == 0 || name == nullptr) {
        return -1;
    }
    class_path[0] = '\0';
    char dir_path[platform::kPathMax];
    platform::fixed_path(dir, dir_path, sizeof dir_path);
    DIR* d = ::opendir(dir_path);
    if (d == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Directory %s open failed.", dir_path);
        return -1;
    }
    int result = -1;
    char entry_dir[platform::kPathMax];
    char text[kNameFile];
    for (const dirent* e = ::readdir(d); e != nullptr && result < 0; e = ::readdir(d)) {
        if (std::strncmp(e->d_name, "input", 5) != 0 ||
            platform::fixed_path_join(dir, e->d_name, entry_dir, sizeof entry_dir) < 0 ||
            !read_name_file(entry_dir, text, sizeof text) || std::strcmp(text, name) != 0) {
            continue;
        }
        const int n = std::snprintf(class_path, size, "%s/", entry_dir);
        if (n < 0 || static_cast<std::size_t>(n) >= size) {
            class_path[0] = '\0';  // never a cut path
            continue;
        }
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s, classpath is %s, name is %s",
                            label == nullptr ? "get_class_path" : label, class_path, name);
        result = 0;
    }
    ::closedir(d);
    return result;
}

int chomp(char* s, int length) noexcept {
    if (s == nullptr || length < 0) {
        return -1;
    }
    for (int i = length - 1; i >= 0 && (s[i] == '\r' || s[i] == '\n'); --i) {
        s[i] = '\0';
    }
    return 0;
}

}  // namespace imu
