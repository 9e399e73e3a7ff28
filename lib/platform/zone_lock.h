// zone_lock.h - one conversion to local time at a time

#ifndef ZELIEML_PLATFORM_ZONE_LOCK_H
#define ZELIEML_PLATFORM_ZONE_LOCK_H

namespace zelieml::platform
{

// Held for the length of a scope, because tzset replaces the C library's zone data. On Linux, what
// opens a converter of charsets holds it too, because no fork must come between.
//
// Any thread. A forked child can take it too, whatever the parent's threads were doing.
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
