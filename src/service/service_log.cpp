// The console log, the save log and the screen resolution file.

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/paths.h"
#include "platform/replace_file.h"
#include "platform/service_os.h"
#include "service/service_internal.h"
#include "service/velmofusion.h"

namespace imu {
namespace {

using platform::FixedPath;

constexpr std::size_t kErrorTextSize = 128;

// Bit of log_type that prints the status lines.
constexpr std::uint32_t kLogStatus = 1U << 27;

// The order of the slot lines in the console log.
constexpr int kShowOrder[] = {6,  7,  0,  8,  9,  4,  3,  1,  2,  10, 11, 12, 13,
                              14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};

// Permissions of the files other applications write, as text read in base 8.
constexpr const char* kOpenMode = "0777";

struct ErrorText {
    char buf[kErrorTextSize];
    const char* text;
    explicit ErrorText(int err) : buf{}, text(platform::error_text(err, buf, sizeof buf)) {}
};

double d(float v) { return static_cast<double>(v); }

}  // namespace

int velmofusion::show_log() {
    if ((log_type & kLogStatus) != 0) {
        __android_log_print(kLogError, kTag, "fusiond_mode=\t\t%d\n",
                            static_cast<int>(fusiond_mode.load(std::memory_order_relaxed)));
        __android_log_print(kLogError, kTag, "mEnabled =\t\t%d\n",
                            static_cast<int>(mEnabled.load(std::memory_order_relaxed)));
        __android_log_print(kLogError, kTag, "time_diff_us =\t\t%d\n",
                            static_cast<int>(time_diff_us));
        __android_log_print(kLogError, kTag, "acc_data_ready =\t\t%d\n",
                            static_cast<int>(acc_data_ready.load(std::memory_order_relaxed)));
        __android_log_print(kLogError, kTag, "mag_data_ready =\t\t%d\n",
                            static_cast<int>(mag_data_ready.load(std::memory_order_relaxed)));
    }
    for (const int i : kShowOrder) {
        if ((log_type & index_bit(i)) == 0) {
            continue;
        }
        const Sensor_fusion_data_struct& s = fusion_data[i];
        __android_log_print(kLogError, kTag,
                            "raw_data=%-5.5f,%-5.5f,%-5.5f\t report_data%-5.5f,%-5.5f,%-5.5f %s\n",
                            d(s.raw[0]), d(s.raw[1]), d(s.raw[2]), d(s.report[0]), d(s.report[1]),
                            d(s.report[2]), slot_name(i));
    }
    return 0;
}

int velmofusion::check_log_type() {
    if (platform::access_fixed(FixedPath::kShowLogSwitch, R_OK) != 0) {
        return 0;
    }
    std::FILE* f = platform::fopen_fixed(FixedPath::kShowLogSwitch, "r");
    if (f == nullptr) {
        const ErrorText e(errno);
        __android_log_print(kLogError, kTag, "open File failed: %s\n", e.text);
        return 0;
    }
    int index = 9999;
    int value = 0;
    errno = 0;  // the error line names the scan's own failure, if any
    const int scanned = std::fscanf(f, "%d %d\n", &index, &value);
    (void)std::fclose(f);
    if (scanned < 1) {
        const ErrorText e(errno);
        __android_log_print(kLogError, kTag, "%s\n", e.text);
        return 0;
    }
    const std::uint32_t bit = index_bit(index);
    const std::uint32_t set = bit != 0 ? static_cast<std::uint32_t>(value) << index : 0U;
    log_type = (log_type & ~bit) | set;
    return 1;
}

void velmofusion::close_save_log() {
    if (log_file_open != 0) {
        (void)std::fflush(log_file);
        (void)std::fclose(log_file);
        log_file = nullptr;
        log_file_open = 0;
    }
}

int velmofusion::save_log() {
    if ((log_switch & kSaveLogOn) == 0) {
        close_save_log();
        return 0;
    }
    const bool enabled = mEnabled.load(std::memory_order_relaxed) != 0;
    if (enabled && log_file_open == 0) {
        const auto len = static_cast<std::size_t>(log_path_len);
        (void)std::snprintf(log_path + len, sizeof log_path - len, "%s", log_name);
        if (platform::access_path(log_path, R_OK | W_OK) != 0) {
            log_file = std::fopen(log_path, "w+");
            if (log_file == nullptr) {
                const ErrorText e(errno);
                __android_log_print(kLogError, kTag, "Unable to open %s (%s)", log_path, e.text);
                return -1;
            }
            std::rewind(log_file);
            (void)std::fputs("velmo log start\n", log_file);
        } else {
            log_file = std::fopen(log_path, "w+");
            if (log_file == nullptr) {
                const int err = errno;
                const ErrorText e(err);
                __android_log_print(kLogError, kTag, "open file '%s' failed: %s\n", log_path,
                                    e.text);
                return -err;
            }
        }
        log_file_open = 1;
        change_File_mode(log_path);
    }
    if (log_file_open != 0) {
        (void)std::fprintf(log_file, "%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\t%f\n",
                           d(static_cast<float>(time_diff_ns)) / 1000000.0, d(imu.acc[0]),
                           d(imu.acc[1]), d(imu.acc[2]), d(imu.gyro[0]), d(imu.gyro[1]),
                           d(imu.gyro[2]), d(imu.mag[0]), d(imu.mag[1]), d(imu.mag[2]));
    }
    if (!enabled) {
        close_save_log();
    }
    return 0;
}

int velmofusion::set_now_time(int year, int month, int day, int hour, int minute, int second) {
    (void)std::snprintf(log_name, sizeof log_name, "%d_%d_%d_%d_%d_%d", year, month, day, hour,
                        minute, second);
    return 0;
}

int velmofusion::load_screen_resolution() {
    if (platform::access_fixed(FixedPath::kScreenResolution, R_OK | W_OK) != 0) {
        char line[64];  // two ints
        const int len = std::snprintf(line, sizeof line, "screen_resolution:%d\t%d\n",
                                      static_cast<int>(screen_width),
                                      static_cast<int>(screen_height));
        if (platform::write_file_atomically(FixedPath::kScreenResolution, line,
                                            static_cast<std::size_t>(len)) != 0) {
            const ErrorText e(errno);
            char path[platform::kPathMax];
            platform::fixed_path(FixedPath::kScreenResolution, path, sizeof path);
            __android_log_print(kLogError, kTag, "Unable to open %s (%s)", path, e.text);
            return -1;
        }
    }
    std::FILE* f = platform::fopen_fixed(FixedPath::kScreenResolution, "r");
    if (f == nullptr) {
        const ErrorText e(errno);
        __android_log_print(kLogError, kTag, "open File failed: %s\n", e.text);
        return 0;
    }
    std::rewind(f);
    int width = screen_width;
    int height = screen_height;
    errno = 0;
    const int scanned = std::fscanf(f, "screen_resolution:%d\t%d\n", &width, &height);
    (void)std::fclose(f);
    screen_width = width;
    screen_height = height;
    if (scanned < 1) {
        const ErrorText e(errno);
        __android_log_print(kLogError, kTag, "%s\n", e.text);
        return scanned;
    }
    __android_log_print(kLogError, kTag, "screen_resolution:%d\t%d\n", width, height);
    return 0;
}

int velmofusion::change_File_mode(const char* path) {
    const auto mode = static_cast<unsigned>(std::strtol(kOpenMode, nullptr, 8) & 0xFFFF);
    return platform::chmod_path(path, mode) != 0 ? -1 : 0;
}

}  // namespace imu
