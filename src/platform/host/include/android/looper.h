#pragma once
// Host stand-in for the NDK's <android/looper.h>: one looper per thread,
// polling only the simulated sensor event queues attached to it.

#ifdef __cplusplus
extern "C" {
#endif

struct ALooper;
typedef struct ALooper ALooper;

typedef int (*ALooper_callbackFunc)(int fd, int events, void* data);

enum {
    ALOOPER_PREPARE_ALLOW_NON_CALLBACKS = 1 << 0,
};

enum {
    ALOOPER_POLL_WAKE = -1,
    ALOOPER_POLL_CALLBACK = -2,
    ALOOPER_POLL_TIMEOUT = -3,
    ALOOPER_POLL_ERROR = -4,
};

// The calling thread's looper, created on the first call.
ALooper* ALooper_prepare(int opts);

// Returns the identifier of an event queue of this thread's looper that has
// events pending; otherwise waits up to timeoutMillis (0: not at all,
// negative: for ever) and returns ALOOPER_POLL_TIMEOUT when none arrived.
// Without a looper on this thread returns ALOOPER_POLL_ERROR.
int ALooper_pollAll(int timeoutMillis, int* outFd, int* outEvents, void** outData);

#ifdef __cplusplus
}
#endif
