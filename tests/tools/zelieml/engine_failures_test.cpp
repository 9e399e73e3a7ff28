// engine_failures_test.cpp - zelieml engine: messages that fail twice, and a service that is killed
// whenever it moves one

#include <csignal>
#include <gtest/gtest.h>
#include <sysexits.h>
#include <tuple>
#include <unistd.h>

#include "tests/support/contains.h"
#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/service_program.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

// Refuses every recipient.
mailserver::options refusing()
{
    mailserver::options options;
    options.faults = {mailserver::parse_fault("rcpt=refuse:550 5.1.1 no such user")};
    return options;
}

// Lets every session wait.
mailserver::options silent()
{
    mailserver::options options;
    options.faults = {mailserver::parse_fault("greeting=delay:60000")};
    return options;
}

class EngineFailures : public testing::Test
{
protected:
    mail_server                  refuser{refusing()};
    workplace                    work{refuser.smtp_port()};
    std::string const            undelivered = work.file("undelivered");
    std::unique_ptr<mail_server> taker;

    std::string undelivered_reason(std::string const& name) const
    {
        return read_file(work.file(".zelieml/reasons/undelivered/" + name));
    }

    // Puts the settings for a server that takes mail in the place of the others.
    void mend_settings()
    {
        taker = std::make_unique<mail_server>();
        write_file(work.file("new"), settings_for(taker->smtp_port()));
        EXPECT_EQ(::rename(work.file("new").c_str(), work.file("zelismes.cf").c_str()), 0);
    }
};

// The subjects of the messages in a folder.
strings subjects_in(std::string const& folder)
{
    strings subjects;
    for (std::string const& name : list_directory(folder)) {
        subjects.push_back(subject_of_file(folder + "/" + name));
    }
    return sorted(subjects);
}

TEST_F(EngineFailures, WhatFailsTwiceIsUndelivered)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"attempt\":1,");
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    service.run().wait_for("\"attempt\":2,");
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_TRUE(contains(undelivered_reason("a.sme"), "550 5.1.1 no such user"));
    EXPECT_EQ(kept_reason(work.path(), "a.sme"), "");
    write_message(work.file("a.sme"), "hello again");
    service.run().wait_for("\"undelivered\":\"a.sme~2\"}\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme"), "hello");
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme~2"), "hello again");
    EXPECT_EQ(service.run().err(), "");
}

TEST_F(EngineFailures, TextThatIsNoUtf8IsNotLostEither)
{
    write_message(work.file("a.sme"), "\xff\xfe");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subject_of_file(undelivered + "/a.sme"), "\xff\xfe");
    EXPECT_TRUE(contains(undelivered_reason("a.sme"), "550 5.1.1 no such user"));
    EXPECT_EQ(service.run().err(), "");
}

// Where the engine's own second attempts come meanwhile, and its queue is full many times over.
TEST_F(EngineFailures, OfHundredsThatFailNoneIsLost)
{
    constexpr int count = 900;
    for (int i = 0; i < count; ++i) {
        write_message(work.file(std::to_string(i) + ".sme"), "mail." + std::to_string(i));
    }
    service_program service(HOURS_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    EXPECT_TRUE(wait_until([&] { return list_directory(undelivered).size() == count; },
                           std::chrono::seconds(90)));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subjects_in(undelivered), sorted(numbered("mail", count)));
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_EQ(service.run().err(), "");
}

// However often it could ask the engine meanwhile, which deletes files when it has 500.
TEST(EngineSilence, AnAttemptWithoutEndCostsNoMail)
{
    mail_server     server(silent());
    workplace const work(server.smtp_port());
    constexpr int   count = 399;
    for (int i = 0; i < count; ++i) {
        write_message(work.file(std::to_string(i) + ".sme"), "hello");
    }
    set_for_now const quiet("ZELIEML_TEST_QUIET", "1");
    service_program   service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return held_in(work.path()).size() == count; }));
    for (int i = 0; i < 150; ++i) {
        service.run().signal(SIGHUP);
        wait_ms(10);
    }
    EXPECT_EQ(held_in(work.path()).size(), std::size_t{count});
}

