// libnotifyw_test.cpp - the sender, with a notification centre that writes down what it is given

#include "libnotifyw/libnotifyw.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/notification.h"
#include "tests/support/failing_new.h"
#include "tests/support/slot.h"

namespace zelieml
{

namespace
{

std::vector<std::vector<std::string>> posted;
int                                   post_result = 0;

}  // namespace

namespace platform
{

// In the place of the system's.
int post_notification(char const* name, char const* object, char const* key, char const* value)
{
    posted.push_back({name, object, key, value});
    return post_result;
}

}  // namespace platform

namespace
{

class NotificationSender : public testing::Test
{
protected:
    NotificationSender() { posted.clear(); }
    ~NotificationSender() override { post_result = 0; }

    inotifyw_sender sender_;
};

TEST_F(NotificationSender, PostsThePathToTheSymbol)
{
    EXPECT_EQ(sender_.send("/w/20240131235959-00012345-0456.sme", "symbol"), 0);
    ASSERT_EQ(posted.size(), 1U);
    EXPECT_EQ(posted[0],
              (std::vector<std::string>{"zelieml_notifyname", "symbol", "new_mail_file_path",
                                        "/w/20240131235959-00012345-0456.sme"}));
}

TEST_F(NotificationSender, PostsWhateverThePathIs)
{
    EXPECT_EQ(sender_.send("", "symbol"), 0);
    EXPECT_EQ(sender_.send(std::string(5000, 'p'), "symbol"), 0);
    ASSERT_EQ(posted.size(), 2U);
    EXPECT_EQ(posted[0][3], "");
    EXPECT_EQ(posted[1][3].size(), 5000U);
}

TEST_F(NotificationSender, RefusesASymbolThatAddressesNobody)
{
    EXPECT_EQ(sender_.send("/w/a.sme", ""), -1);
    EXPECT_EQ(sender_.send("/w/a.sme", nullptr), -1);
    EXPECT_TRUE(posted.empty());
}

TEST_F(NotificationSender, FailsWhenTheSystemCannotPost)
{
    post_result = -1;
    EXPECT_EQ(sender_.send("/w/a.sme", "symbol"), -1);
}

TEST_F(NotificationSender, IsMadeWithItsContextAndFreed)
{
    ifactory_notifyw_sender factory;
    inotify_sender*         made = nullptr;
    ASSERT_EQ(factory.create(&made), 0);
    ASSERT_NE(made, nullptr);
    EXPECT_NE(made->get_context(), nullptr);
    EXPECT_EQ(made->send("/w/a.sme", "symbol"), 0);
    EXPECT_EQ(posted.size(), 1U);
    EXPECT_EQ(factory.destroy(made), 0);
}

TEST_F(NotificationSender, NeedsNoContextToSend)
{
    EXPECT_EQ(sender_.get_context(), nullptr);
    EXPECT_EQ(sender_.send("/w/a.sme", "symbol"), 0);
    EXPECT_EQ(sender_.create_context(), 0);
    EXPECT_NE(sender_.get_context(), nullptr);
    EXPECT_EQ(sender_.destroy_context(), 0);
    EXPECT_EQ(sender_.get_context(), nullptr);
    EXPECT_EQ(sender_.destroy_context(), 0) << "a second time";
}

TEST_F(NotificationSender, IsNotMadeWithoutMemory)
{
    ifactory_notifyw_sender factory;
    for (int good = 0; good < 2; ++good) {
        inotify_sender* made   = &sender_;
        int             result = 0;
        {
            test::failing_new const none(good);
            result = factory.create(&made);
        }
        EXPECT_EQ(result, -1) << good;
        EXPECT_EQ(made, nullptr) << good;
    }
}

TEST_F(NotificationSender, DestroysNothing)
{
    ifactory_notifyw_sender factory;
    EXPECT_EQ(factory.destroy(nullptr), 0);
}

TEST(NotificationSenderInterface, KeepsTheOrderOfItsOperations)
{
    EXPECT_EQ(test::slot_of(&inotify_sender::send), 0);
    EXPECT_EQ(test::slot_of(&inotify_sender::create_context), 1);
    EXPECT_EQ(test::slot_of(&inotify_sender::destroy_context), 2);
    EXPECT_EQ(test::slot_of(&inotify_sender::get_context), 3);
    EXPECT_EQ(test::slot_of(&ifactory_notify_sender::create), 0);
    EXPECT_EQ(test::slot_of(&ifactory_notify_sender::destroy), 1);
}

}  // namespace
}  // namespace zelieml
