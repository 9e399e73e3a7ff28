// pause_test.cpp - waits that another thread ends, in real time

#include "platform/pause.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/closed_standard.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/files.h"
#include "tests/support/threads.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

template <class Function>
steady_clock::duration time_of(Function function)
{
    auto const start = steady_clock::now();
    function();
    return steady_clock::now() - start;
}

TEST(Pause, LastsAsLongAsItIsMeantTo)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    for (int i = 0; i < 3; ++i) {
        auto const time = time_of([&] { pause.wait(100); });
        EXPECT_GE(time, milliseconds(100));
        EXPECT_LT(time, milliseconds(900));
    }
}

TEST(Pause, OfNoTimeIsNone)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    EXPECT_LT(time_of([&] { pause.wait(0); }), milliseconds(900));
}

// What a host prints by mistake would end all waits.
TEST(Pause, KeepsClearOfTheStandardDescriptors)
{
    EXPECT_TRUE(keeps_clear_of_standard([] {
        static platform::pause pause;  // still open when the descriptors are looked at
        return pause.open();
    }));
}

TEST(Pause, EndsEarlyWhenAnotherThreadSaysSo)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    waiter waiting([&] { pause.wait(60000); });
    EXPECT_TRUE(waiting.gets_blocked());
    EXPECT_LT(time_of([&] {
                  pause.end();
                  waiting.join();
              }),
              seconds(10));
}

TEST(Pause, DoesNotBeginAfterItsEnd)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    pause.end();
    for (int i = 0; i < 3; ++i) {
        EXPECT_LT(time_of([&] { pause.wait(60000); }), seconds(10));
    }
}

TEST(Pause, EndsForAllWhoWait)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    auto const body      = [&] { pause.wait(60000); };
    waiter     waiting[] = {waiter(body), waiter(body), waiter(body)};
    for (waiter const& one : waiting) {
        EXPECT_TRUE(one.gets_blocked());
    }
    EXPECT_LT(time_of([&] {
                  pause.end();
                  for (waiter& one : waiting) {
                      one.join();
                  }
              }),
              seconds(10));
}

TEST(Pause, CanBeEndedAnyNumberOfTimes)
{
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    for (int i = 0; i < 200000; ++i) {  // more than a pipe holds
        pause.end();
    }
    EXPECT_LT(time_of([&] { pause.wait(60000); }), seconds(10));
}

TEST(Pause, IsNotEndedBySignals)
{
    struct sigaction counted = {};
    struct sigaction before  = {};
    counted.sa_handler       = [](int) {};
    ::sigaction(SIGALRM, &counted, &before);
    itimerval const every = {{0, 3000}, {0, 3000}};
    ::setitimer(ITIMER_REAL, &every, nullptr);
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    EXPECT_GE(time_of([&] { pause.wait(100); }), milliseconds(100));
    itimerval const never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
}

TEST(Pause, GivesItsDescriptorsBack)
{
    int const before = open_descriptors();
    for (int i = 0; i < 2000; ++i) {
        platform::pause pause;
        ASSERT_TRUE(pause.open()) << i;
        pause.end();
        pause.wait(60000);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Pause, HasDescriptorsThatOtherProgramsDoNotGet)
{
    auto const handed_on = [] {
        int count = 0;
        for (int fd = 0; fd < 256; ++fd) {
            int const flags = ::fcntl(fd, F_GETFD);
            count += flags != -1 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
        }
        return count;
    };
    int const       before      = handed_on();
    int const       descriptors = open_descriptors();
    platform::pause pause;
    ASSERT_TRUE(pause.open());
    EXPECT_EQ(open_descriptors(), descriptors + 2);
    EXPECT_EQ(handed_on(), before);
}

TEST(Pause, CannotBeHadWithoutDescriptors)
{
    for (int room = 0; room < 2; ++room) {
        platform::pause pause;
        bool            opened = true;
        {
            few_descriptors const limited(room);
            opened = pause.open();
        }
        EXPECT_FALSE(opened) << room;
    }
}

TEST(Pause, CanBeFreedInAForkedChildWhileItsParentWaits)
{
    auto pause = std::make_unique<platform::pause>();
    ASSERT_TRUE(pause->open());
    waiter waiting([&] { pause->wait(60000); });
    ASSERT_TRUE(waiting.gets_blocked());
    pid_t const child = ::fork();
    if (child == 0) {
        pause.reset();
        ::_exit(0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(waiting.gets_blocked()) << "the parent's lasts";
    pause->end();
}

}  // namespace
}  // namespace zelieml::test
