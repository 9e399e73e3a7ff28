#include "tools/zelieml/main_thread.h"

#include <CoreFoundation/CoreFoundation.h>
#include <atomic>
#include <chrono>
#include <exception>
#include <thread>

namespace zelieml::program
{

namespace
{

constexpr double turn_s   = 1;
constexpr auto   a_moment = std::chrono::milliseconds(10);

}  // namespace

int hearing_notifications(std::function<int()> const& work)
{
    std::atomic<bool>  is_over{false};
    std::exception_ptr thrown;
    int                result = 0;
    CFRunLoopRef const loop   = ::CFRunLoopGetMain();
    std::thread        worker([&] {
        try {
            result = work();
        } catch (...) {
            thrown = std::current_exception();
        }
        is_over = true;
        ::CFRunLoopStop(loop);
    });
    while (!is_over) {
        // Before there is an observer the run loop returns at once.
        if (::CFRunLoopRunInMode(kCFRunLoopDefaultMode, turn_s, 0) == kCFRunLoopRunFinished) {
            std::this_thread::sleep_for(a_moment);
        }
    }
    worker.join();
    if (thrown) {
        std::rethrow_exception(thrown);
    }
    return result;
}

}  // namespace zelieml::program
