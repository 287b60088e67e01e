// The calibrator data service: hands every calib_sensors_event that another
// process sends to "/data/velmo/calibrator_service" to a registered
// callback, as a VLEvent of type 1.

#include <cerrno>
#include <cstring>

#include "imu/data_service.h"
#include "output/data_service_receiver.h"

namespace {

namespace ds = imu::data_service;
static_assert(sizeof(calib_sensors_event) <= ds::kMaxRecordBytes);

// Runs on the receiver thread after every datagram.
void deliver(void* self, const unsigned char* latest) {
    auto* service = static_cast<calibrator_data_service*>(self);
    const VLEventCallback callback = service->callback.load(std::memory_order_relaxed);
    if (service->callback_set.load(std::memory_order_relaxed) == 0 || callback == nullptr) {
        return;
    }
    VLEvent event{};
    event.type = VLEVENT_CALIBRATION;
    std::memcpy(event.record, latest, sizeof(calib_sensors_event));
    callback(0, VLCONTROLLER_ID_VELMO, event);
}

}  // namespace

calibrator_data_service::calibrator_data_service()
    : callback_set(0), callback(nullptr), mutex(), socket_path(), latest(), running(false) {
    ds::init_service(ds::parts_of(*this), imu::platform::FixedPath::kCalibratorSocket);
}

calibrator_data_service::~calibrator_data_service() { ds::destroy_service(ds::parts_of(*this)); }

int calibrator_data_service::Init(VLEventCallback handler) {
    if (handler == nullptr) {
        return -EINVAL;
    }
    callback.store(handler, std::memory_order_relaxed);
    callback_set.store(1, std::memory_order_relaxed);
    return start_service();
}

int calibrator_data_service::Exit() { return 0; }

int calibrator_data_service::update_service_path(char* path) {
    return ds::set_path(ds::parts_of(*this), path);
}

int calibrator_data_service::creat_service_folder(char* path) { return ds::create_folder(path); }

int calibrator_data_service::start_service() {
    ds::start_receiver(ds::parts_of(*this), &daemond_data_serviceThread, this);
    return 0;
}

int calibrator_data_service::stop_service() {
    ds::stop_receiver(ds::parts_of(*this));
    return 0;
}

int calibrator_data_service::get_data(calib_sensors_event* out) {
    return ds::copy_latest(ds::parts_of(*this), out);
}

int calibrator_data_service::send_clien_data(calib_sensors_event* rec) {
    return ds::send_record(ds::parts_of(*this), rec);
}

int calibrator_data_service::daemond_data_serviceThread(void* self) {
    return static_cast<calibrator_data_service*>(self)->pollSensors_server();
}

int calibrator_data_service::pollSensors_server() {
    return ds::run_receiver(ds::parts_of(*this), &deliver, this);
}
