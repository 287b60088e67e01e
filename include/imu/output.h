#ifndef IMU_OUTPUT_H
#define IMU_OUTPUT_H

/* System output: the virtual mouse device.
 *
 * The platform provides an input device named "VelmoVirtualMouse" under
 * /dev/input that accepts written input events; the library finds it by
 * name on first use and keeps it open for the life of the process. */

#include "imu/export.h"

IMU_EXTERN_C_BEGIN

/* Moves the system pointer by (dx, dy) and, when key_state has bit 7
 * (0x80) set, presses or releases its buttons: bit 0 left, bit 1 right,
 * bit 2 the wheel key (pressing it scrolls one notch up, releasing it one
 * notch down). Every press is followed by exactly one release across calls.
 * The first call looks for the device, once per process. Writes that fail
 * (no device) are logged; the result is always 0. One thread at a time. */
IMU_EXPORT int input_mouse_event(int dx, int dy, int key_state);

IMU_EXTERN_C_END

#endif /* IMU_OUTPUT_H */
