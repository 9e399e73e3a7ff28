// resolver.cpp - gethostbyname_r, with a buffer that grows until the answer fits
//
// The C library's resolver has locks that it does not release in a forked child. So a fork waits
// for the look-ups in progress, but not for a name server that does not answer: while a look-up
// waits for that, it holds none of them.

#include "platform/resolver.h"

#include <cerrno>
#include <ctime>
#include <netdb.h>
#include <pthread.h>
#include <vector>

#include "platform/first_address.h"
#include "support/mutex_lock.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

namespace
{

constexpr std::time_t fork_limit_s = 1;

pthread_mutex_t starting = PTHREAD_MUTEX_INITIALIZER;  // taken first: no look-up begins
pthread_mutex_t guard    = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t  none     = PTHREAD_COND_INITIALIZER;
int             look_ups = 0;  // in progress

void before_fork()
{
    no_cancellation const shielded;
    timespec              until = {};
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += fork_limit_s;
    ::pthread_mutex_lock(&starting);  // both until the fork is over
    ::pthread_mutex_lock(&guard);
    while (look_ups > 0 && ::pthread_cond_clockwait(&none, &guard, CLOCK_MONOTONIC, &until) == 0) {
    }
}

void after_fork_in_parent()
{
    ::pthread_mutex_unlock(&guard);
    ::pthread_mutex_unlock(&starting);
}

void after_fork_in_child()
{
    look_ups = 0;  // those of threads that the child does not have
    none     = PTHREAD_COND_INITIALIZER;
    ::pthread_mutex_unlock(&guard);
    ::pthread_mutex_unlock(&starting);
}

// See platform/linux/fork_order.h.
[[maybe_unused]] int const forks_watched =
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

class look_up
{
public:
    look_up()
    {
        mutex_lock const begin(starting);
        mutex_lock const hold(guard);
        ++look_ups;
    }
    ~look_up()
    {
        mutex_lock const hold(guard);
        // None is counted in a child that was forked by a signal's handler during this look-up.
        if (look_ups > 0 && --look_ups == 0) {
            ::pthread_cond_broadcast(&none);
        }
    }
    look_up(look_up const&)            = delete;
    look_up& operator=(look_up const&) = delete;
};

}  // namespace

bool resolve_ipv4(char const* name, std::uint32_t& address)
{
    no_cancellation const shielded;
    look_up const         counted;
    hostent               storage = {};
    hostent*              entry   = nullptr;
    int                   error   = 0;

    char first_buffer[1024];
    int  status =
        ::gethostbyname_r(name, &storage, first_buffer, sizeof first_buffer, &entry, &error);
    std::vector<char> buffer;
    while (status == ERANGE) {
        buffer.resize(buffer.empty() ? 8192 : buffer.size() * 2);
        status = ::gethostbyname_r(name, &storage, buffer.data(), buffer.size(), &entry, &error);
    }
    return status == 0 && first_address(entry, address);
}

}  // namespace zelieml::platform
