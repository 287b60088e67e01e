#pragma once
// The fusion service's air mouse (virtual sensor 19): orientation and
// gyroscope rates become a pointer position on a screen of known size,
// whose whole-pixel movement is reported in the sensor slot and injected
// into the system through the virtual mouse device.

#include <cstdint>

#include "imu/engine.h"

namespace imu {

inline constexpr int kGyroLevelRing = 30;
inline constexpr int kKeyRecentre = 0x08;  // held: no motion; released: re-centre

// Movement along one axis from the previous whole-pixel position prev to
// the new internal position pos on a screen of size pixels: it stops at the
// edges, resumes when the position comes back, and is 0 while both lie
// outside on the same side.
std::int32_t pointer_movement(float pos, std::int32_t prev, std::int32_t size) noexcept;

class velmo_mouse_obj {
public:
    velmo_mouse_obj() noexcept;

    // Back to the initial values (1366 x 768 screen, pointer at its centre).
    void initial() noexcept;
    // The current direction becomes the centre; the pointer goes to the
    // middle of the screen.
    void center() noexcept;
    // Screen size in pixels, truncated. Sizes that are not finite or below
    // 1 pixel are refused (-22, nothing changes); otherwise 0.
    int update_resolution(float width, float height) noexcept;
    // One fusion cycle: euler and gyro_level of out, gyro x and z of imu,
    // the service's key bits and the cycle's interval in microseconds.
    // Null records leave the object as it was.
    void update(const IMU* imu, const SFC_OUT* out, int key_state,
                std::int32_t interval_us) noexcept;
    // out (3 floats) = (dx, dy, key state); then injects the movement
    // (report_mouse_event_to_system). -22 for a null out, nothing injected.
    int getdata(float* out) noexcept;
    // (dx, -dy) to the system pointer, or the re-centre on the release of
    // key bit 3. Returns 0.
    int report_mouse_event_to_system() noexcept;

    float view_angle_rad;
    float pixels_per_rad;
    std::int32_t width;
    std::int32_t height;
    float internal_x;  // pixels; may leave the screen
    float internal_y;
    std::int32_t dx;  // movement of the last cycle
    std::int32_t dy;
    float center_yaw_deg;
    float center_pitch_deg;
    float yaw_deg;
    float pitch_deg;
    float roll_deg;
    float yaw_offset_deg;  // yaw - centre, in [-180, 180]
    float pitch_offset_deg;
    float clamped_yaw_offset_deg;  // limited to +-80
    float clamped_pitch_offset_deg;
    std::int32_t x;  // previous internal position, whole pixels
    std::int32_t y;
    std::int32_t key_state;
    std::int32_t recentre_pending;
    float rate_rps[3];                      // y rate, unused, x rate: roll-compensated gyro
    float gyro_level_ring[kGyroLevelRing];  // oldest first
    float gyro_level_mean;

private:
    void place(double tan_x, double tan_y, float interval_us);
    void reanchor(double tan_x, double tan_y);
    double absolute_x(double tan_x) const;
    double absolute_y(double tan_y) const;
};

}  // namespace imu
