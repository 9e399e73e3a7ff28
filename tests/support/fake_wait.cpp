#include <functional>
#include <mutex>
#include <poll.h>

#include "platform/sleep.h"
#include "platform/wait.h"
#include "tests/support/fake_clock.h"

namespace
{

std::mutex                 guard;
zelieml::test::wait_record record;
bool                       real_waits = true;
std::function<bool()>      silent;
bool                       time_over_at_write = false;

}  // namespace

namespace zelieml
{

void platform::sleep_microseconds(std::int64_t us)
{
    std::lock_guard<std::mutex> hold(guard);
    record.sleeps.push_back(us);
}

void platform::wait_readable(int fd, int max_us)
{
    bool real = false;
    {
        std::lock_guard<std::mutex> hold(guard);
        record.readable_waits.push_back(max_us);
        real = real_waits && !(silent && silent());
    }
    if (real) {
        pollfd entry = {fd, POLLIN, 0};
        ::poll(&entry, 1, (max_us + 999) / 1000);
    }
}

bool platform::wait_writable(int fd, int max_us)
{
    {
        std::lock_guard<std::mutex> hold(guard);
        record.writable_waits.push_back(max_us);
        if (time_over_at_write) {
            return false;
        }
    }
    pollfd entry = {fd, POLLOUT, 0};
    return ::poll(&entry, 1, (max_us + 999) / 1000) > 0;
}

test::wait_record test::waits()
{
    std::lock_guard<std::mutex> hold(guard);
    return record;
}

void test::reset_waits(bool real_readable_waits)
{
    std::lock_guard<std::mutex> hold(guard);
    record             = {};
    real_waits         = real_readable_waits;
    silent             = nullptr;
    time_over_at_write = false;
}

void test::reset_waits_until(std::function<bool()> const& silence)
{
    reset_waits(true);
    std::lock_guard<std::mutex> hold(guard);
    silent = silence;
}

void test::never_writable(bool on)
{
    std::lock_guard<std::mutex> hold(guard);
    time_over_at_write = on;
}

}  // namespace zelieml
