// notification_trust_test.cpp - whom an observer believes, without a socket between

#include "platform/linux/notification_trust.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

namespace zelieml::test
{
namespace
{

constexpr uid_t user     = 4711;
constexpr uid_t stranger = 4712;

TEST(SafeDirectory, IsOneInWhichOthersCanExchangeNothingOfOthers)
{
    struct {
        uid_t       owner;
        mode_t      mode;
        bool        safe;
        char const* reason;
    } const cases[] = {
        {0, S_IFDIR | 0755, true, "root's, closed"},
        {user, S_IFDIR | 0700, true, "the user's, closed"},
        {stranger, S_IFDIR | 0755, false, "a stranger's"},
        {stranger, S_IFDIR | 01777, false, "a stranger's, sticky"},
        {0, S_IFDIR | 01777, true, "open to all, sticky"},
        {0, S_IFDIR | 01770, true, "open to a group, sticky"},
        {0, S_IFDIR | 0777, false, "open to all"},
        {0, S_IFDIR | 0770, false, "open to a group"},
        {0, S_IFDIR | 02775, false, "open to a group whose files it inherits"},
        {user, S_IFDIR | 0702, false, "the user's, open to others"},
        {0, S_IFREG | 0600, false, "a file"},
        {0, S_IFLNK | 0777, false, "a link"},
    };
    for (auto const& c : cases) {
        struct stat status = {};
        status.st_uid      = c.owner;
        status.st_mode     = c.mode;
        EXPECT_EQ(platform::is_safe_directory(status, user), c.safe) << c.reason;
    }
}

TEST(Trust, IsInRootAndTheUserWhateverTheyNameAndInNobodyElse)
{
    struct {
        uid_t       sender;
        bool        trusted;
        char const* reason;
    } const cases[] = {
        {user, true, "the observer's user"},
        {0, true, "root"},
        {stranger, false, "a stranger who does not own the file"},
    };
    for (auto const& c : cases) {
        for (std::string const path : {"/dev/null", "/missing/x.sme", "x.sme", ""}) {
            platform::notification_info info   = {true, "key", path};
            ucred const                 sender = {1, c.sender, 1};
            EXPECT_EQ(platform::may_be_trusted(sender, user, info), c.trusted)
                << c.reason << ": " << path;
            EXPECT_EQ(info.value, c.trusted ? path : "") << c.reason;
        }
    }
}

TEST(Trust, IsNotInAStrangersNotificationWithoutAValue)
{
    platform::notification_info info   = {false, "key", ""};
    ucred const                 sender = {1, stranger, 1};
    EXPECT_FALSE(platform::may_be_trusted(sender, user, info));
}

}  // namespace
}  // namespace zelieml::test
