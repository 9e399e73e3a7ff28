// wait.h - waiting for a descriptor, for a limited time
//
// lib/platform/posix/wait.cpp, the same on both systems. Alone in its object, so that a test can
// replace it and not wait 15 s for a silent peer.

#ifndef ZELIEML_PLATFORM_WAIT_H
#define ZELIEML_PLATFORM_WAIT_H

namespace zelieml::platform
{

// wait_readable - wait until fd is readable, which includes end of file and errors, or max_us
// microseconds have passed. Signals do not end the wait.
void wait_readable(int fd, int max_us);

// wait_writable - wait until fd is writable or its connect has ended, or max_us microseconds have
// passed
//
// Returns true when fd is ready, false when max_us microseconds have passed.
bool wait_writable(int fd, int max_us);

}  // namespace zelieml::platform

#endif
