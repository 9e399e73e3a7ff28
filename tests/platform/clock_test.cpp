// clock_test.cpp - local time in a process that forks

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/clock.h"
#include "tests/support/skip.h"

namespace zelieml::test
{

// A lock that another thread holds at that moment is held in the child for ever.
TEST(LocalTime, IsToBeHadInAChildWhateverTheParentsThreadsDo)
{
    SKIP_UNLESS(has_backend("linux"), "on macOS a forked child may not ask for the time zone");
    std::time_t const now = platform::wall_seconds();
    std::atomic<bool> enough{false};
    std::thread       busy([&] {
        while (!enough) {
            platform::local_time(now);
        }
    });
    for (int i = 0; i < 100 && !HasFailure(); ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            std::signal(SIGALRM, SIG_DFL);
            ::alarm(30);
            ::_exit(platform::local_time(now).tm_year > 0 ? 0 : 1);
        }
        int status = -1;
        ASSERT_GT(child, 0);
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    enough = true;
    busy.join();
}

}  // namespace zelieml::test
