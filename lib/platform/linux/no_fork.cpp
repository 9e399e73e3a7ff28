// no_fork.cpp - forks that wait for others' calls

#include "platform/no_fork.h"

#include <ctime>
#include <pthread.h>

#include "support/mutex_lock.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

namespace
{

constexpr std::time_t fork_limit_s = 1;

pthread_mutex_t starting = PTHREAD_MUTEX_INITIALIZER;  // taken first: nobody enters a scope
pthread_mutex_t guard    = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t  none     = PTHREAD_COND_INITIALIZER;
int             inside   = 0;  // such scopes

void before_fork()
{
    no_cancellation const shielded;
    timespec              until = {};
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += fork_limit_s;
    ::pthread_mutex_lock(&starting);  // both until the fork is over
    ::pthread_mutex_lock(&guard);
    while (inside > 0 && ::pthread_cond_clockwait(&none, &guard, CLOCK_MONOTONIC, &until) == 0) {
    }
}

void after_fork_in_parent()
{
    ::pthread_mutex_unlock(&guard);
    ::pthread_mutex_unlock(&starting);
}

void after_fork_in_child()
{
    inside = 0;  // those of threads that the child does not have
    none   = PTHREAD_COND_INITIALIZER;
    ::pthread_mutex_unlock(&guard);
    ::pthread_mutex_unlock(&starting);
}

// See platform/linux/fork_order.h.
[[maybe_unused]] int const forks_watched =
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

}  // namespace

no_fork::no_fork()
{
    mutex_lock const begin(starting);
    mutex_lock const hold(guard);
    ++inside;
}

no_fork::~no_fork()
{
    mutex_lock const hold(guard);
    // None is counted in a child that was forked by a signal's handler in this scope.
    if (inside > 0 && --inside == 0) {
        ::pthread_cond_broadcast(&none);
    }
}

}  // namespace zelieml::platform
