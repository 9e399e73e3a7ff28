// zone.h - the offset of local time
//
// lib/platform/macos/zone.cpp: the default time zone.
// lib/platform/linux/zone.cpp: tm_gmtoff.
//
// Alone in its object, so that a test can choose any zone.

#ifndef ZELIEML_PLATFORM_ZONE_H
#define ZELIEML_PLATFORM_ZONE_H

#include <ctime>

namespace zelieml::platform
{

// zone_offset_seconds - how far local time is ahead of GMT now, in seconds; negative in the west
//
// now  the current time as local_time gives it: where it knows its zone, that is not read again
//
// 0 when that cannot be found out, as in a forked child on macOS, see macos/first_process.h.
double zone_offset_seconds(std::tm const& now);

}  // namespace zelieml::platform

#endif
