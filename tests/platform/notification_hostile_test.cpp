// notification_hostile_test.cpp - what users can do to the places of others, and what it gets them

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

constexpr uid_t stranger = 4714;

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
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
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

}  // namespace
}  // namespace zelieml::test
