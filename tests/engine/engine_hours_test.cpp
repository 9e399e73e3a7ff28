// engine_hours_test.cpp - what an engine does with a mail in the hours that follow, from outside

#include <algorithm>
#include <gtest/gtest.h>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_pause.h"
#include "tests/support/program.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;
closed_port const       nobody;

class EngineHours : public ::testing::Test
{
protected:
    EngineHours()
    {
        set_wall_clock(1700000000, 1);
        clear_traces();
    }

    // Waits until the engine has been told of so many files.
    static void wait_for_queued(int count)
    {
        EXPECT_TRUE(wait_until([&] {
            strings const texts = traces();
            return std::count(texts.begin(), texts.end(), "add file %s") == count;
        }));
    }
};

result const no_connection = {eml_send_error_connection, ""};

}  // namespace

TEST_F(EngineHours, TriesAMailTwiceAndNoMore)
{
    workplace      work(nobody.number());
    running_engine engine(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    wait_for_queued(1);

    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>{no_connection});
    pass_pauses(1798);
    EXPECT_EQ(engine.results.all().size(), 1u);
    EXPECT_EQ(work.messages().size(), 1u);
    // The third of the passes that come every ten minutes.
    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>(2, no_connection));
    EXPECT_EQ(work.messages(), strings());
    pass_pauses(3700);
    EXPECT_EQ(engine.results.all().size(), 2u);
}

TEST_F(EngineHours, TriesAFileThatIsNotThereTwiceAndNoMore)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    result const   not_there = {eml_send_error_other, "250 localhost\r\n"};
    EXPECT_EQ(eml_post_message_file_with_stocksymbol("/no such file", "symbol"), 0);
    wait_for_queued(1);
    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>(1, not_there));
    pass_pauses(2400);
    EXPECT_EQ(engine.results.all(), std::vector<result>(2, not_there));
    pass_pauses(2400);
    EXPECT_EQ(engine.results.all().size(), 2u);
}

TEST_F(EngineHours, SendsAMailAtTheSecondAttempt)
{
    mailserver::options options;
    options.faults = {{"greeting", mailserver::fault::action::refuse, 0, "421 busy", 1}};
    mail_server    server(options);
    workplace      work(server.smtp_port());
    running_engine engine(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    wait_for_queued(1);
    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>{no_connection});
    pass_pauses(2400);
    EXPECT_EQ(engine.results.all(), (std::vector<result>{no_connection, sent}));
    EXPECT_EQ(subjects_of(server.mails()), strings{"x"});
    EXPECT_EQ(work.messages(), strings());
}

// Posted to a symbol that nobody has, but into the work directory of an engine.
TEST_F(EngineHours, FindsAMailThatItHasNotHeardOf)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    EXPECT_EQ(post_mail(work.path(), "another", "x"), 0);
    pass_pauses(1799);
    EXPECT_EQ(server.mails().size(), 0u);
    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent});
    EXPECT_EQ(subjects_of(server.mails()), strings{"x"});
    EXPECT_EQ(work.messages(), strings());
}

}  // namespace zelieml::test
