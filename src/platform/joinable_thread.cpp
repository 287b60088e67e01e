#include "platform/joinable_thread.h"

#include <new>

namespace imu::platform {
namespace {

struct Start {
    ThreadEntry entry;
    void* arg;
};

void* run(void* p) {
    const Start start = *static_cast<Start*>(p);
    delete static_cast<Start*>(p);
    start.entry(start.arg);
    return nullptr;
}

}  // namespace

bool start_joinable_thread(ThreadEntry entry, void* arg, pthread_t* thread) noexcept {
    if (entry == nullptr || thread == nullptr) {
        return false;
    }
    auto* start = new (std::nothrow) Start{entry, arg};
    if (start == nullptr) {
        return false;
    }
    if (pthread_create(thread, nullptr, run, start) != 0) {
        delete start;
        return false;
    }
    return true;
}

bool join_thread(pthread_t thread) noexcept {
    if (pthread_equal(thread, pthread_self()) != 0) {
        return false;
    }
    return pthread_join(thread, nullptr) == 0;
}

}  // namespace imu::platform
