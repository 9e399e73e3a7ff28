// engine_failures_test.cpp - zelieml engine: messages that fail twice, and a service that is killed
// while it gives them up

#include <csignal>
#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/service_program.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

bool contains(std::string const& text, std::string const& part)
{
    return text.find(part) != text.npos;
}

// Refuses every recipient.
mailserver::options refusing()
{
    mailserver::options options;
    options.faults = {mailserver::parse_fault("rcpt=refuse:550 5.1.1 no such user")};
    return options;
}

class EngineFailures : public testing::Test
{
protected:
    mail_server                  refuser{refusing()};
    workplace                    work{refuser.smtp_port()};
    std::string const            undelivered = work.file("undelivered");
    std::unique_ptr<mail_server> taker;

    // Puts the settings for a server that takes mail in the place of the others.
    void mend_settings()
    {
        taker = std::make_unique<mail_server>();
        write_file(work.file("new"), settings_for(taker->smtp_port()));
        EXPECT_EQ(::rename(work.file("new").c_str(), work.file("zelismes.cf").c_str()), 0);
    }
};

TEST_F(EngineFailures, WhatFailsTwiceIsUndelivered)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme"); }));
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    service.run().wait_for("\"attempt\":2,");
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_TRUE(contains(read_file(work.file(".zelieml/reasons/a.sme")), "550 5.1.1 no such user"));
    write_message(work.file("a.sme"), "hello again");
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme~2"); }));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme"), "hello");
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme~2"), "hello again");
    EXPECT_EQ(service.run().err(), "");
}

TEST_F(EngineFailures, TextThatIsNoUtf8IsNotLostEither)
{
    write_message(work.file("a.sme"), "\xff\xfe");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme"); }));
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme"), "\xff\xfe");
    EXPECT_TRUE(contains(read_file(work.file(".zelieml/reasons/a.sme")), "550 5.1.1 no such user"));
    EXPECT_EQ(service.run().err(), "");
}

TEST_F(EngineFailures, TheSecondAttemptTakesTheSettingsOfTheMoment)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"attempt\":1,");
    mend_settings();
    EXPECT_TRUE(taker->wait_for_mails(1));
    service.run().wait_for("\"attempt\":2,\"code\":0,");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(list_directory(undelivered), strings());
    EXPECT_EQ(list_directory(work.file(".zelieml/reasons")), strings());
}

TEST_F(EngineFailures, WhatIsDeletedMeanwhileIsNotReported)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"attempt\":1,");
    ASSERT_EQ(::unlink(work.file("a.sme").c_str()), 0);
    write_message(work.file("b.sme"), "hello");
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/b.sme"); }));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_FALSE(contains(service.run().out(), "\"file\":\"a.sme\",\"to\":\"anna@b.test\","
                                               "\"subject\":\"hello\",\"attempt\":2"));
    EXPECT_EQ(list_directory(undelivered), strings{"b.sme"});
}

TEST_F(EngineFailures, WaitsForRoomToMoveAMessage)
{
    environment const full("ZELIEML_TEST_FULL", work.file("full"));
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "No space left"); }));
    write_message(work.file("b.sme"), "waits");
    ::sleep(2);  // in which it is tried again
    EXPECT_TRUE(file_exists(work.file("a.sme")));
    EXPECT_EQ(service.run().err().find('\n') + 1, service.run().err().size()) << "told once";
    ASSERT_EQ(::unlink(work.file("full").c_str()), 0);
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme"); }));
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/b.sme"); }));
    EXPECT_EQ(service.end(), EX_OK);
}

TEST_F(EngineFailures, EndsWithoutLosingWhatItCannotMove)
{
    environment const full("ZELIEML_TEST_FULL", work.file("full"));
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "No space left"); }));
    EXPECT_EQ(service.end(), EX_TEMPFAIL);
    EXPECT_EQ(subject_of_file(work.file("a.sme")), "hello");
}

TEST_F(EngineFailures, KilledBeforeItMovesAMessage)
{
    write_message(work.file("a.sme"), "hello");
    {
        environment const kill("ZELIEML_TEST_KILL", "before");
        service_program   service(HOURS_PROGRAM, work.path());
        EXPECT_TRUE(service.is_ready());
        EXPECT_EQ(service.run().wait(), -SIGKILL);
    }
    EXPECT_EQ(waiting_in(work.path()), strings{"a.sme"});
    EXPECT_EQ(list_directory(undelivered), strings());
    mend_settings();
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(taker->wait_for_mails(1));
}

TEST_F(EngineFailures, KilledAfterItHasMovedAMessage)
{
    write_message(work.file("a.sme"), "hello");
    {
        environment const kill("ZELIEML_TEST_KILL", "after");
        service_program   service(HOURS_PROGRAM, work.path());
        EXPECT_TRUE(service.is_ready());
        EXPECT_EQ(service.run().wait(), -SIGKILL);
    }
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme"), "hello");
    EXPECT_TRUE(contains(read_file(work.file(".zelieml/reasons/a.sme")), "550 5.1.1 no such user"));
}

}  // namespace

}  // namespace zelieml::test
