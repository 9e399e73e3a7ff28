// thread_test.cpp - threads that no signal goes to

#include "platform/thread.h"

#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include "support/gate.h"

namespace zelieml::test
{
namespace
{

void* note_mask(void* mask)
{
    ::pthread_sigmask(SIG_SETMASK, nullptr, static_cast<sigset_t*>(mask));
    return mask;
}

// A mask with something in it, and the one that was there before.
class some_mask
{
public:
    some_mask()
    {
        ::sigemptyset(&blocked_);
        ::sigaddset(&blocked_, SIGUSR2);
        ::sigaddset(&blocked_, SIGHUP);
        ::pthread_sigmask(SIG_SETMASK, &blocked_, &before_);
    }
    ~some_mask() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

    // Whether it is still the thread's.
    bool stands() const
    {
        sigset_t now;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &now);
        for (int number = 1; number < NSIG; ++number) {
            if (::sigismember(&now, number) != ::sigismember(&blocked_, number)) {
                return false;
            }
        }
        return true;
    }

private:
    sigset_t blocked_;
    sigset_t before_;
};

TEST(ThreadWithoutSignals, HasEverySignalBlocked)
{
    sigset_t  mask;
    pthread_t thread = {};
    ASSERT_EQ(platform::start_thread_without_signals(thread, note_mask, &mask), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &mask) << "the argument and the result are the body's";
    for (int const number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2,
                             SIGCHLD, SIGTSTP, SIGURG, SIGWINCH, SIGIO, SIGPROF, SIGSEGV}) {
        EXPECT_EQ(::sigismember(&mask, number), 1) << number;
    }
}

TEST(ThreadWithoutSignals, LeavesTheMaskOfTheCaller)
{
    some_mask const mask;
    sigset_t        in_thread;
    pthread_t       thread = {};
    ASSERT_EQ(platform::start_thread_without_signals(thread, note_mask, &in_thread), 0);
    EXPECT_TRUE(mask.stands());
    ::pthread_join(thread, nullptr);
}

TEST(ThreadWithoutSignals, LeavesASignalToTheThreadThatWantsIt)
{
    static pthread_t handler     = {};
    static bool      was_handled = false;
    struct sigaction noted       = {};
    struct sigaction before      = {};
    noted.sa_handler             = [](int) {
        handler     = ::pthread_self();
        was_handled = true;
    };
    ::sigaction(SIGUSR1, &noted, &before);
    gate      end;
    pthread_t thread = {};
    auto      body   = [](void* gate_to_end) -> void* {
        static_cast<gate*>(gate_to_end)->wait();
        return nullptr;
    };
    ASSERT_EQ(platform::start_thread_without_signals(thread, body, &end), 0);
    for (int i = 0; i < 50; ++i) {
        was_handled = false;
        ::kill(::getpid(), SIGUSR1);
        EXPECT_TRUE(was_handled);
        EXPECT_NE(::pthread_equal(handler, ::pthread_self()), 0);
    }
    end.open();
    ::pthread_join(thread, nullptr);
    ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace zelieml::test
