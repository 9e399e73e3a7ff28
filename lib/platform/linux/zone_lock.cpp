// zone_lock.cpp - a mutex that is never held across a fork

#include "platform/zone_lock.h"

#include <pthread.h>

#include "platform/linux/fork_order.h"

namespace zelieml::platform
{

namespace
{

pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;

// Forking waits for a conversion in progress: otherwise the child could wait for ever, for this
// lock or the C library's own.
__attribute__((constructor(registers_early))) void watch_forks()
{
    ::pthread_atfork([] { ::pthread_mutex_lock(&guard); }, [] { ::pthread_mutex_unlock(&guard); },
                     [] { ::pthread_mutex_unlock(&guard); });
}

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
