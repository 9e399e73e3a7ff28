// notification_thread_test.cpp - the observer's socket and thread: what they cost, what they leave
// to the host, and that both go

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "support/gate.h"
#include "tests/support/notification_room.h"
#include "tests/support/threads.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

using texts = std::vector<std::string>;

TEST(Value, ThatIsTooLongForADatagramIsNotDelivered)
{
    notification_room const room;
    listener                one("object");
    EXPECT_EQ(post("object", std::string(70000, 'a')), 0) << "more than an observer takes";
    EXPECT_EQ(post("object", std::string(1000000, 'a')), 0) << "more than the system sends";
    EXPECT_EQ(post("object", "short"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.heard().all(), texts{"short"});
}

// ------------------------------------------------------------------ what is left

TEST(AddingAndRemoving, LeavesNothing)
{
    notification_room const room;
    add_and_remove(50);
    int const         threads     = running_threads();
    int const         descriptors = open_descriptors();
    std::size_t const bytes       = ::mallinfo2().uordblks;  // 0 under a sanitizer, which looks too
    add_and_remove(200);
    EXPECT_TRUE(wait_for_running_threads(threads));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
    EXPECT_LT(::mallinfo2().uordblks, bytes + 200 * sizeof(void*))
        << "less than one pointer each time";
}

// A thread that is neither joined nor detached leaves its stack.
int memory_mappings()
{
    std::ifstream maps("/proc/self/maps");
    int           count = 0;
    for (std::string line; std::getline(maps, line);) {
        ++count;
    }
    return count;
}

TEST(AddingAndRemoving, FromItsDeliveryLeavesNothingEither)
{
    notification_room const room;
    add_and_remove(1);
    int const threads     = running_threads();
    int const descriptors = open_descriptors();
    int const mappings    = memory_mappings();
    for (int i = 0; i < 50; ++i) {
        gate      begin;
        listener* self = nullptr;
        listener  one("object", test_name, [&](std::string const&) {
            begin.wait();
            EXPECT_EQ(self->remove(), 0);
        });
        self = &one;
        begin.open();
        post("object", "hello");
        EXPECT_EQ(one.heard().wait_for(1), 1U);
        EXPECT_TRUE(wait_for_running_threads(threads));
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_LT(memory_mappings(), mappings + 50) << "less than one each time";
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
}

// ------------------------------------------------------------------ the delivery's thread

std::atomic<long> handled_by{0};

TEST(DeliveryThread, HasEverySignalBlocked)
{
    notification_room const room;
    sigset_t                mask;
    listener                one("object", test_name,
                                [&](std::string const&) { ::pthread_sigmask(SIG_SETMASK, nullptr, &mask); });
    post("object", "hello");
    one.heard().wait_for(1);
    ASSERT_EQ(one.remove(), 0);
    for (int number = 1; number < NSIG; ++number) {
        bool const cannot_be = number == SIGKILL || number == SIGSTOP ||
                               (number > SIGSYS && number < SIGRTMIN);  // the C library's own
        EXPECT_TRUE(cannot_be || ::sigismember(&mask, number) == 1) << number;
    }
}

TEST(DeliveryThread, LeavesSignalsToTheHost)
{
    notification_room const room;
    listener                one("object");
    struct sigaction        noted = {};
    struct sigaction        before;
    noted.sa_handler = [](int) { handled_by = ::syscall(SYS_gettid); };
    ::sigaction(SIGUSR1, &noted, &before);
    sigset_t usr1;
    ::sigemptyset(&usr1);
    ::sigaddset(&usr1, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    ::kill(::getpid(), SIGUSR1);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(handled_by, 0) << "no other thread takes it";
    ::pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    ::kill(::getpid(), SIGUSR1);
    EXPECT_EQ(handled_by, ::syscall(SYS_gettid));
    ::sigaction(SIGUSR1, &before, nullptr);
}

// The times a thread was put to sleep or interrupted.
std::string switches_of(long thread)
{
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string   found;
    for (std::string line; std::getline(status, line);) {
        if (line.find("ctxt_switches") != std::string::npos) {
            found += line + "\n";
        }
    }
    return found;
}

TEST(DeliveryThread, SleepsWhenThereIsNothingToDo)
{
    notification_room const room;
    std::atomic<long>       thread{0};
    listener one("object", test_name, [&](std::string const&) { thread = ::syscall(SYS_gettid); });
    post("object", "hello");
    one.heard().wait_for(1);
    std::this_thread::sleep_for(milliseconds(100));
    std::string const before = switches_of(thread);
    std::this_thread::sleep_for(seconds(1));
    EXPECT_FALSE(before.empty());
    EXPECT_EQ(switches_of(thread), before);
}

}  // namespace
}  // namespace zelieml::test
