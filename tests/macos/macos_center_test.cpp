// macos_center_test.cpp - a center that knows an observer late and delivers twice
//
// Of other processes, that is: they are children that were forked before this one used anything, not
// even a run loop.

#include <chrono>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "tests/support/mail_server.h"
#include "tests/support/main_thread.h"
#include "tests/support/notification_room.h"
#include "tests/support/wait_until.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using texts = std::vector<std::string>;

int const slow = ::setenv("ZELIEML_SLOW_CENTER", "1", 1);

// Another process, which posts every millisecond until it is ended.
class posting_process
{
public:
    posting_process() : child_(::fork())
    {
        if (child_ == 0) {
            ::alarm(60);
            for (;;) {
                post("object", "from another process");
                wait_ms(1);
            }
        }
    }
    ~posting_process()
    {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    posting_process(posting_process const&)            = delete;
    posting_process& operator=(posting_process const&) = delete;

private:
    pid_t const child_;
};

void with_notifications(std::function<void()> work)
{
    auto const do_it = [](void* argument) {
        (*static_cast<std::function<void()>*>(argument))();
        return 0;
    };
    work_with_notifications(do_it, &work);
}

// The first test: the process has to be the first that uses the frameworks, and so has its child.
TEST(SlowCenter, HearsAnotherProcessSomeTimeAfterItWasAsked)
{
    notification_room const room;
    posting_process const   other;
    with_notifications([] {
        steady_clock::time_point heard_at;
        steady_clock::time_point asked_at = steady_clock::now();
        listener                 one("object", test_name, [&](std::string const&) {
            if (heard_at == steady_clock::time_point()) {
                heard_at = steady_clock::now();
            }
        });
        ASSERT_EQ(one.added(), 0);
        EXPECT_GE(one.heard().wait_for(1), 1U);
        EXPECT_EQ(one.remove(), 0);
        EXPECT_GE(heard_at - asked_at, milliseconds(30));
    });
}

TEST(SlowCenter, DeliversTwiceAndHearsItsOwnProcessAtOnce)
{
    with_notifications([] {
        notification_room const room;
        listener                one("object");
        ASSERT_EQ(post("object", "first"), 0);
        ASSERT_EQ(post("object", "second"), 0);
        EXPECT_EQ(one.heard().wait_for(4), 4U);
        EXPECT_EQ(one.heard().all(), (texts{"first", "first", "second", "second"}));
    });
}

// The second delivery finds the path in the queue.
TEST(SlowCenter, HasAnEngineSendAMailOnce)
{
    with_notifications([] {
        notification_root const root;
        mail_server             server;
        workplace               work(server.smtp_port());
        running_engine          engine(work);
        EXPECT_EQ(post_mail(work.path(), "symbol", "first"), 0);
        EXPECT_EQ(post_mail(work.path(), "symbol", "second"), 0);
        EXPECT_TRUE(engine.results.wait_for(2));
        EXPECT_TRUE(wait_until([&] { return work.messages().empty(); }));
        EXPECT_EQ(post_mail(work.path(), "symbol", "third"), 0);
        EXPECT_TRUE(engine.results.wait_for(3));
        engine.stop();
        EXPECT_EQ(engine.results.all(), std::vector<result>(3, sent));
        EXPECT_EQ(subjects_of(server.mails()), (strings{"first", "second", "third"}));
    });
}

}  // namespace
}  // namespace zelieml::test
