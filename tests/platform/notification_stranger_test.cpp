// notification_stranger_test.cpp - an observer is told who posted, if it is a stranger

#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/notification.h"
#include "tests/platform/notification_peers.h"
#include "tests/support/notification_room.h"
#include "tests/support/skip.h"

namespace zelieml::test
{

namespace
{

constexpr uid_t stranger = 65534;

// The senders of the notifications that came, in their order.
class heard_senders
{
public:
    heard_senders() { EXPECT_EQ(platform::add_observer(test_name, "object", proc, this), 0); }
    ~heard_senders() { EXPECT_EQ(platform::remove_observer(test_name, "object", this), 0); }

    // The next one; 20 s are long enough for it to come.
    std::optional<uid_t> next()
    {
        std::unique_lock<std::mutex> hold(guard_);
        EXPECT_TRUE(changed_.wait_for(hold, std::chrono::seconds(20),
                                      [&] { return taken_ < senders_.size(); }));
        return taken_ < senders_.size() ? senders_[taken_++] : std::nullopt;
    }

private:
    static void proc(platform::notification_center* /*center*/, void* observer,
                     platform::notification_text const* /*name*/,
                     platform::notification_text const* /*object*/,
                     platform::notification_info const* info)
    {
        auto&                             self = *static_cast<heard_senders*>(observer);
        std::lock_guard<std::mutex> const hold(self.guard_);
        self.senders_.push_back(platform::notification_stranger(info));
        self.changed_.notify_all();
    }

    std::mutex                        guard_;
    std::condition_variable           changed_;
    std::vector<std::optional<uid_t>> senders_;
    std::size_t                       taken_ = 0;
};

}  // namespace

TEST(Sender, IsNoStrangerToHimself)
{
    notification_room const room;
    heard_senders           heard;
    EXPECT_EQ(post("object", "/some/file"), 0);
    EXPECT_EQ(heard.next(), std::nullopt);
}

TEST(Sender, OfAnotherUserIsNamed)
{
    SKIP_UNLESS_ROOT("a sender of another user");
    notification_room const room;
    room.share();
    std::string const directory = room.root() + "/tmp";
    std::string const his       = directory + "/his.sme";
    ASSERT_EQ(::chmod(directory.c_str(), 01777), 0);
    write_file(his, "");
    ASSERT_EQ(::chown(his.c_str(), stranger, stranger), 0);

    heard_senders     heard;
    notification_peer peer({{room.variable()}, stranger});
    EXPECT_EQ(peer.post("object", his).result, 0);
    EXPECT_EQ(heard.next(), stranger);

    // An engine of another user hears root: root is no stranger to anybody.
    ASSERT_EQ(::seteuid(stranger), 0);
    {
        heard_senders strangers_engine;
        ASSERT_EQ(::seteuid(0), 0);
        EXPECT_EQ(post("object", "/some/file"), 0);
        EXPECT_EQ(strangers_engine.next(), std::nullopt);
        EXPECT_EQ(heard.next(), std::nullopt);
        ASSERT_EQ(::seteuid(stranger), 0);
    }
    ASSERT_EQ(::seteuid(0), 0);
}

}  // namespace zelieml::test
