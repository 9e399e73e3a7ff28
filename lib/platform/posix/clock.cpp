// clock.cpp - the wall clock of POSIX systems

#include "platform/clock.h"

#include <sys/time.h>

#include "platform/zone_lock.h"

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
    zone_lock const alone;
    std::tm         local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    return local;
}

}  // namespace zelieml::platform
