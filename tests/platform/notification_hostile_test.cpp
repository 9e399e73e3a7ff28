// notification_hostile_test.cpp - what users can do to the places of others, and what it gets them

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "platform/linux/notification_place.h"
#include "support/unique_fd.h"
#include "tests/platform/notification_peers.h"
#include "tests/support/notification_room.h"
#include "tests/support/skip.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uid_t stranger = 4714;

// Very many small files are made quickly in memory, where the system has a place for that.
[[maybe_unused]] int const in_memory =
    ::access("/dev/shm", W_OK) == 0 ? ::setenv("TMPDIR", "/dev/shm", 0) : 0;

// Whoever can exchange an observer's new socket for a link chooses the file whose mode it changes.
TEST(Place, InWhichOthersCanExchangeThingsIsRefused)
{
    struct {
        mode_t      mode;
        bool        refused;
        char const* reason;
    } const cases[] = {
        {0777, true, "everybody can"},
        {0770, true, "the group can"},
        {0707, true, "all but the group can"},
        {01777, false, "everybody can write, but exchange nothing of others'"},
        {01770, false, "the same for a group"},
        {0755, false, "only its owner can write"},
        {0700, false, "only its owner can get in"},
    };
    for (bool const shared : {true, false}) {
        for (auto const& c : cases) {
            notification_room const room;
            std::string const       where = shared ? room.shared() : room.own();
            ASSERT_EQ(::mkdir(where.c_str(), 0700), 0);
            ASSERT_EQ(::chmod(where.c_str(), c.mode), 0);
            listener          one("object");
            std::size_t const sockets = notification_room::sockets(where).size();
            EXPECT_EQ(one.added(), c.refused ? -1 : 0) << where << ": " << c.reason;
            EXPECT_EQ(sockets, c.refused ? 0U : 1U) << where << ": " << c.reason;
            EXPECT_EQ(post("object", "hello"), 0) << where << ": " << c.reason;
            if (!c.refused) {
                EXPECT_EQ(one.heard().wait_for(1), 1U) << where << ": " << c.reason;
            }
        }
    }
}

// In /tmp anybody can make a directory of any name first.
TEST(RootsPlace, CannotBeTakenByAnotherUser)
{
    SKIP_UNLESS_ROOT("another user");
    notification_room const room;
    std::string const       taken = room.root() + "/tmp/.zelieml-0";
    ASSERT_EQ(::mkdir(taken.c_str(), 0700), 0);
    ASSERT_EQ(::chown(taken.c_str(), stranger, stranger), 0);
    listener one("object");
    EXPECT_EQ(one.added(), 0);
    EXPECT_EQ(notification_room::sockets(room.root() + "/run/zelieml-root").size(), 1U);
    EXPECT_EQ(post("object", "hello"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
}

// Whatever the others do, posts of root's take their time and no more, and root's observer hears
// them all.
void expect_heard_in_time(listener& one)
{
    for (std::size_t i = 1; i <= 3; ++i) {
        auto const start = steady_clock::now();
        EXPECT_EQ(post("object", "hello"), 0);
        EXPECT_LT(steady_clock::now() - start, milliseconds(1000));
        EXPECT_EQ(one.heard().wait_for(i), i);
    }
}

// Many more names that begin like a socket's: all are the one socket.
void link_many_times(std::string const& place, int count)
{
    std::string const file = notification_room::sockets(place).at(0);
    for (int i = 0; i < count; ++i) {
        std::string const name = file.substr(0, 17) + std::to_string(i) + ".sock";
        ASSERT_EQ(::link((place + "/" + file).c_str(), (place + "/" + name).c_str()), 0);
    }
}

TEST(RootsPlace, ComesBeforeOthersWithManySockets)
{
    SKIP_UNLESS_ROOT("another user");
    for (bool const shared : {false, true}) {
        notification_room const room;
        listener                one("object");  // in root's own, as there is no other
        if (shared) {
            room.share();
        }
        notification_peer user({{room.variable()}, stranger});
        ASSERT_EQ(user.observe("object"), "0");
        link_many_times(shared ? room.shared() : room.own(stranger), 40000);
        user.signal(SIGSTOP);  // it takes nothing, either
        expect_heard_in_time(one);
    }
}

TEST(RootsPlace, ComesBeforeManyDirectoriesInTmp)
{
    SKIP_UNLESS_ROOT("another user");
    notification_room const room;
    for (uid_t i = 0; i < 40000; ++i) {
        std::string const path = room.own(100000 + i);
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
        ASSERT_EQ(::chown(path.c_str(), stranger, stranger), 0);
    }
    listener one("object");
    expect_heard_in_time(one);
}

TEST(Names, AreLookedAtUpToABound)
{
    notification_room const room;
    std::string const       tmp = room.root() + "/tmp/";
    write_file(tmp + "file", "");
    for (int i = 0; i < 10100; ++i) {
        ASSERT_EQ(::link((tmp + "file").c_str(), (tmp + "name" + std::to_string(i)).c_str()), 0);
    }
    unique_fd const directory(::open(tmp.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_LE(platform::names_in(directory.get(), "n", "", platform::time_point::max()).size(),
              10000U);
}

// A full socket in one place leaves those in the others their share of the half second.
TEST(Posting, WaitsInEveryPlace)
{
    notification_room const room;
    notification_peer       own({{room.variable()}});
    ASSERT_EQ(own.observe("object"), "0");
    room.share();
    notification_peer shared({{room.variable()}});
    ASSERT_EQ(shared.observe("object"), "0");
    own.signal(SIGSTOP);
    shared.signal(SIGSTOP);
    std::size_t posts = 0;
    for (auto time = milliseconds(0); time < milliseconds(450); ++posts) {
        auto const start = steady_clock::now();
        ASSERT_EQ(post("object", "hello"), 0);
        time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
        ASSERT_LT(time, milliseconds(1000));
        ASSERT_LT(posts, 5000U);
    }
    std::thread waker([&] {
        std::this_thread::sleep_for(milliseconds(350));
        shared.signal(SIGCONT);
    });
    EXPECT_EQ(post("object", "the last"), 0);
    waker.join();
    EXPECT_EQ(shared.wait_for(posts), posts);
    EXPECT_EQ(shared.values().back(), "the last");
}

}  // namespace
}  // namespace zelieml::test
