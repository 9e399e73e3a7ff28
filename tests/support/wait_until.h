// wait_until.h - waiting for what another thread or process does

#ifndef ZELIEML_TESTS_SUPPORT_WAIT_UNTIL_H
#define ZELIEML_TESTS_SUPPORT_WAIT_UNTIL_H

#include <chrono>
#include <thread>

namespace zelieml::test
{

inline void wait_ms(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Waits until a condition holds; false when it does not within the limit.
template <class Condition>
bool wait_until(Condition&& holds, std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    auto const deadline = std::chrono::steady_clock::now() + limit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        wait_ms(2);
    }
    return true;
}

}  // namespace zelieml::test

#endif
