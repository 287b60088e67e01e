#pragma once
// Threads whose owner waits for their end (the platform's thread creation
// makes detached threads, which an object cannot outlive safely).

#include <pthread.h>

namespace imu::platform {

using ThreadEntry = int (*)(void*);

// Starts entry(arg) on a new joinable thread. Returns true and sets
// *thread, or false when no thread could be made.
bool start_joinable_thread(ThreadEntry entry, void* arg, pthread_t* thread) noexcept;

// Waits for the thread to end and returns true. A thread cannot wait for
// itself: called on that thread, it returns false and does nothing.
bool join_thread(pthread_t thread) noexcept;

}  // namespace imu::platform
