// wait.cpp - poll, repeated when a signal cuts it short

#include "platform/wait.h"

#include <cerrno>
#include <chrono>
#include <poll.h>

namespace zelieml::platform
{

namespace
{

bool wait_for(int fd, short events, int max_us)
{
    using std::chrono::steady_clock;
    auto const until = steady_clock::now() + std::chrono::microseconds(max_us);
    int        ms    = (max_us + 999) / 1000;
    for (;;) {
        pollfd    entry = {fd, events, 0};
        int const ready = ::poll(&entry, 1, ms);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        ms = static_cast<int>(left.count());
    }
}

}  // namespace

void wait_readable(int fd, int max_us)
{
    wait_for(fd, POLLIN, max_us);
}

bool wait_writable(int fd, int max_us)
{
    return wait_for(fd, POLLOUT, max_us);
}

}  // namespace zelieml::platform
