// stop_test.cpp - stopping engines, by the real clock: from outside, from callbacks, in mid-send

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/program.h"
#include "tests/support/threads.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

using mailserver::fault;

notification_root const root;

// A server that keeps its client waiting at a step.
mailserver::options slow(std::string const& step, int ms)
{
    mailserver::options options;
    options.faults = {{step, fault::action::delay, ms}};
    return options;
}

}  // namespace

TEST(Stop, OfAnIdleEngineDoesNotWaitForItsTick)
{
    mail_server server;
    workplace   work(server.smtp_port());
    for (int i = 0; i < 5; ++i) {
        running_engine engine(work);
        EXPECT_LT(ms_of([&] { engine.stop(); }), 500);
    }
}

TEST(Stop, WaitsForTheSendInProgress)
{
    mail_server    server(slow("quit", 1500));
    workplace      work(server.smtp_port());
    running_engine engine(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "in progress"), 0);
    EXPECT_TRUE(server.wait_for_mails(1));
    int const ms = ms_of([&] { engine.stop(); });
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent}) << "reported before it stopped";
    EXPECT_GE(ms, 1000);
    EXPECT_LT(ms, 3000);
    EXPECT_EQ(work.messages(), strings());
}

TEST(Stop, LeavesThoseThatWerePickedWithIt)
{
    mail_server    server(slow("text", 700));
    workplace      work(server.smtp_port());
    running_engine engine(work);
    for (std::string const& mail : numbered("mail", 3)) {
        EXPECT_EQ(post_mail(work.path(), "symbol", mail), 0);
    }
    EXPECT_TRUE(server.wait_for_mails(1));
    engine.stop();
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent});
    EXPECT_EQ(subjects_of(server.mails()), strings{"mail.0"});
    EXPECT_EQ(work.messages().size(), 2u);
}

TEST(Stop, LetsNothingReachTheCallbacksAfterwards)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "before"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    engine.stop();
    EXPECT_EQ(root.sockets(), strings());
    EXPECT_EQ(post_mail(work.path(), "symbol", "after"), 0);
    EXPECT_TRUE(wait_until_ended(engine.results.caller())) << "nobody is left to send or to call";
    EXPECT_EQ(engine.results.all().size(), 1u);
    EXPECT_EQ(work.messages().size(), 1u);
}

// What a callback does with its engine, and what came of it.
struct own_stop {
    void*            eml     = nullptr;
    int              status  = -2;
    std::atomic<int> entered = 0;
    std::atomic<int> left    = 0;

    static int stop(void*, void* user)
    {
        auto* const self = static_cast<own_stop*>(user);
        ++self->entered;
        self->status = eml_stop(self->eml);
        ++self->left;
        return 0;
    }
    static int stop_multi(void*, void* user)
    {
        auto* const self = static_cast<own_stop*>(user);
        ++self->entered;
        self->status = eml_stop_multi(&self->eml);
        ++self->left;
        return 0;
    }
};

class StopInACallback : public ::testing::TestWithParam<int (*)(void*, void*)>
{
};

INSTANTIATE_TEST_SUITE_P(, StopInACallback, ::testing::Values(own_stop::stop, own_stop::stop_multi),
                         [](auto const& row) {
                             return row.param == own_stop::stop ? "eml_stop" : "eml_stop_multi";
                         });

TEST_P(StopInACallback, ReturnsAtOnceAndNothingMoreIsSent)
{
    mail_server server;
    workplace   work(server.smtp_port());
    result_list results;
    own_stop    mine;
    ASSERT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &mine.eml), 0);
    EXPECT_EQ(eml_set_callback(mine.eml, GetParam(), &mine), 0);
    EXPECT_EQ(eml_set_callback(mine.eml, result_list::note, &results), 0);
    for (std::string const& mail : numbered("mail", 3)) {
        EXPECT_EQ(post_mail(work.path(), "symbol", mail), 0);
    }
    EXPECT_TRUE(results.wait_for(1)) << "the callbacks behind it are called";
    EXPECT_EQ(mine.status, 0);
    EXPECT_TRUE(wait_until_ended(results.caller())) << "nobody is left to send or to call";
    EXPECT_EQ(work.messages().size(), 2u);
    EXPECT_EQ(root.sockets(), strings());
    EXPECT_EQ(results.all(), std::vector<result>{sent});
    EXPECT_EQ(mine.entered, 1);
    EXPECT_EQ(subjects_of(server.mails()), strings{"mail.0"});

    // The next engine finds the place free.
    running_engine next(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "next"), 0);
    EXPECT_TRUE(next.results.wait_for(1));
    next.stop();
    EXPECT_EQ(subjects_of(server.mails()), (strings{"mail.0", "next"}));
}

