#pragma once
// Finding an input device by name: the scan of /dev/input shared by the
// virtual mouse and the virtual touch service, and the lookup of a device's
// sysfs directory under /sys/class/input.

#include <cstddef>

#include "platform/paths.h"

namespace imu {

// Opens every entry of /dev/input (except "." and "..") with open_flags
// and asks its device name (EVIOCGNAME, 254 bytes); the first whose name
// equals name is kept open and its descriptor returned. Other nodes are
// closed again. Returns -1 when no node matches or /dev/input cannot be
// read.
//
// path receives "/dev/input/<entry>" (under the host root) of the node last
// tried, at most path_size bytes; it is left as it was when no entry was
// tried, and an entry whose path does not fit is skipped. dir_opened, when
// given, tells whether /dev/input could be read.
//
// Log lines (tag "VLM_SFC"): "Directory %s open failed." (error),
// "Cannot open device %s: %s\n" (error, per node), "Opened device [%s],
// path is %s, fd is %d\n" (debug, on the match).
int open_input_device(const char* name, int open_flags, char* path, std::size_t path_size,
                      bool* dir_opened = nullptr) noexcept;

// Looks for the sysfs directory of the device called name: among the
// entries of dir whose names begin with "input", the first whose "name"
// file reads name (trailing newline and carriage return removed). On a
// match writes "<dir>/<entry>/" into class_path, logs "<label>, classpath
// is %s, name is %s" and returns 0; otherwise class_path becomes "" and
// the result is -1. dir is FixedPath::kSysClassInput or, for the mouse's
// path with its double slash, FixedPath::kSysClassInputSlash.
int find_input_class_path(platform::FixedPath dir, const char* name, char* class_path,
                          std::size_t size, const char* label) noexcept;

// Replaces the trailing carriage returns and newlines of s[0, length) by
// terminators. Returns 0, or -1 for a null s or a negative length.
int chomp(char* s, int length) noexcept;

}  // namespace imu
