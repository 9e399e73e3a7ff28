// notification_thread_test.cpp - the observer's socket and thread: what they cost, what they leave
// to the host, and that both go

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "support/gate.h"
#include "tests/support/notification_room.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{
namespace
{

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
    int const  threads     = running_threads();
    int const  descriptors = open_descriptors();
    auto const memory = [&] {  // to look takes some, once; 0 under a sanitizer, which looks too
        EXPECT_TRUE(wait_for_running_threads(threads));
        EXPECT_EQ(open_descriptors(), descriptors);
        EXPECT_TRUE(notification_room::sockets(room.own()).empty());
        return ::mallinfo2().uordblks;
    };
    std::size_t const before = memory();
    add_and_remove(200);
    EXPECT_LT(memory(), before + 200 * sizeof(void*)) << "less than one pointer each time";
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
    handled_by       = 0;
    noted.sa_handler = [](int) { handled_by = ::syscall(SYS_gettid); };
    ::sigaction(SIGUSR1, &noted, &before);
    sigset_t usr1;
    ::sigemptyset(&usr1);
    ::sigaddset(&usr1, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    EXPECT_NE(blocked_by_all_others() & std::uint64_t{1} << (SIGUSR1 - 1), 0U);
    ::kill(::getpid(), SIGUSR1);
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGUSR1), 1) << "no other thread takes it";
    EXPECT_EQ(handled_by, 0);
    ::pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    ::kill(::getpid(), SIGUSR1);
    EXPECT_EQ(handled_by, ::syscall(SYS_gettid));
    ::sigaction(SIGUSR1, &before, nullptr);
}

// The limits, in seconds, of all waits in local sockets of the process: 0 without one, -1 where
// nothing waits.
std::vector<long> limits_of_waits()
{
    std::vector<long> limits;
    for (int fd = 0; fd < 256; ++fd) {
        int       domain = 0;
        socklen_t size   = sizeof domain;
        timeval   limit  = {};
        if (::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX) {
            size = sizeof limit;
            EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &size), 0);
            bool const waits = (::fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
            limits.push_back(waits ? static_cast<long>(limit.tv_sec) : -1);
        }
    }
    return limits;
}

TEST(DeliveryThread, SleepsForSecondsWhenThereIsNothingToDo)
{
    notification_room const room;
    std::atomic<thread_id>  thread{0};
    listener one("object", test_name, [&](std::string const&) { thread = this_thread(); });
    post("object", "hello");
    ASSERT_TRUE(wait_until([&] { return thread != 0; }));
    EXPECT_TRUE(wait_until_blocked(thread));
    EXPECT_EQ(limits_of_waits(), std::vector<long>{5});
}

}  // namespace
}  // namespace zelieml::test
