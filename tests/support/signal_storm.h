// signal_storm.h - a host whose signals cut short what it waits in

#ifndef ZELIEML_TESTS_SUPPORT_SIGNAL_STORM_H
#define ZELIEML_TESTS_SUPPORT_SIGNAL_STORM_H

#include <atomic>
#include <csignal>
#include <sys/time.h>
#include <thread>
#include <utility>

namespace zelieml::test
{

inline std::atomic<int> signals_caught{0};

// While it lives, a signal comes every 3 ms and cuts short whatever the test's thread waits in.
class signal_storm
{
public:
    signal_storm()
    {
        signals_caught           = 0;
        struct sigaction counted = {};
        counted.sa_handler       = [](int) { ++signals_caught; };
        ::sigaction(SIGALRM, &counted, &action_);
        itimerval const every = {{0, 3000}, {0, 3000}};
        ::setitimer(ITIMER_REAL, &every, nullptr);
    }

    ~signal_storm()
    {
        itimerval const never = {};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &action_, nullptr);
    }

    signal_storm(signal_storm const&)            = delete;
    signal_storm& operator=(signal_storm const&) = delete;

    // Returns when the test's thread has caught that many.
    static void wait_for(int signals)
    {
        while (signals_caught < signals) {
            std::this_thread::yield();
        }
    }

private:
    struct sigaction action_ = {};
};

// A thread that no signal of the storm goes to.
template <class Function>
std::thread start_undisturbed(Function function)
{
    sigset_t alarm;
    sigset_t before;
    ::sigemptyset(&alarm);
    ::sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &alarm, &before);
    std::thread thread(std::move(function));
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace zelieml::test

#endif
