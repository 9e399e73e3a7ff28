// notification_removed_test.cpp - observers whose socket files somebody has removed

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

namespace fs = std::filesystem;

// Sockets that have got their names.
std::size_t sockets_in(std::string const& place)
{
    std::size_t count = 0;
    for (std::string const& name : notification_room::sockets(place)) {
        count += fs::path(name).extension() == ".sock" ? 1 : 0;
    }
    return count;
}

bool sockets_become(std::string const& place, std::size_t count)
{
    for (int i = 0; i < 4000 && sockets_in(place) != count; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return sockets_in(place) == count;
}

void expect_heard(listener& one, std::string const& value)
{
    EXPECT_EQ(post(one.object(), value), 0);
    EXPECT_TRUE(one.heard().wait_for_last(value));
    EXPECT_EQ(one.heard().all().back(), value);
}

TEST(SocketFile, ThatWasRemovedIsMadeAgain)
{
    notification_room const room;
    listener                one("one");
    listener                two("two");
    int const               descriptors = open_descriptors();

    fs::remove(room.own() + "/" + notification_room::sockets(room.own()).at(0));
    EXPECT_TRUE(sockets_become(room.own(), 2));
    expect_heard(one, "after its file was removed");
    expect_heard(two, "after the other's file was removed");

    fs::remove_all(room.own());
    EXPECT_TRUE(sockets_become(room.own(), 2));
    expect_heard(one, "after the directory was removed");
    expect_heard(two, "after the directory was removed");

    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(two.remove(), 0);
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
}

// In the shared place when there is one by then, as an observer that is added now.
TEST(SocketFile, IsMadeAgainWhereItBelongsByThen)
{
    notification_room const room;
    listener                one("object");
    room.share();
    fs::remove_all(room.own());
    EXPECT_TRUE(sockets_become(room.shared(), 1));
    expect_heard(one, "hello");
}

}  // namespace
}  // namespace zelieml::test
