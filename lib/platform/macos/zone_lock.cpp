// zone_lock.cpp - a lock that does not outlive its holder's process
//
// It knows the process that holds it. A forked child has none of its parent's other threads, and
// takes what one of them held at that moment; its own threads wait for each other like any others.
// Not pthread_atfork: this system would call its handlers also when the library has been unloaded.

#include "platform/zone_lock.h"

#include <atomic>
#include <unistd.h>

#include "platform/sleep.h"

namespace zelieml::platform
{

namespace
{

std::atomic<pid_t> holder{0};  // 0: nobody

constexpr int wait_us = 50;  // about as long as a conversion takes

}  // namespace

zone_lock::zone_lock()
{
    pid_t const self = ::getpid();
    pid_t       seen = 0;
    while (!holder.compare_exchange_strong(seen, self)) {
        if (seen == self) {
            sleep_microseconds(wait_us);
            seen = 0;
        }
    }
}

zone_lock::~zone_lock()
{
    holder.store(0);
}

}  // namespace zelieml::platform
