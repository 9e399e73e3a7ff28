#include "tests/support/fake_clock.h"

#include <atomic>

#include "platform/clock.h"
#include "platform/zone_lock.h"

namespace
{

std::atomic<std::time_t> now_seconds{1000000000};
std::atomic<int>         now_microseconds{0};

}  // namespace

namespace zelieml
{

std::time_t platform::wall_seconds()
{
    return now_seconds;
}

int platform::wall_microseconds()
{
    return now_microseconds;
}

std::tm platform::local_time(std::time_t seconds)
{
    platform::zone_lock const alone;  // as the real one
    std::tm                   local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    return local;
}

void test::set_wall_clock(std::time_t seconds, int microseconds)
{
    now_seconds      = seconds;
    now_microseconds = microseconds;
}

}  // namespace zelieml
