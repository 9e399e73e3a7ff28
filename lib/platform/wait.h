// wait.h - waiting for a descriptor, for a limited time
//
// lib/platform/posix/wait.cpp, the same on both systems. Alone in its object: a test's fake turns
// the 15 seconds of a silent peer into nothing.

#ifndef ZELIEML_PLATFORM_WAIT_H
#define ZELIEML_PLATFORM_WAIT_H

namespace zelieml::platform
{

// wait_readable - return when fd has something to receive (an end or an error counts), or after
// max_us microseconds, whichever comes first. Signals do not end the wait.
void wait_readable(int fd, int max_us);

// wait_writable - the same for fd taking bytes, or the end of a connect
//
// Returns true when fd is ready, false when max_us microseconds have passed.
bool wait_writable(int fd, int max_us);

}  // namespace zelieml::platform

#endif
