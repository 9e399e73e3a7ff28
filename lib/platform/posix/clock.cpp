// clock.cpp - the wall clock of POSIX systems

#include "platform/clock.h"

#include <pthread.h>
#include <sys/time.h>

#include "support/mutex_lock.h"

namespace zelieml::platform
{

namespace
{

// One conversion at a time: tzset replaces what the C library knows of the zone.
pthread_mutex_t zone_guard = PTHREAD_MUTEX_INITIALIZER;

// Nobody is amid one when the process forks: the child, which may post, would wait for ever. From
// the start on, since the first conversion may be under way at the first fork.
[[maybe_unused]] int const forks_watched = ::pthread_atfork(
    [] { ::pthread_mutex_lock(&zone_guard); }, [] { ::pthread_mutex_unlock(&zone_guard); },
    [] { ::pthread_mutex_unlock(&zone_guard); });

}  // namespace

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
    mutex_lock const hold(zone_guard);
    std::tm          local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    return local;
}

}  // namespace zelieml::platform
