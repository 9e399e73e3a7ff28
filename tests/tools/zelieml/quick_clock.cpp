// quick_clock.cpp - replaces the wall clock of the library: half an hour lasts half a second
//
// With quick_pause, which makes a second of the engine's worker last a millisecond, a message is
// tried the second time after one or two seconds.

#include <chrono>

#include "platform/clock.h"
#include "platform/zone_lock.h"

namespace zelieml::platform
{

namespace
{

constexpr int times_as_fast = 3600;

std::time_t const                           start_s = std::time(nullptr);
std::chrono::steady_clock::time_point const start   = std::chrono::steady_clock::now();

}  // namespace

std::time_t wall_seconds()
{
    auto const passed = std::chrono::steady_clock::now() - start;
    return start_s +
           static_cast<std::time_t>(std::chrono::duration<double>(passed).count() * times_as_fast);
}

int wall_microseconds()
{
    return 0;
}

std::tm local_time(std::time_t seconds)
{
    zone_lock const alone;
    std::tm         local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    return local;
}

}  // namespace zelieml::platform
