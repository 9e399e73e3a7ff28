// zone_lock.cpp - a lock for all processes but forked children
//
// A child has one thread, and a lock that another thread of its parent held is held for ever. Not
// pthread_atfork: this system would call its handlers also when the library has been unloaded.

#include "platform/zone_lock.h"

#include <pthread.h>
#include <unistd.h>

namespace zelieml::platform
{

namespace
{

pid_t const     home  = ::getpid();  // the process that the library was loaded into
pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

zone_lock::zone_lock()
{
    if (::getpid() == home) {
        ::pthread_mutex_lock(&guard);
    }
}

zone_lock::~zone_lock()
{
    if (::getpid() == home) {
        ::pthread_mutex_unlock(&guard);
    }
}

}  // namespace zelieml::platform
