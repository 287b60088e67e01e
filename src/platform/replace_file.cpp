#include "platform/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace imu::platform {
namespace {

constexpr char kTempSuffix[] = ".XXXXXX";

// Writes all len bytes, retrying partial writes and interruptions.
bool write_all(int fd, const char* data, std::size_t len) {
    while (len > 0) {
        const ssize_t n = ::write(fd, data, len);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

// Copies what remains of from into to.
bool copy_rest(int from, int to) {
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(from, buf, sizeof buf);
        if (n == 0) {
            return true;
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (!write_all(to, buf, static_cast<std::size_t>(n))) {
            return false;
        }
    }
}

// Closes fd keeping errno as it was.
void close_quietly(int fd) {
    const int err = errno;
    ::close(fd);
    errno = err;
}

}  // namespace

int write_file_atomically(FixedPath p, const char* text, std::size_t len,
                          WriteMode mode) noexcept {
    char path[kPathMax];
    char temp[kPathMax];
    const int n = fixed_path(p, path, sizeof path);
    if (n < 0 || static_cast<std::size_t>(n) + sizeof kTempSuffix > sizeof temp) {
        errno = ENAMETOOLONG;
        return -1;
    }
    if (text == nullptr && len > 0) {
        errno = EINVAL;
        return -1;
    }
    // Opening the file itself fails exactly where fopen would, and creates
    // it with fopen's permissions when it is missing.
    const int old = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (old < 0) {
        return -1;
    }
    struct stat st {};
    if (::fstat(old, &st) != 0) {
        close_quietly(old);
        return -1;
    }
    std::memcpy(temp, path, static_cast<std::size_t>(n));
    std::memcpy(temp + n, kTempSuffix, sizeof kTempSuffix);
    const int fd = ::mkostemp(temp, O_CLOEXEC);
    if (fd < 0) {
        close_quietly(old);
        return -1;
    }
    bool ok = mode != WriteMode::kAppend || copy_rest(old, fd);
    ok = ok && write_all(fd, text, len);
    if (ok && (st.st_uid != ::geteuid() || st.st_gid != ::getegid())) {
        (void)::fchown(fd, st.st_uid, st.st_gid);  // only a privileged process may
    }
    ok = ok && ::fchmod(fd, st.st_mode & 07777) == 0;
    if (ok) {
        ok = ::close(fd) == 0;
    } else {
        close_quietly(fd);
    }
    ok = ok && ::rename(temp, path) == 0;
    if (!ok) {
        const int err = errno;
        ::unlink(temp);
        errno = err;
    }
    close_quietly(old);
    return ok ? 0 : -1;
}

}  // namespace imu::platform