// Its own symbol and its own work directory, from the very thread that is about to end.
TEST(Stop, InACallbackMayBeFollowedByAStartThere)
{
    struct restart {
        workplace const& work;
        result_list      results  = {};
        void*            eml      = nullptr;
        int              statuses = 0;

        static int run(void* record, void* user)
        {
            auto* const self = static_cast<restart*>(user);
            self->statuses += eml_stop(self->eml);
            self->statuses += eml_start_with_stocksymbol(self->work.path(), "symbol", &self->eml);
            self->statuses += eml_set_callback(self->eml, result_list::note, &self->results);
            result_list::note(record, &self->results);
            return 0;
        }
    };
    mail_server server;
    workplace   work(server.smtp_port());
    restart     mine = {work};
    ASSERT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &mine.eml), 0);
    EXPECT_EQ(eml_set_callback(mine.eml, restart::run, &mine), 0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "first"), 0);
    EXPECT_TRUE(mine.results.wait_for(1));
    EXPECT_EQ(post_mail(work.path(), "symbol", "second"), 0);
    EXPECT_TRUE(mine.results.wait_for(2));
    EXPECT_EQ(mine.statuses, 0);
    EXPECT_EQ(eml_stop(mine.eml), 0);
    EXPECT_EQ(subjects_of(server.mails()), (strings{"first", "second"}));
}

TEST(Stop, OfAnotherEngineInACallbackWaitsForThatOne)
{
    mail_server    server;
    mail_server    slow_server(slow("quit", 700));
    workplace      work(server.smtp_port());
    workplace      slow_work(slow_server.smtp_port());
    running_engine engine(work, "one");
    running_engine other(slow_work, "other");
    auto const     stop_other = [](void*, void* user) {
        static_cast<running_engine*>(user)->stop();
        return 0;
    };
    EXPECT_EQ(eml_set_callback(engine.handle(), stop_other, &other), 0);
    EXPECT_EQ(post_mail(slow_work.path(), "other", "slow"), 0);
    EXPECT_TRUE(slow_server.wait_for_mails(1));
    EXPECT_EQ(post_mail(work.path(), "one", "x"), 0);
    engine.results.wait_for(1);
    EXPECT_TRUE(other.results.wait_for(1));
    engine.stop();
    EXPECT_EQ(other.handle(), nullptr);
    EXPECT_EQ(other.results.all(), std::vector<result>{sent});
}

// While one stop waits for the worker, the worker's callback stops too.
TEST(Stop, OfSeveralPathsIsMadeByTheFirst)
{
    struct late {
        void*                  eml      = nullptr;
        std::atomic<bool>      entered  = false;
        std::atomic<thread_id> stopping = 0;
        int                    status   = -2;
        void*                  seen     = nullptr;

        static int stop_again(void*, void* user)
        {
            auto* const self = static_cast<late*>(user);
            self->entered    = true;
            wait_until([&] { return self->stopping != 0; });
            EXPECT_TRUE(wait_until_blocked(self->stopping));
            void* copy   = self->eml;
            self->status = eml_stop_multi(&copy);
            self->seen   = copy;
            return 0;
        }
    };
    mail_server server;
    workplace   work(server.smtp_port());
    late        mine;
    ASSERT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &mine.eml), 0);
    void* const handle = mine.eml;
    EXPECT_EQ(eml_set_callback(mine.eml, late::stop_again, &mine), 0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    EXPECT_TRUE(wait_until([&] { return mine.entered.load(); }));
    void* eml     = mine.eml;
    mine.stopping = this_thread();
    EXPECT_EQ(eml_stop_multi(&eml), 0);
    EXPECT_EQ(eml, nullptr);
    EXPECT_EQ(mine.status, 0);
    EXPECT_EQ(mine.seen, handle) << "the second did nothing";
    EXPECT_EQ(eml_stop_multi(&eml), 0) << "nothing is left to stop";
    EXPECT_EQ(root.sockets(), strings());
}

// Callbacks that change the list are called as it was; the change counts from the next attempt on.
TEST(Stop, IsNotNeededForChangingTheCallbacks)
{
    struct changing {
        void*       eml = nullptr;
        result_list results;
        strings     calls;

        static int once(void*, void* user)
        {
            auto* const self = static_cast<changing*>(user);
            self->calls.push_back("once");
            EXPECT_EQ(eml_reset_callback(self->eml, once), 0);
            EXPECT_EQ(eml_set_callback(self->eml, added, self), 0);
            return 0;
        }
        static int added(void*, void* user)
        {
            static_cast<changing*>(user)->calls.push_back("added");
            return 0;
        }
    };
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    changing       mine;
    mine.eml = engine.handle();
    EXPECT_EQ(eml_reset_callback(mine.eml, result_list::note), 0);
    EXPECT_EQ(eml_set_callback(mine.eml, changing::once, &mine), 0);
    EXPECT_EQ(eml_set_callback(mine.eml, result_list::note, &mine.results), 0);
    for (std::size_t mails = 1; mails <= 2; ++mails) {
        EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
        EXPECT_TRUE(mine.results.wait_for(mails));
    }
    engine.stop();
    EXPECT_EQ(mine.calls, (strings{"once", "added"}));
}

}  // namespace zelieml::test
