#pragma once
// The fusion service object: the enable masks of the 27 virtual sensors, the
// sample and output records handed to the engine, the virtual sensor table,
// the sensor poll thread and the diagnostic logs.
//
// Threads: the control path, raw input and the fusion cycle run on the
// callers' threads; the poll thread is the object's own. What both sides
// touch is atomic (relaxed: each value is one word and nothing is ordered by
// it) or guarded by data_mutex (the slots the poll thread writes).

#include <android/sensor.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>

#include "imu/engine.h"

namespace imu {

class velmo_mouse_obj;
class zoom_angle_obj;

// One slot of the table: what it was computed from, and what the caller reads.
struct Sensor_fusion_data_struct {
    float raw[3];
    float report[3];
};

// Virtual sensor indices: the index of control_fusiond, the bit of mEnabled
// and the slot of fusion_data.
enum VirtualSensor : int {
    kGyro = 0,
    kLinearAcceleration = 1,
    kGravity = 2,
    kRotationVector = 3,
    kOrientation = 4,
    kCalibrationStatus = 5,
    kAcceleration = 6,
    kMagnetic = 7,
    kLight = 8,
    kProximity = 9,
    kSnap = 10,
    kShake = 11,
    kTap = 12,
    kTurnOver = 13,
    kRolling = 14,
    kDoubleFlip = 15,
    kRaiseUp = 16,
    kPutDown = 17,
    kRotate = 18,
    kAirMouse = 19,
    kCorrectedGyro = 20,
    kTapDesk = 21,
    kTapPocket = 22,
    kMotionDetection = 23,
    kPedometer = 24,
    kZoomInOut = 25,
    kHandHeld = 26,
};
inline constexpr int kSlotCount = 27;

// The name the console log prints for a slot ("" for the calibration slot).
const char* slot_name(int index) noexcept;

// Input types of input_raw_data besides the slot indices 0, 6 and 7.
inline constexpr int kInputButton = 999;

// Bits of sensors_active: the platform sensors the poll thread has enabled.
inline constexpr std::uint32_t kActiveGyro = 1U << 0;
inline constexpr std::uint32_t kActiveAcc = 1U << 6;
inline constexpr std::uint32_t kActiveMag = 1U << 7;
inline constexpr std::uint32_t kActiveLight = 1U << 8;
inline constexpr std::uint32_t kActiveProximity = 1U << 9;

// Bits of log_switch.
inline constexpr std::uint32_t kConsoleLogOn = 1U << 0;
inline constexpr std::uint32_t kSaveLogOn = 1U << 1;

inline constexpr std::size_t kLogPathSize = 4096;
inline constexpr std::size_t kLogNameSize = 256;

class velmofusion {
public:
    velmofusion();
    // Requests the poll thread to end and waits until it has (see
    // pollSensors); the mouse and zoom objects go with the object.
    ~velmofusion();
    velmofusion(const velmofusion&) = delete;
    velmofusion& operator=(const velmofusion&) = delete;

    // --- object and control (velmofusion.cpp)
    int initial();
    int control_velmofusion(int index, int enable);
    int velmofusion_status() const;
    int set_fusiond_mode(int mode);
    int start_velmofusion();
    void stop_velmofusion();
    int re_init_fusion();

    // --- raw input and timing (raw_input.cpp)
    int input_raw_data(int type, const float* data, long long timestamp);
    int calculate_time_diff(long long timestamp, int kind);
    int calculate();
    int calculate_box();
    static std::int64_t getTimestamp();

    // --- virtual sensor table (sensor_table.cpp)
    int get_Fusion_data(int index, float* out);
    int calculate_fusion();
    int calculate_gesture();
    static int adjust_accuracy(Sensor_fusion_data_struct* slot, float step);

    // --- logs and service files (service_log.cpp)
    int show_log();
    int check_log_type();
    int save_log();
    int set_now_time(int year, int month, int day, int hour, int minute, int second);
    int load_screen_resolution();
    static int change_File_mode(const char* path);

    // --- poll thread (poll_thread.cpp)
    static int sensorsPollThread(void* object);
    int pollSensors();
    int sensors_enable_initial(int index, int enable);

    // Fields, in the service's order. Those shared with the poll thread are
    // atomic; the rest belong to the thread that drives the cycle.
    std::int32_t screen_width = 1280;
    std::int32_t screen_height = 720;
    std::atomic<std::int32_t> fusiond_mode{0};
    std::int32_t time_diff_us = 0;
    std::int32_t time_diff_ns = 0;
    std::atomic<bool> poll_thread_started{false};
    std::mutex data_mutex;  // slots 6 to 9, which the poll thread writes
    std::int64_t last_timestamp = 0;
    IMU imu{};
    SFC_OUT sfc_out{};
    std::int32_t sfc_out_time_diff_us = 0;  // the cycle interval, behind sfc_out
    Sensor_fusion_data_struct fusion_data[kSlotCount]{};
    std::atomic<std::uint32_t> mEnabled{0};
    std::atomic<std::uint32_t> sensors_active{0};
    std::atomic<std::uint32_t> acc_enabled{0};
    std::atomic<std::uint32_t> mag_enabled{0};
    std::atomic<std::uint32_t> gyro_enabled{0};
    std::atomic<std::uint32_t> light_enabled{0};
    std::atomic<std::uint32_t> proximity_enabled{0};
    std::uint32_t log_type = 0;
    std::uint32_t log_switch = 0;
    std::atomic<std::int32_t> kill_flag{0};
    std::atomic<std::int32_t> acc_data_ready{0};
    std::atomic<std::int32_t> mag_data_ready{0};
    std::int32_t log_file_open = 0;
    std::FILE* log_file = nullptr;
    char log_path[kLogPathSize] = {};
    char log_name[kLogNameSize] = {};
    std::int32_t log_path_len = 0;
    ASensorEvent event{};
    ASensorManager* sensor_manager = nullptr;
    ALooper* looper = nullptr;
    ASensorEventQueue* event_queue = nullptr;
    std::int64_t event_rate_ns = 0;
    std::unique_ptr<zoom_angle_obj> zoom_angle;  // null only if it could not be allocated
    std::unique_ptr<velmo_mouse_obj> mouse;
    std::int32_t app_calibration = 0;
    std::int32_t button_state = 0;
    std::int32_t startup_log_count = 0;

private:
    // Mask update of the control path for one index.
    void update_masks(int index, int enable);
    // Closes the save log if it is open.
    void close_save_log();
    // The poll thread's enable/disable pass over the five platform sensors.
    void reconcile(ASensor const* const* sensors);
    void route_event();

    // True from the creation of the poll thread until its last access to
    // the object; the destructor waits for it to fall (acquire/release, so
    // everything the thread wrote is visible before the object goes).
    std::atomic<bool> poll_thread_alive_{false};
};

// The process's service object, created on first use. Two threads racing on
// the first call get the same object. Null only if it could not be
// allocated.
velmofusion* service() noexcept;

// Destroys the service object (tests only: the library never does). The next
// service() creates a new one.
void destroy_service() noexcept;

}  // namespace imu
