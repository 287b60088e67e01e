// The daemon data service: keeps the latest sensor_event that another
// process sends to "/data/velmo/service", for polling with get_data.

#include "imu/data_service.h"

#include "output/data_service_receiver.h"

namespace {

namespace ds = imu::data_service;
static_assert(sizeof(sensor_event) <= ds::kMaxRecordBytes);

}  // namespace

VelmoBaseEvent::~VelmoBaseEvent() = default;

daemond_data_service::daemond_data_service() : mutex(), socket_path(), latest(), running(false) {
    ds::init_service(ds::parts_of(*this), imu::platform::FixedPath::kServiceSocket);
}

daemond_data_service::~daemond_data_service() { ds::destroy_service(ds::parts_of(*this)); }

int daemond_data_service::update_service_path(char* path) {
    return ds::set_path(ds::parts_of(*this), path);
}

int daemond_data_service::creat_service_folder(char* path) { return ds::create_folder(path); }

int daemond_data_service::start_service() {
    ds::start_receiver(ds::parts_of(*this), &daemond_data_serviceThread, this);
    return 0;
}

int daemond_data_service::stop_service() {
    ds::stop_receiver(ds::parts_of(*this));
    return 0;
}

int daemond_data_service::get_data(sensor_event* out) {
    return ds::copy_latest(ds::parts_of(*this), out);
}

int daemond_data_service::send_clien_data(sensor_event* rec) {
    return ds::send_record(ds::parts_of(*this), rec);
}

int daemond_data_service::daemond_data_serviceThread(void* self) {
    return static_cast<daemond_data_service*>(self)->pollSensors_server();
}

int daemond_data_service::pollSensors_server() {
    return ds::run_receiver(ds::parts_of(*this), nullptr, nullptr);
}
