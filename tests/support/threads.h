// threads.h - what the threads of the process are doing
//
// linux/threads.cpp, macos/threads.cpp: each system's own means.

#ifndef ZELIEML_TESTS_SUPPORT_THREADS_H
#define ZELIEML_TESTS_SUPPORT_THREADS_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace zelieml::test
{

using thread_id = std::uint64_t;

thread_id this_thread();

// Empty while a thread runs. While it sleeps in the system, a text that is another in its next
// sleep.
std::string sleep_of(thread_id thread);

// Whether a thread of the process has left its program. One that was joined has.
bool has_ended(thread_id thread);

// Waits until it has. Returns false when that does not happen within 20 s.
bool wait_until_ended(thread_id thread);

// Waits until a thread of the process is blocked: it stays asleep until something wakes it. Returns
// false when that does not happen within 20 s.
bool wait_until_blocked(thread_id thread);

// A thread that is expected to wait for something.
class waiter
{
public:
    template <class Body>
    explicit waiter(Body body)
        : thread_([this, body = std::move(body)] {
              id_ = this_thread();
              body();
              over_ = true;
          })
    {
    }
    ~waiter() { join(); }
    waiter(waiter const&)            = delete;
    waiter& operator=(waiter const&) = delete;

    // Whether it gets blocked in its body, rather than to the end of it.
    bool gets_blocked() const;

    void join();

private:
    std::atomic<thread_id> id_{0};
    std::atomic<bool>      over_{false};
    std::thread            thread_;  // the last: it uses the others
};

// The threads that have not ended. One that was joined is not among them, although a busy system
// may list it for a while. macOS starts and ends threads of its own: it always says 0.
int running_threads();

// Waits until there are so many. Returns false when that does not happen within 20 s.
bool wait_for_running_threads(int count);

// ------------------------------------------------------------------ on Linux only

// The signals, as bits from 1 << 0 for signal 1 on, that all threads but this one have blocked.
std::uint64_t blocked_by_all_others();

}  // namespace zelieml::test

#endif
