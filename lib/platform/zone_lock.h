// zone_lock.h - one conversion to local time at a time

#ifndef ZELIEML_PLATFORM_ZONE_LOCK_H
#define ZELIEML_PLATFORM_ZONE_LOCK_H

namespace zelieml::platform
{

// Held for the length of a scope: tzset replaces what the C library knows of the zone.
//
// Any thread. A child of fork() gets it as well, whatever the parent's threads did at that moment.
class zone_lock
{
public:
    zone_lock();
    ~zone_lock();
    zone_lock(zone_lock const&)            = delete;
    zone_lock& operator=(zone_lock const&) = delete;
};

}  // namespace zelieml::platform

#endif
