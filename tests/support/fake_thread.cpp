#include "tests/support/fake_thread.h"

#include <chrono>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/thread.h"
#include "tests/support/failing_new.h"

namespace
{

using zelieml::test::failing_new;

struct diet {
    int good;
    int bad;
};

struct thread_start {
    void* (*body)(void*);
    void*               argument;
    std::optional<diet> food;
};

std::mutex              guard;
std::condition_variable changed;
int                     live    = 0;
bool                    refused = false;
std::optional<diet>     next_food;

// One thread among those that live.
struct life {
    life()
    {
        std::lock_guard<std::mutex> const hold(guard);
        ++live;
    }
    ~life()
    {
        std::lock_guard<std::mutex> const hold(guard);
        --live;
        changed.notify_all();
    }
    life(life const&)            = delete;
    life& operator=(life const&) = delete;
};

struct started_thread {
    life         counted;
    thread_start start;
};

void* run(void* argument)
{
    std::unique_ptr<started_thread> const own(static_cast<started_thread*>(argument));
    thread_start const&                   start = own->start;
    if (!start.food) {
        return start.body(start.argument);
    }
    failing_new const limit(start.food->good, start.food->bad);
    return start.body(start.argument);
}

}  // namespace

namespace zelieml
{

int platform::start_thread_without_signals(pthread_t& thread, void* (*body)(void*), void* argument)
{
    std::optional<diet> food;
    {
        std::lock_guard<std::mutex> const hold(guard);
        if (refused) {
            return -1;
        }
        food.swap(next_food);
    }
    std::unique_ptr<started_thread> own(new started_thread{{}, {body, argument, food}});
    if (::pthread_create(&thread, nullptr, run, own.get()) != 0) {
        return -1;
    }
    (void)own.release();  // the thread's now
    return 0;
}

void test::refuse_threads(bool on)
{
    std::lock_guard<std::mutex> const hold(guard);
    refused = on;
}

void test::starve_next_thread(int good, int bad)
{
    std::lock_guard<std::mutex> const hold(guard);
    next_food = diet{good, bad};
}

int test::live_threads()
{
    std::lock_guard<std::mutex> const hold(guard);
    return live;
}

void test::wait_for_threads_to_end()
{
    std::unique_lock<std::mutex> hold(guard);
    if (!changed.wait_for(hold, std::chrono::seconds(30), [] { return live == 0; })) {
        ADD_FAILURE() << live << " threads have not ended";
    }
}

}  // namespace zelieml
