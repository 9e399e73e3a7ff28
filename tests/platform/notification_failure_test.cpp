// notification_failure_test.cpp - observers that the system has no means for
//
// The program is linked so that the calls an observer is made with come here first.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "tests/support/failing_new.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/notification_room.h"

namespace
{

// The name of the call that fails.
std::atomic<char const*> failing{""};

bool fails(char const* call)
{
    return std::string(failing) == call;
}

}  // namespace

// Declares the system's own function and the one that stands in its place, which fails on demand.
#define FAILING(result, name, parameters, arguments, failure, error)                               \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters                                                     \
    {                                                                                              \
        if (fails(#name)) {                                                                        \
            errno = error;                                                                         \
            return failure;                                                                        \
        }                                                                                          \
        return __real_##name arguments;                                                            \
    }

FAILING(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE)
FAILING(ssize_t, getrandom, (void* buf, std::size_t size, unsigned int flags), (buf, size, flags),
        -1, ENOSYS)
FAILING(int, bind, (int fd, sockaddr const* address, socklen_t size), (fd, address, size), -1,
        ENOSPC)
FAILING(int, fchmodat, (int fd, char const* path, mode_t mode, int flags), (fd, path, mode, flags),
        -1, EROFS)
FAILING(int, renameat, (int from, char const* old_path, int to, char const* new_path),
        (from, old_path, to, new_path), -1, ENOSPC)
FAILING(int, pthread_create,
        (pthread_t * thread, pthread_attr_t const* attributes, void* (*body)(void*),
         void* argument),
        (thread, attributes, body, argument), EAGAIN, EAGAIN)

#undef FAILING

namespace
{

// What each connection takes.
std::atomic<int> connecting_ms{0};
std::atomic<int> connections{0};

}  // namespace

extern "C" int __real_connect(int fd, sockaddr const* address, socklen_t size);
extern "C" int __wrap_connect(int fd, sockaddr const* address, socklen_t size);
extern "C" int __wrap_connect(int fd, sockaddr const* address, socklen_t size)
{
    ++connections;
    std::this_thread::sleep_for(std::chrono::milliseconds(connecting_ms));
    return __real_connect(fd, address, size);
}

namespace
{

// Whether unlinkat tries out that a fork goes through meanwhile, and the thread that does.
std::atomic<bool> forking{false};
std::atomic<bool> forked{false};
std::thread       forker;

}  // namespace

extern "C" int __real_unlinkat(int directory, char const* name, int flags);
extern "C" int __wrap_unlinkat(int directory, char const* name, int flags);
extern "C" int __wrap_unlinkat(int directory, char const* name, int flags)
{
    if (forking.exchange(false)) {
        forker = std::thread([] {
            pid_t const child = ::fork();
            if (child == 0) {
                ::_exit(0);
            }
            ::waitpid(child, nullptr, 0);
            forked = true;
        });
        for (int tries = 0; tries < 1000 && !forked; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return __real_unlinkat(directory, name, flags);
}

namespace zelieml::test
{
namespace
{

using texts = std::vector<std::string>;

TEST(AddingAnObserver, FailsWithTheSystemAndLeavesNothing)
{
    struct {
        char const* call;
        char const* reason;
    } const cases[] = {
        {"socket", "there are no descriptors for a socket"},
        {"getrandom", "there is nothing to make a name of"},
        {"bind", "the disk is full when the file is made"},
        {"fchmodat", "the file cannot be opened to others"},
        {"renameat", "the file cannot get its name"},
        {"pthread_create", "there is no thread to read"},
    };
    notification_room const room;
    {
        listener const first("object");  // makes the directory, and waits for a thread's stack
    }
    int const descriptors = open_descriptors();
    for (auto const& c : cases) {
        listener one("another");
        failing          = c.call;
        int const result = platform::add_observer(test_name, "object", listener::proc, &one);
        failing          = "";
        EXPECT_EQ(result, -1) << c.reason;
        EXPECT_EQ(one.remove(), 0);
        EXPECT_EQ(platform::remove_observer(test_name, "object", &one), -1) << c.reason;
        EXPECT_EQ(notification_room::sockets(room.own()), texts{}) << c.reason;
        EXPECT_EQ(open_descriptors(), descriptors) << c.reason;
    }
}

TEST(AddingAnObserver, WithoutMemoryFailsAndLeavesNothing)
{
    notification_room const room;
    // As many as fill a vector that doubles: the next one may need memory to be registered.
    std::vector<std::unique_ptr<listener>> many;
    for (int i = 1; i < 32; ++i) {
        many.push_back(std::make_unique<listener>("many"));
    }
    listener    one("another");
    int const   descriptors = open_descriptors();
    texts const files       = notification_room::sockets(room.own());
    int         good        = 0;
    for (bool added = false; !added; ++good) {
        ASSERT_LT(good, 100);
        {
            failing_new const none(good);
            added = platform::add_observer(test_name, "object", listener::proc, &one) == 0;
        }
        EXPECT_NE(added, failing_new::refused()) << "no other failure is to be had here";
        if (!added) {
            EXPECT_EQ(notification_room::sockets(room.own()), files) << good;
            EXPECT_EQ(open_descriptors(), descriptors) << good;
            EXPECT_EQ(platform::remove_observer(test_name, "object", &one), -1) << good;
        }
    }
    EXPECT_GT(good, 3) << "memory was needed";
    EXPECT_EQ(platform::remove_observer(test_name, "object", &one), 0);
}

TEST(AddingAnObserver, KeepsNoForkWaitingWhileItSweeps)
{
    notification_room const room;
    listener const          first("object");  // makes the directory
    std::string const       left = room.own() + "/00112233445566778-4711-8899aabbccddeeff.new";
    ASSERT_EQ(::mknod(left.c_str(), S_IFSOCK | 0600, 0), 0);
    timespec const then[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, left.c_str(), then, AT_SYMLINK_NOFOLLOW), 0);
    forking = true;
    listener const next("object");
    EXPECT_EQ(next.added(), 0);
    ASSERT_FALSE(forking) << "the socket that was left is removed";
    EXPECT_TRUE(forked);
    forker.join();
}

TEST(Posting, WithoutMemoryThrowsAndLeavesNothing)
{
    notification_room const room;
    listener                one("object");
    int const               descriptors = open_descriptors();
    int                     good        = 0;
    for (bool posted = false; !posted; ++good) {
        ASSERT_LT(good, 200);
        failing_new const none(good);
        try {
            posted = platform::post_notification(test_name, "object", test_key, "hello") == 0;
        } catch (std::bad_alloc const&) {
        }
    }
    EXPECT_GT(good, 3) << "memory was needed";
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
}

TEST(Delivery, WithoutMemoryLosesWhatComesThen)
{
    notification_room const      room;
    std::unique_ptr<failing_new> none;
    std::string const            longer_than_a_string_holds(100, 'v');
    listener                     one("object", test_name, [&](std::string const& value) {
        if (value == "no memory from here") {
            none = std::make_unique<failing_new>(0, 3);
        }
    });
    post("object", "no memory from here");
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    for (int i = 0; i < 5; ++i) {
        post("object", longer_than_a_string_holds);
    }
    EXPECT_EQ(one.heard().wait_for(3), 3U) << "three are lost, two come";
    EXPECT_EQ(one.heard().all(), (texts{"no memory from here", longer_than_a_string_holds,
                                        longer_than_a_string_holds}));
}

TEST(AddingAnObserver, FailsWhileThereAreNoDescriptors)
{
    for (bool const shared : {false, true}) {
        notification_room const room;
        if (shared) {
            room.share();
        }
        std::string const where = shared ? room.shared() : room.own();
        listener          one("another");
        texts const       files       = notification_room::sockets(where);
        int const         descriptors = open_descriptors();
        int               spare       = 0;
        for (bool added = false; !added; ++spare) {
            ASSERT_LT(spare, 20);
            {
                few_descriptors const few(spare);
                added = platform::add_observer(test_name, "object", listener::proc, &one) == 0;
            }
            if (!added) {
                EXPECT_EQ(notification_room::sockets(where), files) << spare;
                EXPECT_EQ(open_descriptors(), descriptors) << spare;
            }
        }
        EXPECT_EQ(spare, 3) << "a directory and a socket";
        EXPECT_EQ(platform::remove_observer(test_name, "object", &one), 0);
    }
}

TEST(Posting, ReachesNobodyWhileThereAreNoDescriptors)
{
    notification_room const room;
    listener                one("object");
    int const               descriptors = open_descriptors();
    for (int spare = 0; spare < 4; ++spare) {
        few_descriptors const few(spare);
        EXPECT_EQ(post("object", std::to_string(spare)), 0);
    }
    EXPECT_EQ(post("object", "enough"), 0);
    EXPECT_EQ(one.heard().wait_for(2), 2U);
    EXPECT_EQ(one.heard().all(), (texts{"3", "enough"})) << "three are needed, of any number";
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(Posting, TakesItsTimeAndNoMoreHoweverManyThereAreToTell)
{
    notification_room const                room;
    std::vector<std::unique_ptr<listener>> many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(std::make_unique<listener>("object"));
    }
    connections      = 0;
    connecting_ms    = 20;  // two seconds for all
    auto const start = std::chrono::steady_clock::now();
    EXPECT_EQ(post("object", "hello"), 0);
    auto const time = std::chrono::steady_clock::now() - start;
    connecting_ms   = 0;
    EXPECT_GE(time, std::chrono::milliseconds(450));
    EXPECT_LT(time, std::chrono::milliseconds(1000));
    EXPECT_GT(connections, 0);
    EXPECT_LT(connections, 30);
}

TEST(Posting, LeavesEveryPlaceItsShareOfTheTime)
{
    notification_room const                room;
    std::vector<std::unique_ptr<listener>> many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(std::make_unique<listener>("object"));
    }
    room.share();
    listener last("object");
    connecting_ms = 20;  // two seconds for those in the own place
    EXPECT_EQ(post("object", "hello"), 0);
    connecting_ms = 0;
    EXPECT_EQ(last.heard().wait_for(1), 1U);
}

}  // namespace
}  // namespace zelieml::test
