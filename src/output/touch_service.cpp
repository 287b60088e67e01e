// The virtual touch service: commands received on
// "/data/velmo/touch_service" go to a registered callback as VLEvents of
// type 2 or, with no callback, become multi-touch gestures written into the
// input device "VelmoVirtualTouch".

#include "imu/touch_service.h"

#include <android/log.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

#include "output/data_service_receiver.h"
#include "output/input_device_scan.h"
#include "platform/input_event_writer.h"

namespace {

namespace ds = imu::data_service;
static_assert(sizeof(vl_touch_sensors_event) <= ds::kMaxRecordBytes);
static_assert(sizeof(vl_touch_sensors_event) <= sizeof(VLEvent::record));

constexpr const char* kTag = "VLM_SFC";
constexpr const char* kDeviceName = "VelmoVirtualTouch";

// Linux input types and codes of a type-A multi-touch device.
constexpr std::uint16_t kEvSyn = 0;
constexpr std::uint16_t kEvKey = 1;
constexpr std::uint16_t kEvAbs = 3;
constexpr std::uint16_t kSynReport = 0;
constexpr std::uint16_t kSynMtReport = 2;
constexpr int kBtnTouch = 0x14A;
constexpr int kAbsMtTouchMajor = 0x30;
constexpr int kAbsMtPositionX = 0x35;
constexpr int kAbsMtPositionY = 0x36;
constexpr int kAbsMtTrackingId = 0x39;

// Sizes of the gesture space and of the device.
constexpr float kInputWidth = 1280.0F;
constexpr float kInputHeight = 800.0F;
constexpr float kDeviceWidth = 1500.0F;
constexpr float kDeviceHeight = 1000.0F;

// The built-in commands (key_id 1).
constexpr std::int32_t kGestureGroup = 1;
constexpr std::int32_t kTap = 1;
constexpr std::int32_t kSpread = 2;
constexpr std::int32_t kPinch = 3;
constexpr int kTapX = 500;
constexpr int kTapY = 500;
constexpr int kTapHoldMs = 100;
constexpr int kSpreadCentre = 200;
constexpr int kPinchCentre = 600;
constexpr int kGestureSteps = 200;
constexpr int kStepMs = 2;        // pause after every frame of a gesture
constexpr int kSpreadStart = 10;  // half the fingers' distance before the first step

void sleep_ms(int ms) {
    if (ms > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
}

// A coordinate held within int, for gestures driven beyond it.
int saturate(long long v) {
    return static_cast<int>(
        std::clamp<long long>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// A float truncated towards zero; NaN gives 0 and values beyond int stick
// to its limits.
int truncate_to_int(float v) {
    constexpr float kIntLimit = 2147483520.0F;  // largest float below 2^31
    if (std::isnan(v)) {
        return 0;
    }
    return static_cast<int>(std::clamp(v, -kIntLimit, kIntLimit));
}

//   device = trunc(min(max(v * device_size / input_size, 0), device_size))
// in single precision.
int scale(int v, float input_size, float device_size) {
    float d = static_cast<float>(v) * (device_size / input_size);
    d = std::fmin(std::fmax(d, 0.0F), device_size);
    if (!std::isfinite(d) || d < 0.0F) {
        return 0;  // sizes that give no finite, positive range
    }
    return truncate_to_int(d);
}

// Runs on the receiver thread after every datagram.
void handle_command(void* self, const unsigned char* latest) {
    auto* service = static_cast<touch_service*>(self);
    const VLEventCallback callback = service->callback.load(std::memory_order_relaxed);
    if (service->callback_set.load(std::memory_order_relaxed) != 0 && callback != nullptr) {
        VLEvent event{};
        event.type = VLEVENT_TOUCH;
        std::memcpy(event.record, latest, sizeof(vl_touch_sensors_event));
        callback(0, VLCONTROLLER_ID_VELMO, event);
        return;
    }
    vl_touch_sensors_event command{};
    std::memcpy(&command, latest, sizeof command);
    __android_log_print(ds::kLogError, kTag, "key_id=%d key_type=%d", command.key_id,
                        command.key_type);
    if (command.key_id != kGestureGroup) {
        return;
    }
    switch (command.key_type) {
        case kTap:
            service->touch_point(kTapX, kTapY, kTapHoldMs);
            break;
        case kSpread:
            service->enlarge(kSpreadCentre, kSpreadCentre, kGestureSteps);
            break;
        case kPinch:
            service->narrow(kPinchCentre, kPinchCentre, kGestureSteps);
            break;
        default:
            break;
    }
}

}  // namespace

touch_service::touch_service()
    : callback_set(0),
      callback(nullptr),
      mutex(),
      socket_path(),
      latest(),
      running(false),
      touch(),
      input_width(kInputWidth),
      input_height(kInputHeight),
      device_width(kDeviceWidth),
      device_height(kDeviceHeight) {
    ds::init_service(ds::parts_of(*this), imu::platform::FixedPath::kTouchSocket);
    touch.name = kDeviceName;
    touch.fd = -1;
    open_sensor(&touch);
}

touch_service::~touch_service() { ds::destroy_service(ds::parts_of(*this)); }

int touch_service::Init(VLEventCallback handler) {
    if (handler == nullptr) {
        return -EINVAL;
    }
    callback.store(handler, std::memory_order_relaxed);
    callback_set.store(1, std::memory_order_relaxed);
    return 0;
}

int touch_service::Exit() { return 0; }

int touch_service::update_service_path(char* path) {
    return ds::set_path(ds::parts_of(*this), path);
}

int touch_service::creat_service_folder(char* path) { return ds::create_folder(path); }

int touch_service::start_service() {
    ds::start_receiver(ds::parts_of(*this), &pollSensors_server, this);
    return 0;
}

int touch_service::stop_service() {
    ds::stop_receiver(ds::parts_of(*this));
    return 0;
}

int touch_service::get_data(vl_touch_sensors_event* out) {
    return ds::copy_latest(ds::parts_of(*this), out);
}

int touch_service::send_clien_data(vl_touch_sensors_event* rec) {
    return ds::send_record(ds::parts_of(*this), rec);
}

int touch_service::pollSensors_server(void* self) {
    if (self == nullptr) {
        return -EINVAL;
    }
    auto* service = static_cast<touch_service*>(self);
    return ds::run_receiver(ds::parts_of(*service), &handle_command, service);
}

int touch_service::open_sensor(touch_sensor_fd* dev) {
    if (dev == nullptr) {
        return -1;
    }
    dev->fd = open_input_device(dev->name, O_RDWR, dev->device_path,
                                static_cast<int>(sizeof dev->device_path));
    if (dev->fd < 0) {
        __android_log_print(ds::kLogError, kTag, "Failed to open sensor: %s\n",
                            dev->name == nullptr ? "(null)" : dev->name);
        return -1;
    }
    get_class_path(dev->class_path, dev->name, static_cast<int>(sizeof dev->class_path));
    return 0;
}

int touch_service::open_input_device(const char* name, int flags, char* path, int path_size) {
    const std::size_t size = path_size > 0 ? static_cast<std::size_t>(path_size) : 0;
    return imu::open_input_device(name, flags, size == 0 ? nullptr : path, size);
}

int touch_service::get_class_path(char* class_path, const char* name, int size) {
    if (size <= 0) {
        return -1;
    }
    return imu::find_input_class_path(imu::platform::FixedPath::kSysClassInput, name, class_path,
                                      static_cast<std::size_t>(size), "get_class_path");
}

int touch_service::chomp(char* s, int length) { return imu::chomp(s, length); }

int touch_service::convert_x(int x) const { return scale(x, input_width, device_width); }

int touch_service::convert_y(int y) const { return scale(y, input_height, device_height); }

int touch_service::touch_point(int x, int y, int hold_ms) {
    const int dx = convert_x(x);
    const int dy = convert_y(y);
    for (const int down : {1, 0}) {
        report_abs(kAbsMtTouchMajor, down);
        report_key(kBtnTouch, down);
        report_abs(kAbsMtPositionX, dx);
        report_abs(kAbsMtPositionY, dy);
        report_abs(kAbsMtTrackingId, 0);
        report_mt_sync();
        report_sync();
        if (down == 1) {
            sleep_ms(hold_ms);
        }
    }
    return 0;
}

int touch_service::touch_muti_point(int x1, int y1, int x2, int y2, int down, int delay_ms) {
    const int contacts[2][2] = {{x1, y1}, {x2, y2}};
    for (int id = 0; id < 2; ++id) {
        report_abs(kAbsMtTouchMajor, down);
        report_key(kBtnTouch, down);
        report_abs(kAbsMtPositionX, down != 0 ? convert_x(contacts[id][0]) : 0);
        report_abs(kAbsMtPositionY, down != 0 ? convert_y(contacts[id][1]) : 0);
        report_abs(kAbsMtTrackingId, id);
        report_mt_sync();
    }
    report_sync();
    sleep_ms(delay_ms);
    return 0;
}

// Fingers start at centre -+ steps, the right one no further than the
// input width, and close in by one unit per frame until they reach the
// centre, where they stay:
//   left  = max(m - n, 0)      -> m
//   right = min(m + n, width)  -> m
int touch_service::narrow(int centre_x, int y, int steps) {
    const long long m = centre_x;
    long long left = std::max(m - steps, 0LL);
    long long right = m + steps;
    if (static_cast<float>(right) >= input_width) {
        right = truncate_to_int(input_width);
    }
    for (int i = 0; i < steps; ++i) {
        if (left != m) {
            ++left;
        }
        if (right != m) {
            --right;
        }
        touch_muti_point(saturate(left), y, saturate(right), y, 1, kStepMs);
    }
    touch_muti_point(0, 0, 0, 0, 0, kStepMs);
    return 0;
}

// Fingers start at centre -+ 10 and move apart by one unit per frame, the
// first frame already at -+ 11; a finger beyond the input space sticks to
// the device's edge.
int touch_service::enlarge(int centre_x, int y, int steps) {
    long long left = static_cast<long long>(centre_x) - kSpreadStart;
    long long right = static_cast<long long>(centre_x) + kSpreadStart;
    for (int i = 0; i < steps; ++i) {
        --left;
        ++right;
        touch_muti_point(saturate(left), y, saturate(right), y, 1, kStepMs);
    }
    touch_muti_point(0, 0, 0, 0, 0, kStepMs);
    return 0;
}

namespace {

// strerror_r comes as the XSI (int) or the GNU (char*) flavour; both give a
// text without the shared buffer of strerror, as gestures write on the
// receiver thread.
[[maybe_unused]] const char* error_text(int result, const char* buf) {
    return result == 0 ? buf : "Unknown error";
}
[[maybe_unused]] const char* error_text(const char* result, const char* /*buf*/) { return result; }

int write_event(int fd, std::uint16_t type, std::uint16_t code, int value) {
    if (imu::platform::write_input_event(fd, type, code, value) < 0) {
        const int err = errno;
        char buf[128];
        __android_log_print(ds::kLogError, kTag, "write error: %d %s\n", fd,
                            error_text(strerror_r(err, buf, sizeof buf), buf));
        return -1;
    }
    return 0;
}

}  // namespace

int touch_service::report_sync() { return write_event(touch.fd, kEvSyn, kSynReport, 0); }

int touch_service::report_mt_sync() { return write_event(touch.fd, kEvSyn, kSynMtReport, 0); }

int touch_service::report_key(int code, int value) {
    return write_event(touch.fd, kEvKey, static_cast<std::uint16_t>(code), value);
}

int touch_service::report_abs(int code, int value) {
    return write_event(touch.fd, kEvAbs, static_cast<std::uint16_t>(code), value);
}