// Such as one whose server never closes the connection.
TEST(EngineSilence, OfAnAttemptWithoutEndItComplainsOnce)
{
    mail_server     server(silent());
    workplace const work(server.smtp_port());
    write_message(work.file("a.sme"), "hello");
    set_for_now const quiet("ZELIEML_TEST_QUIET", "200");
    service_program   service(HOURS_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    EXPECT_TRUE(wait_until([&] {
        service.run().signal(SIGHUP);
        return contains(service.run().err(), "no attempt has ended for ");
    }));
    service.run().signal(SIGHUP);
    wait_ms(300);
    EXPECT_EQ(service.run().err().find('\n') + 1, service.run().err().size()) << "told once";
}

// Its time comes while as many second attempts are with the engine as may be.
TEST(EngineSecondAttempts, ComeAsSoonAsThereIsAPlace)
{
    constexpr int       most = 20;
    mailserver::options slow = refusing();
    auto const          at   = [](std::string const& fault, int times) {
        mailserver::fault each = mailserver::parse_fault("greeting=" + fault);
        each.times             = times;
        return each;
    };
    slow.faults.insert(slow.faults.begin(), {at("delay:0", most + 1), at("delay:3000", 1)});
    mail_server     refuser(slow);
    workplace const work(refuser.smtp_port());
    service_program service(HOURS_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    for (int i = 0; i < most; ++i) {
        write_message(work.file(std::to_string(i) + ".sme"), "hello");
    }
    wait_ms(500);
    write_message(work.file("late.sme"), "hello");
    EXPECT_TRUE(wait_until([&] { return file_exists(work.file("undelivered/late.sme")); }))
        << "not only when everything is looked at";
    EXPECT_EQ(service.end(), EX_OK);
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
    EXPECT_EQ(list_directory(work.file(".zelieml/reasons/waiting")), strings());
}

TEST_F(EngineFailures, WhatIsDroppedMeanwhileIsNotReported)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"attempt\":1,");
    ASSERT_EQ(run_program({ZELIEML_PROGRAM, "queue", "drop", "-w", work.path(), "a.sme"}), 0);
    write_message(work.file("b.sme"), "hello");
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/b.sme"); }));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_FALSE(contains(service.run().out(), "\"file\":\"a.sme\",\"to\":\"anna@b.test\","
                                               "\"subject\":\"hello\",\"attempt\":2"));
    EXPECT_EQ(list_directory(undelivered), strings{"b.sme"});
}

// The reason of one is not that of another of its name.
TEST_F(EngineFailures, ReasonsAreKeptApart)
{
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    mend_settings();
    write_message(work.file("a.sme"), "sent");
    EXPECT_TRUE(taker->wait_for_mails(1));
    service.run().wait_for("\"code\":0,");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_TRUE(contains(undelivered_reason("a.sme"), "550 5.1.1 no such user"));
}

TEST_F(EngineFailures, WaitsForRoomToRenameAMessage)
{
    set_for_now const move("ZELIEML_TEST_MOVE", ".tried");
    set_for_now const full("ZELIEML_TEST_FULL", work.file("full"));
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "No space left"); }));
    write_message(work.file("b.sme"), "waits");
    ::sleep(2);  // in which it is tried again
    EXPECT_EQ(waiting_in(work.path()), (strings{"a.sme", "b.sme"}));
    EXPECT_EQ(service.run().err().find('\n') + 1, service.run().err().size()) << "told once";
    ASSERT_EQ(::unlink(work.file("full").c_str()), 0);
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme"); }));
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/b.sme"); }));
    EXPECT_EQ(service.end(), EX_OK);
}

TEST_F(EngineFailures, EndsWithoutLosingWhatItCannotRename)
{
    set_for_now const move("ZELIEML_TEST_MOVE", ".tried");
    set_for_now const full("ZELIEML_TEST_FULL", work.file("full"));
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "No space left"); }));
    EXPECT_EQ(service.end(), EX_TEMPFAIL);
    EXPECT_EQ(subjects_in(work.file(".zelieml/sending")), strings{"hello"});
}

TEST_F(EngineFailures, TriesOnceMoreWhatItCannotGiveUp)
{
    set_for_now const move("ZELIEML_TEST_MOVE", ".second a.sme");  // and no number
    set_for_now const full("ZELIEML_TEST_FULL", work.file("full"));
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until(
        [&] { return contains(service.run().err(), "cannot be moved to " + undelivered); }));
    ASSERT_EQ(::unlink(work.file("full").c_str()), 0);
    EXPECT_TRUE(wait_until([&] { return file_exists(undelivered + "/a.sme"); }));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(work.path()), strings());
}

TEST_F(EngineFailures, LeavesWhereItIsWhatItCannotTake)
{
    set_for_now const move("ZELIEML_TEST_MOVE", "/a.sme a.sme~");
    set_for_now const full("ZELIEML_TEST_FULL", work.file("full"));
    mend_settings();
    write_file(work.file("full"), "");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "No space left"); }));
    write_message(work.file("b.sme"), "other");
    EXPECT_TRUE(taker->wait_for_mails(1)) << "it keeps no other waiting";
    service.run().signal(SIGHUP);
    EXPECT_TRUE(file_exists(work.file("a.sme")));
    ASSERT_EQ(::unlink(work.file("full").c_str()), 0);
    EXPECT_TRUE(wait_until([&] {
        service.run().signal(SIGHUP);
        return taker->mails().size() == 2;
    }));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(service.run().err().find('\n') + 1, service.run().err().size()) << "told once";
}

