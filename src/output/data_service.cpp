// The daemon data service: keeps the latest sensor_event that another
// process sends to "/data/velmo/service", for polling with get_data.

#include "imu/data_service.h"

#include "output/data_service_receiver.h"

namespace {

namespace ds = imu::data_service;
static_assert(sizeof(sensor_event) <= ds::kMaxRecordBytes);

ds::ServiceParts parts(daemond_data_service& s) {
    return {&s.mutex,        s.socket_path, sizeof s.socket_path, s.latest.bytes,
            sizeof s.latest, &s.running,    &s.receiver};
}

}  // namespace

VelmoBaseEvent::~VelmoBaseEvent() = default;

daemond_data_service::daemond_data_service() : mutex(), socket_path(), latest(), running(false) {
    ds::init_service(parts(*this), imu::platform::FixedPath::kServiceSocket);
}

daemond_data_service::~daemond_data_service() { ds::destroy_service(parts(*this)); }

int daemond_data_service::update_service_path(char* path) {
    return ds::set_path(parts(*this), path);
}

int daemond_data_service::creat_service_folder(char* path) { return ds::create_folder(path); }

int daemond_data_service::start_service() {
    ds::start_receiver(parts(*this), &daemond_data_serviceThread, this);
    return 0;
}

int daemond_data_service::stop_service() {
    ds::stop_receiver(parts(*this));
    return 0;
}

int daemond_data_service::get_data(sensor_event* out) { return ds::copy_latest(parts(*this), out); }

int daemond_data_service::send_clien_data(sensor_event* rec) {
    return ds::send_record(parts(*this), rec);
}

int daemond_data_service::daemond_data_serviceThread(void* self) {
    return static_cast<daemond_data_service*>(self)->pollSensors_server();
}

int daemond_data_service::pollSensors_server() {
    return ds::run_receiver(parts(*this), nullptr, nullptr);
}
