// zone.h - the offset of local time
//
// lib/platform/macos/zone.cpp: the default time zone.
// lib/platform/linux/zone.cpp: tm_gmtoff.
//
// Alone in its object, so that a test can choose any zone.

#ifndef ZELIEML_PLATFORM_ZONE_H
#define ZELIEML_PLATFORM_ZONE_H

namespace zelieml::platform
{

// zone_offset_seconds - how far local time is ahead of GMT now, in seconds; negative in the west
double zone_offset_seconds();

}  // namespace zelieml::platform

#endif
