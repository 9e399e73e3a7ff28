#include "tests/support/fake_pause.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <set>

#include "platform/clock.h"
#include "platform/pause.h"
#include "tests/support/fake_clock.h"

namespace
{

using zelieml::platform::pause;

std::mutex              guard;
std::condition_variable changed;
std::set<pause const*>  ended;
int                     allowed = 0;
int                     waiting = 0;
int                     begun   = 0;
std::function<void()>   action_after;

}  // namespace

namespace zelieml
{

bool platform::pause::open()
{
    std::lock_guard<std::mutex> const hold(guard);
    ended.erase(this);
    return true;
}

void platform::pause::wait(int ms)
{
    std::unique_lock<std::mutex> hold(guard);
    ++begun;
    ++waiting;
    changed.notify_all();
    changed.wait(hold, [this] { return allowed > 0 || ended.count(this) != 0; });
    --waiting;
    bool const passed = allowed > 0 && ended.count(this) == 0;
    if (passed) {
        --allowed;
        test::set_wall_clock(wall_seconds() + ms / 1000, wall_microseconds());
    }
    changed.notify_all();
    hold.unlock();
    if (passed && action_after) {
        action_after();
    }
}

void platform::pause::end()
{
    std::lock_guard<std::mutex> const hold(guard);
    ended.insert(this);
    changed.notify_all();
}

void test::pass_pauses(int count)
{
    let_pauses_pass(count);
    wait_for_pause();
}

void test::let_pauses_pass(int count)
{
    std::lock_guard<std::mutex> const hold(guard);
    allowed += count;
    changed.notify_all();
}

void test::wait_for_pause()
{
    std::unique_lock<std::mutex> hold(guard);
    if (!changed.wait_for(hold, std::chrono::seconds(30),
                          [] { return allowed == 0 && waiting > 0; })) {
        ADD_FAILURE() << "no worker came to its pause; " << allowed << " pauses were left";
        allowed = 0;
    }
}

void test::after_each_pause(std::function<void()> const& action)
{
    std::lock_guard<std::mutex> const hold(guard);
    action_after = action;
}

int test::pauses_begun()
{
    std::lock_guard<std::mutex> const hold(guard);
    return begun;
}

}  // namespace zelieml
