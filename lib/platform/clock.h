// clock.h - the wall clock and local time
//
// lib/platform/posix/clock.cpp, the same on both systems. Alone in its object, so that a test can
// replace it by a clock of its own.

#ifndef ZELIEML_PLATFORM_CLOCK_H
#define ZELIEML_PLATFORM_CLOCK_H

#include <ctime>

namespace zelieml::platform
{

// wall_seconds - the current time in seconds since 1970
std::time_t wall_seconds();

// wall_microseconds - the microseconds of the current second, 0 to 999999
int wall_microseconds();

// local_time - a time in the process's time zone
//
// Reads the zone anew, as localtime does, but keeps no result that another thread could overwrite.
std::tm local_time(std::time_t seconds);

}  // namespace zelieml::platform

#endif
