// Host log: formats a line as the phone's logger would and hands it to the
// sink of imu_host_set_log_sink, one line at a time.

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "imu/host.h"

namespace {

// The phone's logger keeps at most this many bytes of a message.
constexpr std::size_t kMaxMessage = 4068;

char priority_letter(int prio) {
    constexpr char kLetters[] = "??VDIWEFS";
    return prio >= 0 && prio <= ANDROID_LOG_SILENT ? kLetters[prio] : '?';
}

void stderr_sink(int prio, const char* tag, const char* text, void* /*ctx*/) {
    const std::size_t n = std::strlen(text);
    const char* newline = n > 0 && text[n - 1] == '\n' ? "" : "\n";
    std::fprintf(stderr, "%c/%s: %s%s", priority_letter(prio), tag, text, newline);
}

struct LogState {
    std::mutex mutex;  // one sink call at a time, and the sink swap
    imu_host_log_fn sink = stderr_sink;
    void* ctx = nullptr;
};
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
LogState g_log;

}  // namespace

extern "C" IMU_EXPORT void imu_host_set_log_sink(imu_host_log_fn fn, void* ctx) {
    const std::lock_guard<std::mutex> lock(g_log.mutex);
    g_log.sink = fn == nullptr ? stderr_sink : fn;
    g_log.ctx = fn == nullptr ? nullptr : ctx;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[kMaxMessage];
    va_list args;
    va_start(args, fmt);
    const int n = fmt == nullptr ? 0 : std::vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    if (n < 0 || fmt == nullptr) {
        text[0] = '\0';
    }
    const std::lock_guard<std::mutex> lock(g_log.mutex);
    g_log.sink(prio, tag == nullptr ? "" : tag, text, g_log.ctx);
    return n < 0 ? 0 : n;
}
