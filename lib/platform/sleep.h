// sleep.h - waiting for time to pass
//
// lib/platform/posix/sleep.cpp, the same on both systems. Alone in its object: a test's fake turns
// minutes into nothing.

#ifndef ZELIEML_PLATFORM_SLEEP_H
#define ZELIEML_PLATFORM_SLEEP_H

#include <cstdint>

namespace zelieml::platform
{

// sleep_microseconds - return when this much time has passed, signals notwithstanding
//
// us  microseconds; none or a negative number returns at once
void sleep_microseconds(std::int64_t us);

}  // namespace zelieml::platform

#endif