TEST_F(EngineFailures, EndsWhenItsEngineTakesNothing)
{
    set_for_now const none("ZELIEML_TEST_NO_QUEUE", "1");
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    ASSERT_TRUE(wait_until([&] { return contains(service.run().err(), "takes no message: "); }));
    EXPECT_EQ(service.run().wait(), EX_SOFTWARE);
    EXPECT_EQ(waiting_in(work.path()), strings{"a.sme"});
}

TEST_F(EngineFailures, ReportsWhatItHasMovedOnceThereIsMemory)
{
    set_for_now const move("ZELIEML_TEST_MOVE", ".first a.sme~");
    set_for_now const made("ZELIEML_TEST_MADE", work.file("none"));
    set_for_now const none("ZELIEML_TEST_NO_MEMORY_ONCE", work.file("none"));
    write_message(work.file("a.sme"), "hello");
    service_program service(HOURS_PROGRAM, work.path());
    service.run().wait_for("\"attempt\":1,");
    service.run().wait_for("\"undelivered\":\"a.sme\"}\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(count_of(service.run().out(), "\"to\":\"anna@b.test\",\"subject\":\"hello\""), 2);
    EXPECT_EQ(count_of(service.run().out(), "\n"), 2);
}

TEST_F(EngineFailures, WaitsForMemory)
{
    set_for_now const none("ZELIEML_TEST_NO_MEMORY", work.file("no memory"));
    mend_settings();
    service_program service(HOURS_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    write_file(work.file("no memory"), "");
    write_message(work.file("a.sme"), "hello");
    wait_ms(1500);  // in which it tries again
    EXPECT_EQ(taker->mails().size(), 0u);
    ASSERT_EQ(::unlink(work.file("no memory").c_str()), 0);
    EXPECT_TRUE(taker->wait_for_mails(1));
    EXPECT_EQ(service.end(), EX_OK);
}

// Its path is longer than what the engine takes.
TEST_F(EngineFailures, ATooLongNameKeepsNobodyWaiting)
{
    mend_settings();
    std::string const deep = work.outside() + "/" + std::string(235 - work.outside().size(), 'd');
    ASSERT_EQ(::rename(work.path(), deep.c_str()), 0);
    service_program first(HOURS_PROGRAM, deep);
    ASSERT_TRUE(first.is_ready());
    ASSERT_EQ(first.end(), EX_OK);
    std::string const key = std::string(200, 'x') + ".sme~1-1";
    write_message(deep + "/.zelieml/sending/" + key + ".tried", "long");
    write_file(deep + "/.zelieml/reasons/waiting/" + key, "{\"next\":1}");
    service_program second(HOURS_PROGRAM, deep);
    ASSERT_TRUE(second.is_ready());
    EXPECT_TRUE(taker->wait_for_mails(1));
    write_message(deep + "/a.sme", "hello");
    EXPECT_TRUE(taker->wait_for_mails(2));
    EXPECT_EQ(second.end(), EX_OK);
}

// ------------------------------------------------------------------ killed

// A move of a message: what its two names contain, as move_hook.cpp says.
struct move_row {
    char const* name;
    char const* names;
};

class EngineKilled : public EngineFailures,
                     public testing::WithParamInterface<std::tuple<move_row, char const*>>
{
};

TEST_P(EngineKilled, LosesAndDoublesNothing)
{
    auto const& [move, when] = GetParam();
    write_message(work.file("a.sme"), "hello");
    {
        set_for_now const meant("ZELIEML_TEST_MOVE", move.names);
        set_for_now const kill("ZELIEML_TEST_KILL", when);
        service_program   service(HOURS_PROGRAM, work.path());
        EXPECT_EQ(service.run().wait(), -SIGKILL);
    }
    EXPECT_EQ(waiting_in(work.path()).size() + list_directory(undelivered).size(), 1u);
    mend_settings();
    EXPECT_EQ(run_program({ZELIEML_PROGRAM, "queue", "retry", "-w", work.path()}), 0);
    service_program service(HOURS_PROGRAM, work.path());
    EXPECT_TRUE(taker->wait_for_mails(1));
    service.run().wait_for("\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(taker->mails().size(), 1u);
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_EQ(list_directory(undelivered), strings());
}

INSTANTIATE_TEST_SUITE_P(Move, EngineKilled,
                         testing::Combine(testing::Values(move_row{"Taken", "/a.sme a.sme~"},
                                                          move_row{"Tried", ".first a.sme~"},
                                                          move_row{"Second", ".tried a.sme~"},
                                                          move_row{"Undelivered", ".second a.sme"}),
                                          testing::Values("before", "after")),
                         [](auto const& row) {
                             return std::string(std::get<1>(row.param)) +
                                    std::get<0>(row.param).name;
                         });

}  // namespace

}  // namespace zelieml::test
