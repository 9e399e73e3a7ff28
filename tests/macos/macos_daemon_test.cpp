// macos_daemon_test.cpp - hosts that fork, and use the library only then
//
// This process never uses the frameworks itself, not even a run loop: its children are the first
// that do.

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/crypto.h"
#include "platform/notification.h"
#include "tests/macos/in_child.h"
#include "tests/support/main_thread.h"
#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

int hear(void* /*argument*/)
{
    listener   one("object");
    bool const posted = post("object", "from a daemon") == 0;
    bool const heard  = one.added() == 0 && posted && one.heard().wait_for(1) == 1 &&
                       one.heard().all() == std::vector<std::string>{"from a daemon"} &&
                       one.remove() == 0;
    return heard ? 0 : 1;
}

bool is_heard()
{
    return work_with_notifications(hear, nullptr) == 0;
}

bool has_digests()
{
    unsigned char digest[platform::md5_size];
    return platform::digest_md5("text", std::strlen("text"), digest) == 0;
}

TEST(Daemon, IsHeardAndObserves)
{
    notification_room const room;
    EXPECT_TRUE(in_child(is_heard));
}

TEST(Daemon, HasCryptography)
{
    EXPECT_TRUE(in_child(has_digests));
}

TEST(Daemon, MayForkOnceMoreBeforeItBegins)
{
    notification_room const room;
    EXPECT_TRUE(in_child([] { return in_child([] { return has_digests() && is_heard(); }); }));
}

TEST(Daemon, IsNotSettledByRemovingAnObserver)
{
    EXPECT_TRUE(in_child([] {
        return platform::remove_observer("n", "o", nullptr) == -1 && in_child(has_digests);
    }));
}

}  // namespace
}  // namespace zelieml::test
