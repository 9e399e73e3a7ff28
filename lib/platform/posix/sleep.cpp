// sleep.cpp - nanosleep, repeated when a signal cuts it short

#include "platform/sleep.h"

#include <cerrno>
#include <ctime>

namespace zelieml::platform
{

void sleep_microseconds(std::int64_t us)
{
    if (us <= 0) {
        return;
    }
    timespec left = {};
    left.tv_sec   = static_cast<std::time_t>(us / 1000000);
    left.tv_nsec  = static_cast<long>(us % 1000000 * 1000);
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace zelieml::platform
