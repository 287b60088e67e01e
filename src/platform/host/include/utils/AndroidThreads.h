#pragma once
// Host stand-in for the platform's thread creation.

#ifdef __cplusplus
extern "C" {
#endif

typedef int (*android_thread_func_t)(void*);

// Starts a detached thread running fn(arg). Returns nonzero on success, 0
// when the thread could not be created.
int androidCreateThread(android_thread_func_t fn, void* arg);

#ifdef __cplusplus
}
#endif
