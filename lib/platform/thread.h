// thread.h - threads of the library's own
//
// lib/platform/posix/thread.cpp, the same on both systems.

#ifndef ZELIEML_PLATFORM_THREAD_H
#define ZELIEML_PLATFORM_THREAD_H

#include <pthread.h>

namespace zelieml::platform
{

// start_thread_without_signals - start a thread in which every signal is blocked
//
// So signals are handled on the threads of the host, and no call of the library's is interrupted by
// one.
//
// thread    receives the handle; the caller joins or detaches the thread
// body      runs on the new thread; must not throw
// argument  passed to body
//
// Returns 0, or -1 when no thread could be started.
int start_thread_without_signals(pthread_t& thread, void* (*body)(void*), void* argument);

}  // namespace zelieml::platform

#endif
