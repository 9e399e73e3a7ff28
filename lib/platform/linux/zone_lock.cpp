// zone_lock.cpp - a lock that nobody holds when the process forks

#include "platform/zone_lock.h"

#include <pthread.h>

namespace zelieml::platform
{

namespace
{

pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;

// Nobody is amid a conversion when the process forks: the child would wait for ever, for this lock
// or for the C library's own. From the start on, since the first conversion may be under way at the
// first fork.
[[maybe_unused]] int const forks_watched =
    ::pthread_atfork([] { ::pthread_mutex_lock(&guard); }, [] { ::pthread_mutex_unlock(&guard); },
                     [] { ::pthread_mutex_unlock(&guard); });

}  // namespace

zone_lock::zone_lock()
{
    ::pthread_mutex_lock(&guard);
}

zone_lock::~zone_lock()
{
    ::pthread_mutex_unlock(&guard);
}

}  // namespace zelieml::platform
