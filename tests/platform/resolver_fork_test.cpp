// resolver_fork_test.cpp - forks during look-ups that last, and an answer that needs a large buffer
//
// The program is linked so that gethostbyname_r and pthread_cond_clockwait come here first, the
// latter also under its name in 32-bit programs with 64-bit times.

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/notification.h"
#include "platform/resolver.h"
#include "platform/zone_lock.h"
#include "tests/support/wait_until.h"

namespace
{

constexpr char        slow_name[]  = "slow.test";   // answered when the test says so
constexpr char        forks_name[] = "forks.test";  // forks during the look-up
constexpr char        large_name[] = "large.test";
constexpr std::size_t large_answer = 20000;

int               orders[2]         = {-1, -1};  // a byte ends a slow look-up
std::atomic<int>  slow_look_ups     = 0;         // that have begun
pid_t             forked            = -1;        // by the last look-up of forks_name
std::atomic<int>  waits             = 0;         // of forks
clockid_t         clock_of_waits    = -1;
std::atomic<bool> wait_is_held      = false;  // a fork waits until this is over
bool              was_held_too_long = false;

void note_wait(clockid_t clock)
{
    ++waits;
    clock_of_waits = clock;
    if (wait_is_held) {
        was_held_too_long = !zelieml::test::wait_until([] { return !wait_is_held; });
    }
}

}  // namespace

extern "C" {

int __wrap_gethostbyname_r(char const* name, hostent* storage, char* buffer, std::size_t size,
                           hostent** entry, int* error);
int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* guard,
                                  clockid_t clock, timespec const* until);
int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* guard,
                                  clockid_t clock, timespec const* until);

int __real___pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* guard,
                                      clockid_t clock, timespec const* until) __attribute__((weak));
int __wrap___pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* guard,
                                      clockid_t clock, timespec const* until);

int __wrap_gethostbyname_r(char const* name, hostent* storage, char* /*buffer*/, std::size_t size,
                           hostent** entry, int* /*error*/)
{
    static in_addr address = {htonl(INADDR_LOOPBACK)};
    static char*   list[]  = {reinterpret_cast<char*>(&address), nullptr};
    if (std::strcmp(name, large_name) == 0 && size < large_answer) {
        return ERANGE;
    }
    if (std::strcmp(name, slow_name) == 0) {
        ++slow_look_ups;
        char any = 0;
        EXPECT_EQ(::read(orders[0], &any, 1), 1);
    }
    if (std::strcmp(name, forks_name) == 0) {
        forked = ::fork();
    }
    storage->h_addrtype  = AF_INET;
    storage->h_length    = sizeof address;
    storage->h_addr_list = list;
    *entry               = storage;
    return 0;
}

int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* guard,
                                  clockid_t clock, timespec const* until)
{
    note_wait(clock);
    return __real_pthread_cond_clockwait(condition, guard, clock, until);
}

int __wrap___pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* guard,
                                      clockid_t clock, timespec const* until)
{
    note_wait(clock);
    return __real___pthread_cond_clockwait64(condition, guard, clock, until);
}

}  // extern "C"

namespace zelieml::test
{

namespace
{

bool is_answered(char const* name)
{
    std::uint32_t address = 0;
    return platform::resolve_ipv4(name, address) && address == htonl(INADDR_LOOPBACK);
}

// Another thread's look-up, which lasts as long as the object.
class slow_look_up
{
public:
    slow_look_up()
    {
        int const before = slow_look_ups;
        EXPECT_EQ(::pipe(orders), 0);
        thread_ = std::thread([] { EXPECT_TRUE(is_answered(slow_name)); });
        EXPECT_TRUE(wait_until([&] { return slow_look_ups > before; }));
    }
    ~slow_look_up()
    {
        EXPECT_EQ(::write(orders[1], "x", 1), 1);
        thread_.join();
        ::close(orders[0]);
        ::close(orders[1]);
    }
    slow_look_up(slow_look_up const&)            = delete;
    slow_look_up& operator=(slow_look_up const&) = delete;

private:
    std::thread thread_;
};

// Forks, and looks a name up in the child.
void expect_answer_in_a_child()
{
    pid_t const child = ::fork();
    if (child == 0) {
        std::signal(SIGALRM, SIG_DFL);
        ::alarm(20);
        ::_exit(is_answered("any.test") ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(ResolverFork, WaitsASecondForALookUp)
{
    using clock = std::chrono::steady_clock;
    {
        slow_look_up const      lasting;
        clock::time_point const begin = clock::now();
        expect_answer_in_a_child();
        EXPECT_GE(clock::now() - begin, std::chrono::seconds(1));
        EXPECT_LT(clock::now() - begin, std::chrono::seconds(20));
        EXPECT_EQ(clock_of_waits, CLOCK_MONOTONIC) << "the other may be set back";
    }
    waits = 0;
    expect_answer_in_a_child();
    EXPECT_EQ(waits, 0) << "after the look-up";
}

TEST(ResolverFork, HoldsUpNothingElseWhileItWaits)
{
    slow_look_up const lasting;
    waits        = 0;
    wait_is_held = true;
    std::thread other([] {
        EXPECT_TRUE(wait_until([] { return waits > 0; }));
        {
            platform::zone_lock const conversion;
        }
        EXPECT_EQ(platform::remove_observer("name", "none", nullptr), -1);
        wait_is_held = false;
    });
    expect_answer_in_a_child();
    other.join();
    EXPECT_FALSE(was_held_too_long);
}

// As the handler of a signal can: the child returns into the look-up, and makes another.
TEST(ResolverFork, InsideALookUpLeavesTheChildItsCount)
{
    EXPECT_TRUE(is_answered(forks_name));
    if (forked == 0) {
        waits           = 0;
        bool const good = is_answered(forks_name);
        ::_exit(forked == 0 || (good && waits == 1 && ::waitpid(forked, nullptr, 0) == forked) ? 0
                                                                                               : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(forked, &status, 0), forked);
    EXPECT_EQ(status, 0);
}

TEST(Resolver, TakesAnAnswerOfAnySize)
{
    EXPECT_TRUE(is_answered(large_name));
}

}  // namespace

}  // namespace zelieml::test
