// Host thread creation over POSIX threads.

#include <pthread.h>
#include <utils/AndroidThreads.h>

#include <new>

namespace {

struct Start {
    android_thread_func_t fn;
    void* arg;
};

void* trampoline(void* p) {
    Start start = *static_cast<Start*>(p);
    delete static_cast<Start*>(p);
    start.fn(start.arg);
    return nullptr;
}

}  // namespace

extern "C" int androidCreateThread(android_thread_func_t fn, void* arg) {
    if (fn == nullptr) {
        return 0;
    }
    auto* start = new (std::nothrow) Start{fn, arg};
    if (start == nullptr) {
        return 0;
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int err = pthread_create(&thread, &attr, trampoline, start);
    pthread_attr_destroy(&attr);
    if (err != 0) {
        delete start;
        return 0;
    }
    return 1;
}
