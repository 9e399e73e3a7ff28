// zone_lock.cpp - a lock that a forked child can take from its parent's threads
//
// It records the process that holds it. A forked child does not have its parent's other threads, so
// it takes over a lock that one of them held; its own threads wait for each other as usual.
// pthread_atfork is not used, see platform/macos/first_process.h.

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
