// sleep.h - waiting for time to pass
//
// lib/platform/posix/sleep.cpp, the same on both systems. Alone in its object, so that a test can
// replace it and not wait for minutes.

#ifndef ZELIEML_PLATFORM_SLEEP_H
#define ZELIEML_PLATFORM_SLEEP_H

#include <cstdint>

namespace zelieml::platform
{

// sleep_microseconds - wait for this time; signals do not cut it short
//
// us  microseconds; 0 or a negative number returns at once
void sleep_microseconds(std::int64_t us);

}  // namespace zelieml::platform

#endif
