// notification_thread_test.cpp - the observer's socket and thread: what they cost, what they leave
// to the host, and that both go

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sstream>
#include <string>
#include <sys/syscall.h>
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

TEST(DeliveryThread, SleepsWhenThereIsNothingToDo)
{
    notification_room const room;
    std::atomic<thread_id>  thread{0};
    listener one("object", test_name, [&](std::string const&) { thread = this_thread(); });
    post("object", "hello");
    ASSERT_TRUE(wait_until([&] { return thread != 0; }));
    EXPECT_TRUE(wait_until_blocked(thread));
    // poll, two descriptors, no limit.
    std::istringstream call(system_call_of(thread));
    std::string        number;
    std::string        descriptors;
    std::string        count;
    std::string        limit;
    call >> number >> descriptors >> count >> limit;
    EXPECT_EQ(number, std::to_string(SYS_poll)) << call.str();
    EXPECT_EQ(count, "0x2") << call.str();
    EXPECT_EQ(limit, "0xffffffff") << call.str();
}

}  // namespace
}  // namespace zelieml::test
