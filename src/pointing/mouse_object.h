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

    float view_angle_rad = 0.0F;
    float pixels_per_rad = 0.0F;
    std::int32_t width = 0;
    std::int32_t height = 0;
    float internal_x = 0.0F;  // pixels; may leave the screen
    float internal_y = 0.0F;
    std::int32_t dx = 0;  // movement of the last cycle
    std::int32_t dy = 0;
    float center_yaw_deg = 0.0F;
    float center_pitch_deg = 0.0F;
    float yaw_deg = 0.0F;
    float pitch_deg = 0.0F;
    float roll_deg = 0.0F;
    float yaw_offset_deg = 0.0F;  // yaw - centre, in [-180, 180]
    float pitch_offset_deg = 0.0F;
    float clamped_yaw_offset_deg = 0.0F;  // limited to +-80
    float clamped_pitch_offset_deg = 0.0F;
    std::int32_t x = 0;  // previous internal position, whole pixels
    std::int32_t y = 0;
    std::int32_t key_state = 0;
    std::int32_t recentre_pending = 0;
    float rate_rps[3] = {};                      // y rate, unused, x rate: roll-compensated gyro
    float gyro_level_ring[kGyroLevelRing] = {};  // oldest first
    float gyro_level_mean = 0.0F;

private:
    void place(double tan_x, double tan_y, float interval_us);
    void reanchor(double tan_x, double tan_y);
    double absolute_x(double tan_x) const;
    double absolute_y(double tan_y) const;
};

}  // namespace imu
