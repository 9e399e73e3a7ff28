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
// A signal that is meant for the host is handled on the host's threads, and no call of ours is
// ever interrupted by one.
//
// thread    receives the handle, to be joined or detached by the caller
// body      runs on the new thread; must throw nothing
// argument  handed to body
//
// Returns 0, or -1 when the system has no thread to give.
int start_thread_without_signals(pthread_t& thread, void* (*body)(void*), void* argument);

}  // namespace zelieml::platform

#endif
