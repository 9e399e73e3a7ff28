// share_time.h - a time limit divided among parts that are used one after the other

#ifndef ZELIEML_PLATFORM_LINUX_SHARE_TIME_H
#define ZELIEML_PLATFORM_LINUX_SHARE_TIME_H

#include <chrono>

namespace zelieml::platform
{

// Has each part use its share of the time until then; what one leaves is the next ones'. So nobody
// takes the time from those who come after him. When it is over, the parts that are left get
// nothing.
//
// until  a time of Clock
// use    called with a part and the end of its time, which is never after until
template <class Clock = std::chrono::steady_clock, class Parts, class Use>
void share_time(Parts const& parts, typename Clock::time_point until, Use use)
{
    auto left = static_cast<typename Clock::rep>(parts.size());
    for (auto const& part : parts) {
        auto const now = Clock::now();
        if (now >= until) {
            return;
        }
        use(part, now + (until - now) / left--);
    }
}

}  // namespace zelieml::platform

#endif
