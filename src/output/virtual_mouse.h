#pragma once
// The virtual mouse device "VelmoVirtualMouse": found under /dev/input by
// name, kept open, and written with relative motion, button and wheel
// events. input_mouse_event (include/imu/output.h) is the entry point;
// these are its parts.

#include <cstdint>

#include "platform/paths.h"

namespace imu {

// Linux input codes written to the device.
inline constexpr std::uint16_t kEvSyn = 0;
inline constexpr std::uint16_t kEvKey = 1;
inline constexpr std::uint16_t kEvRel = 2;
inline constexpr std::uint16_t kEvMsc = 4;
inline constexpr std::uint16_t kSynReport = 0;
inline constexpr int kBtnLeft = 0x110;
inline constexpr int kBtnRight = 0x111;
inline constexpr int kRelX = 0;
inline constexpr int kRelY = 1;
inline constexpr int kRelWheel = 8;
inline constexpr int kMscScan = 4;
inline constexpr unsigned kScanLeft = 0x90001;
inline constexpr unsigned kScanRight = 0x90002;
inline constexpr unsigned kScanWheel = 0x90003;

// Key-state bits of input_mouse_event.
inline constexpr int kKeyLeft = 0x01;
inline constexpr int kKeyRight = 0x02;
inline constexpr int kKeyWheel = 0x04;
inline constexpr int kKeyButtonsValid = 0x80;

struct VirtualMouseState {
    int fd = -1;
    const char* name = "VelmoVirtualMouse";
    char device_path[platform::kPathMax] = {};  // node last tried
    char class_path[platform::kPathMax] = {};   // sysfs directory once found, or ""
    bool opened = false;                        // the open was tried
    int left_pressed = 0;
    int right_pressed = 0;
    int wheel_held = 0;
};

// The one virtual mouse of the process.
VirtualMouseState& virtual_mouse_state() noexcept;

// REL_X dx, REL_Y dy, SYN_REPORT; nothing when both are 0. Returns 0.
int mouse_point(int dx, int dy, int unused1, int unused2) noexcept;

// Finds and opens the device (read-write). 0 when open, -1 when not found.
int init_mouse_daemon() noexcept;

// Closes the device. Does not clear the opened flag: input_mouse_event does
// not look for the device again. Returns 0.
int uninit_mouse_daemon() noexcept;

// One event each; 0, or -1 when the write failed (logged).
int report_mouse_sync() noexcept;
int report_mouse_key(int code, unsigned value) noexcept;
int report_mouse_rel(int code, unsigned value) noexcept;
int report_mouse_msc(int code, unsigned value) noexcept;

}  // namespace imu
