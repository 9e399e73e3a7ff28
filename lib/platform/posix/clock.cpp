// clock.cpp - the wall clock of POSIX systems

#include "platform/clock.h"

#include <mutex>
#include <sys/time.h>

namespace zelieml::platform
{

std::time_t wall_seconds()
{
    return std::time(nullptr);
}

int wall_microseconds()
{
    timeval now = {};
    ::gettimeofday(&now, nullptr);
    return static_cast<int>(now.tv_usec);
}

std::tm local_time(std::time_t seconds)
{
    // One at a time: tzset replaces what the C library knows of the zone.
    static std::mutex                 guard;
    std::lock_guard<std::mutex> const hold(guard);
    std::tm                           local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    return local;
}

}  // namespace zelieml::platform
