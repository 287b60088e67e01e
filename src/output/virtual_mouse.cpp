// The virtual mouse device: one node under /dev/input named
// "VelmoVirtualMouse", opened on the first input_mouse_event and written
// with one struct input_event per write.

#include "output/virtual_mouse.h"

#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "imu/output.h"
#include "output/input_device_scan.h"
#include "platform/input_event_writer.h"

namespace imu {
namespace {

constexpr const char* kTag = "VLM_SFC";

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
VirtualMouseState g_mouse;

int report(std::uint16_t type, int code, unsigned value, const char* what) {
    const long n = platform::write_input_event(g_mouse.fd, type, static_cast<std::uint16_t>(code),
                                               static_cast<std::int32_t>(value));
    if (n < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "write %s error: %d %s\n", what, g_mouse.fd,
                            std::strerror(errno));
        return -1;
    }
    return 0;
}

// One button of the state machine:
//   up   --bit set-->   MSC scan, KEY 1, SYN_REPORT            --> down
//   down --bit clear--> MSC scan, KEY 0, SYN_REPORT, SYN_REPORT --> up
void button(bool bit, int& pressed, unsigned scan, int code) {
    if (bit && pressed == 0) {
        report_mouse_msc(kMscScan, scan);
        report_mouse_key(code, 1);
        pressed = 1;
        report_mouse_sync();
    } else if (!bit && pressed == 1) {
        report_mouse_msc(kMscScan, scan);
        report_mouse_key(code, 0);
        report_mouse_sync();
        pressed = 0;
        report_mouse_sync();
    }
}

// The wheel key scrolls one notch up when pressed and one down when
// released. Returns false when nothing changed: the call then ends without
// its final SYN_REPORT.
bool wheel(bool bit) {
    if (bit == (g_mouse.wheel_held == 1)) {
        return false;
    }
    report_mouse_msc(kMscScan, kScanWheel);
    if (bit) {
        report_mouse_rel(kRelWheel, 1U);
        g_mouse.wheel_held = 1;
    } else {
        report_mouse_rel(kRelWheel, static_cast<unsigned>(-1));
        report_mouse_sync();
        g_mouse.wheel_held = 0;
    }
    return true;
}

}  // namespace

VirtualMouseState& virtual_mouse_state() noexcept { return g_mouse; }

int report_mouse_sync() noexcept { return report(kEvSyn, kSynReport, 0U, "report_mouse_sync"); }

int report_mouse_key(int code, unsigned value) noexcept {
    return report(kEvKey, code, value, "report_mouse_key");
}

int report_mouse_rel(int code, unsigned value) noexcept {
    return report(kEvRel, code, value, "report_mouse_rel");
}

int report_mouse_msc(int code, unsigned value) noexcept {
    return report(kEvMsc, code, value, "report_mouse_msc");
}

int mouse_point(int dx, int dy, int /*unused1*/, int /*unused2*/) noexcept {
    if (dx == 0 && dy == 0) {
        return 0;
    }
    report_mouse_rel(kRelX, static_cast<unsigned>(dx));
    report_mouse_rel(kRelY, static_cast<unsigned>(dy));
    report_mouse_sync();
    return 0;
}

int init_mouse_daemon() noexcept {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Enter init_mouse_daemon\n");
    if (g_mouse.fd >= 0) {
        ::close(g_mouse.fd);  // a second call does not leak the first node
    }
    g_mouse.fd = -1;
    bool dir_opened = false;
    const int fd = open_input_device(g_mouse.name, O_RDWR | O_CLOEXEC, g_mouse.device_path,
                                     sizeof g_mouse.device_path, &dir_opened);
    if (dir_opened) {
        // Written whether or not the device was found.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "open mouse device %s: %s\n",
                            g_mouse.device_path, std::strerror(errno));
    }
    g_mouse.fd = fd;
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to open mouse: %s\n", g_mouse.name);
        return -1;
    }
    // The sysfs directory is only logged; its absence is not an error.
    find_input_class_path(platform::FixedPath::kSysClassInputSlash, g_mouse.name,
                          g_mouse.class_path, sizeof g_mouse.class_path, "get_mouse_class_path");
    return 0;
}

int uninit_mouse_daemon() noexcept {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Enter uninit_mouse_daemon.\n");
    if (g_mouse.fd >= 0) {
        ::close(g_mouse.fd);
    }
    g_mouse.fd = -1;
    return 0;
}

}  // namespace imu

using imu::g_mouse;

extern "C" IMU_EXPORT int input_mouse_event(int dx, int dy, int key_state) {
    if (!g_mouse.opened) {
        imu::init_mouse_daemon();  // tried once per process, found or not
        g_mouse.opened = true;
    }
    imu::mouse_point(dx, dy, 0, 0);
    if ((key_state & imu::kKeyButtonsValid) == 0) {
        return 0;
    }
    imu::button((key_state & imu::kKeyLeft) != 0, g_mouse.left_pressed, imu::kScanLeft,
                imu::kBtnLeft);
    imu::button((key_state & imu::kKeyRight) != 0, g_mouse.right_pressed, imu::kScanRight,
                imu::kBtnRight);
    if (!imu::wheel((key_state & imu::kKeyWheel) != 0)) {
        return 0;
    }
    imu::report_mouse_sync();
    return 0;
}
