// queue_test.cpp - zelieml queue list, retry and drop

#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/files.h"
#include "tests/support/loopback_program.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

using nlohmann::json;

std::time_t const noon = 1795262400;  // 2026-11-21 12:00:00 UTC

void set_time(std::string const& path, std::time_t seconds)
{
    timespec const times[2] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

class Queue : public testing::Test
{
protected:
    temp_dir const dir;

    // As a service has left it.
    Queue()
    {
        for (char const* const folder :
             {"undelivered", ".zelieml", ".zelieml/sending", ".zelieml/reasons",
              ".zelieml/reasons/waiting", ".zelieml/reasons/undelivered"}) {
            ::mkdir(dir.file(folder).c_str(), 0700);
        }
        write_file(dir.file(".zelieml/lock"), "1\n");
    }

    static std::string message(std::string const& subject)
    {
        return "encoding: UTF-8\nfrom: printer7@office.test\nto: anna@office.test\nsubject: " +
               subject + "\nreplyto: help@office.test\nThe tray is empty.\n";
    }

    void post(std::string const& name, std::time_t time = noon) const
    {
        write_file(dir.file(name), message(name));
        set_time(dir.file(name), time);
    }

    // As a service holds a message that was posted under this name.
    static std::string held(std::string const& name, std::string const& reached)
    {
        return name + "~17f0-1." + reached;
    }
    void hold(std::string const& name, std::string const& reached, std::time_t time = noon) const
    {
        std::string const path = dir.file(".zelieml/sending/" + held(name, reached));
        write_file(path, message(name));
        set_time(path, time);
    }

    // The reason of a message, as the service keeps it.
    void fail_held(std::string const& name) const { keep("waiting/" + name + "~17f0-1"); }
    void fail_undelivered(std::string const& name) const { keep("undelivered/" + name); }
    void keep(std::string const& name) const
    {
        json const kept = {{"reason", "connect to mail.test:25: Connection refused"}};
        write_file(dir.file(".zelieml/reasons/" + name), kept.dump());
    }

    strings reasons() const
    {
        strings names = list_directory(dir.file(".zelieml/reasons/waiting"));
        for (std::string const& name : list_directory(dir.file(".zelieml/reasons/undelivered"))) {
            names.push_back(name);
        }
        return names;
    }
    strings held() const { return list_directory(dir.file(".zelieml/sending")); }
    strings undelivered() const { return list_directory(dir.file("undelivered")); }
    // Without folders and settings.
    strings waiting() const
    {
        strings names;
        for (std::string const& name : list_directory(dir.path())) {
            if (name.find(".sme") != name.npos) {
                names.push_back(name);
            }
        }
        return names;
    }

    outcome run(strings words) const
    {
        words.insert(words.begin(), "queue");
        words.insert(words.end(), {"-w", dir.path()});
        return run_zelieml(words);
    }

    outcome run_well(strings const& words) const
    {
        outcome const made = run(words);
        EXPECT_EQ(made.status, EX_OK);
        EXPECT_EQ(made.err, "");
        return made;
    }

    void expect_failure(strings const& words, int status, std::string const& text) const
    {
        outcome const made = run(words);
        EXPECT_EQ(made.status, status);
        EXPECT_EQ(made.out, "");
        EXPECT_EQ(made.err.find("zelieml: "), 0U) << made.err;
        EXPECT_NE(made.err.find(text), made.err.npos) << made.err;
    }
};

TEST_F(Queue, AnEmptyOneIsListedAsNothing)
{
    EXPECT_EQ(run_well({"list"}).out, "");
    EXPECT_EQ(run_well({"list", "--json"}).out, "[]\n");
    EXPECT_EQ(run_well({"list", "--names"}).out, "");
}

TEST_F(Queue, NeedsNoFolders)
{
    temp_dir const bare;
    write_file(bare.file("a.sme"), message("a"));
    EXPECT_EQ(run_zelieml({"queue", "list", "-w", bare.path(), "--names"}).out, "a.sme\n");
    EXPECT_EQ(run_zelieml({"queue", "retry", "-w", bare.path()}).status, EX_OK);
    EXPECT_EQ(list_directory(bare.path()), strings{"a.sme"});
}

TEST_F(Queue, IsListedOldestFirst)
{
    post("new.sme", noon + 60);
    post("old.sme");
    hold("held.sme", "first", noon + 30);
    post("undelivered/b.sme", noon - 60);
    post("undelivered/a.sme", noon - 30);
    post("no.message");
    EXPECT_EQ(run_well({"list", "--names"}).out,
              "old.sme\nheld.sme\nnew.sme\nundelivered/b.sme\nundelivered/a.sme\n");
}

TEST_F(Queue, IsListedForPeople)
{
    set_for_now const zone("TZ", "UTC");
    hold("a.sme", "tried");
    fail_held("a.sme");
    write_file(dir.file("undelivered/b.sme"),
               "from: a@b.test\nto: c@d.test\ncc: e@f.test\nsubject: \033[2J!\n");
    set_time(dir.file("undelivered/b.sme"), noon + 1);
    EXPECT_EQ(run_well({"list"}).out, "a.sme since 2026-11-21 12:00:00, 124 bytes\n"
                                      "    printer7@office.test to anna@office.test: a.sme\n"
                                      "    connect to mail.test:25: Connection refused\n"
                                      "undelivered/b.sme since 2026-11-21 12:00:01, 56 bytes\n"
                                      "    a@b.test to c@d.test, e@f.test: ?[2J!\n");
}

TEST_F(Queue, IsListedAsJson)
{
    write_file(dir.file("a.sme"), "encoding: ISO-2022-JP\nfrom: a@b.test\nto: c@d.test\nsubject: "
                                  "\033$B%H%l%$\033(B 2\n\nThe body.\n");
    set_time(dir.file("a.sme"), noon);
    post("undelivered/b.sme");
    fail_undelivered("b.sme");
    json const listed = json::parse(run_well({"list", "--json"}).out);
    EXPECT_EQ(listed[0], json({{"file", "a.sme"},
                               {"state", "waiting"},
                               {"since", "2026-11-21T12:00:00Z"},
                               {"size", 85},
                               {"from", "a@b.test"},
                               {"to", "c@d.test"},
                               {"cc", ""},
                               {"subject", "トレイ 2"},
                               {"reason", ""},
                               {"fault", ""}}));
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[1]["file"], "undelivered/b.sme");
    EXPECT_EQ(listed[1]["state"], "undelivered");
    EXPECT_EQ(listed[1]["reason"], "connect to mail.test:25: Connection refused");
}

TEST_F(Queue, SaysWhatIsNoMessageThatCanBeSent)
{
    temp_dir const elsewhere;
    write_file(elsewhere.file("secret"), "subject: secret\n");
    EXPECT_EQ(::symlink(elsewhere.file("secret").c_str(), dir.file("a.sme").c_str()), 0);
    EXPECT_EQ(::link(elsewhere.file("secret").c_str(), dir.file("b.sme").c_str()), 0);
    EXPECT_EQ(::mkfifo(dir.file("c.sme").c_str(), 0600), 0);
    EXPECT_EQ(::mkdir(dir.file("d.sme").c_str(), 0700), 0);
    write_file(dir.file("e.sme"), "");
    EXPECT_EQ(::truncate(dir.file("e.sme").c_str(), (off_t{64} << 20) + 1), 0);
    json const listed = json::parse(run_well({"list", "--json"}).out);
    write_file(dir.file("f.sme"), "The tray is empty.\n");
    json const last = json::parse(run_well({"list", "--json"}).out).at(5);
    EXPECT_EQ(last["fault"], "no message: it has no sender, no recipient and no subject");
    ASSERT_EQ(listed.size(), 5U);
    for (json const& each : listed) {
        EXPECT_NE(each["fault"], "") << each;
        EXPECT_EQ(each["subject"], "") << each;
    }
}

TEST_F(Queue, ALotIsListed)
{
    for (int i = 0; i < 1000; ++i) {
        write_file(dir.file(std::to_string(i) + ".sme"), message("a"));
    }
    EXPECT_EQ(json::parse(run_well({"list", "--json"}).out).size(), 1000U);
}

TEST_F(Queue, ABrokenReasonIsNone)
{
    hold("a.sme", "tried");
    for (char const* const text : {"", "{", "[1]", "{\"reason\": 7}", "null"}) {
        write_file(dir.file(".zelieml/reasons/waiting/a.sme~17f0-1"), text);
        EXPECT_EQ(json::parse(run_well({"list", "--json"}).out)[0]["reason"], "") << text;
    }
}

TEST_F(Queue, SeveralOfOneNameAreToldApart)
{
    post("a.sme");
    hold("a.sme", "first", noon + 1);
    hold("a.sme", "tried", noon + 2);
    EXPECT_EQ(run_well({"list", "--names"}).out, "a.sme\nsending/" + held("a.sme", "first") +
                                                     "\nsending/" + held("a.sme", "tried") + "\n");
    run_well({"drop", "a.sme", "sending/" + held("a.sme", "first")});
    EXPECT_EQ(waiting(), strings{});
    EXPECT_EQ(held(), strings{held("a.sme", "tried")});
    EXPECT_EQ(run_well({"list", "--names"}).out, "a.sme\n");
    run_well({"drop", "a.sme"});
    EXPECT_EQ(held(), strings{});
}

TEST_F(Queue, AMessageIsNamedAsATerminalShowsIt)
{
    post("a\x01\xe9.sme");
    std::string const shown = run_well({"list", "--names"}).out;
    EXPECT_EQ(shown, "a?"
                     "?.sme\n");
    run_well({"drop", "a?"
                      "?.sme"});
    EXPECT_EQ(waiting(), strings{});
    post("b\x01.sme");
    post("b\x02.sme");
    expect_failure({"drop", "b?.sme"}, EX_NOINPUT, "is the name of several messages");
}

// ---- retry

TEST_F(Queue, WhatWasNotDeliveredIsRetriedUnderANewName)
{
    post("undelivered/a.sme");
    post("undelivered/b.sme");
    fail_undelivered("a.sme");
    EXPECT_EQ(run_well({"retry", "undelivered/a.sme"}).out, "");
    EXPECT_EQ(undelivered(), strings{"b.sme"});
    EXPECT_EQ(waiting(), strings{"a.sme~2"});
    EXPECT_EQ(read_file(dir.file("a.sme~2")), message("undelivered/a.sme"));
}

TEST_F(Queue, AllThatWasNotDeliveredIsRetried)
{
    post("undelivered/a.sme");
    post("undelivered/b.sme");
    post("c.sme");
    EXPECT_EQ(run_well({"retry"}).out, "");
    EXPECT_EQ(undelivered(), strings{});
    EXPECT_EQ(waiting(), (strings{"a.sme~2", "b.sme~2", "c.sme"}));
}

TEST_F(Queue, WhatFailedOnceIsRetriedUnderANewName)
{
    hold("a.sme", "tried");
    fail_held("a.sme");
    EXPECT_EQ(run_well({"retry", "a.sme"}).out, "");
    EXPECT_EQ(waiting(), strings{"a.sme~2"});
    EXPECT_EQ(held(), strings{});
    EXPECT_EQ(reasons(), strings{});
}

TEST_F(Queue, WhatMayBeSentAtThisMomentIsNotTouched)
{
    post("untried.sme");
    hold("first.sme", "first");
    hold("second.sme", "second");
    strings const before = held();
    expect_failure({"retry", "untried.sme"}, EX_TEMPFAIL, "untried.sme has not been tried yet");
    expect_failure({"retry", "first.sme"}, EX_TEMPFAIL, "first.sme is about to be tried");
    expect_failure({"retry", "second.sme"}, EX_TEMPFAIL, "second.sme is about to be tried");
    EXPECT_EQ(held(), before);
    EXPECT_EQ(waiting(), strings{"untried.sme"});
}

TEST_F(Queue, OneThatIsNotThereStopsNoOther)
{
    post("undelivered/a.sme");
    expect_failure({"retry", "undelivered/b.sme", "undelivered/a.sme"}, EX_NOINPUT,
                   "undelivered/b.sme is not in the queue");
    EXPECT_EQ(undelivered(), strings{});
}

// ---- drop

TEST_F(Queue, MessagesAreDroppedWithTheirReasons)
{
    hold("a.sme", "tried");
    post("b.sme");
    post("undelivered/c.sme");
    fail_held("a.sme");
    fail_undelivered("c.sme");
    EXPECT_EQ(run_well({"drop", "a.sme", "undelivered/c.sme"}).out, "");
    EXPECT_EQ(waiting(), strings{"b.sme"});
    EXPECT_EQ(undelivered(), strings{});
    EXPECT_EQ(reasons(), strings{});
}

TEST_F(Queue, DroppingWantsToBeToldWhat)
{
    post("a.sme");
    EXPECT_EQ(run({"drop"}).status, EX_USAGE);
    EXPECT_EQ(waiting(), strings{"a.sme"});
}

TEST_F(Queue, NoNameLeadsOutOfIt)
{
    temp_dir const elsewhere;
    write_file(elsewhere.file("a.sme"), "");
    write_file(dir.file("zelismes.cf"), "");
    ::mkdir(dir.file("sub").c_str(), 0700);
    post("sub/b.sme");
    for (std::string const& name :
         {elsewhere.file("a.sme"), "../" + elsewhere.path() + "/a.sme", std::string("sub/b.sme"),
          std::string("undelivered/../sub/b.sme"), std::string("undelivered/"), std::string("."),
          std::string(".."), std::string("zelismes.cf"), std::string(".zelieml/lock"),
          std::string("undelivered/undelivered/c.sme")}) {
        for (char const* const command : {"retry", "drop"}) {
            expect_failure({command, name}, EX_NOINPUT, "is not in the queue");
        }
    }
    EXPECT_TRUE(file_exists(elsewhere.file("a.sme")));
    EXPECT_TRUE(file_exists(dir.file("sub/b.sme")));
    EXPECT_TRUE(file_exists(dir.file("zelismes.cf")));
}

TEST_F(Queue, ALinkIsDroppedAndNotItsTarget)
{
    temp_dir const elsewhere;
    write_file(elsewhere.file("target"), "");
    EXPECT_EQ(::symlink(elsewhere.file("target").c_str(), dir.file("a.sme").c_str()), 0);
    run_well({"drop", "a.sme"});
    EXPECT_EQ(waiting(), strings{});
    EXPECT_TRUE(file_exists(elsewhere.file("target")));
}

// ---- other users

TEST_F(Queue, AnotherUsersUndeliveredMessagesAreNotListed)
{
    SKIP_UNLESS_ROOT("a folder of another user");
    post("a.sme");
    EXPECT_EQ(::chown(dir.file("undelivered").c_str(), 12345, 12345), 0);
    outcome const made = run({"list", "--names"});
    EXPECT_EQ(made.status, EX_NOINPUT);
    EXPECT_EQ(made.out, "a.sme\n");
    EXPECT_NE(made.err.find("undelivered belongs to the user 12345"), made.err.npos) << made.err;
}

TEST_F(Queue, WhatCannotBeMovedOrDeletedIsSaid)
{
    post("undelivered/a.sme");
    ::mkdir(dir.file("undelivered/b.sme").c_str(), 0700);
    ::mkdir(dir.file("c.sme").c_str(), 0700);
    expect_failure({"retry", "undelivered/b.sme", "undelivered/a.sme"}, EX_CANTCREAT, "b.sme");
    expect_failure({"drop", "undelivered/b.sme"}, EX_CANTCREAT,
                   "b.sme is a directory: remove it by hand");
    expect_failure({"drop", "c.sme"}, EX_CANTCREAT, "c.sme is a directory: remove it by hand");
    EXPECT_EQ(undelivered(), strings{"b.sme"});
    EXPECT_EQ(waiting(), (strings{"a.sme~2", "c.sme"}));
}

// ---- a service that runs

TEST(QueueOfAService, RetriesAtOnceWhatFailedOnce)
{
    notification_root const root;
    loopback_program const  server({"--fault", "mail=refuse:451 later", "--fault-count", "1"});
    workplace const         work(server.port("smtp"));
    program                 service(zelieml_command({"engine", "-w", work.path()}));
    write_file(work.file("a.sme"), "from: a@b.test\nto: c@d.test\nsubject: \xE4 is no UTF-8\n");
    service.wait_for("451 later");
    EXPECT_TRUE(
        wait_until([&] { return !list_directory(work.file(".zelieml/reasons/waiting")).empty(); }));
    json const listed =
        json::parse(run_zelieml({"queue", "list", "--json", "-w", work.path()}).out);
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_NE(listed[0]["reason"].get<std::string>().find("451 later"), std::string::npos);

    outcome const retried = run_zelieml({"queue", "retry", "a.sme", "-w", work.path()});
    EXPECT_EQ(retried.err, "");
    EXPECT_EQ(retried.status, EX_OK);
    service.wait_for(" sent a.sme~2 ");
    EXPECT_EQ(run_zelieml({"queue", "list", "-w", work.path()}).out, "");
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), EX_OK);
}

TEST(QueueOfAService, TriesAgainWhatWasUndelivered)
{
    notification_root const root;
    loopback_program const  server(strings{});
    workplace const         work(server.port("smtp"));
    program                 service(zelieml_command({"engine", "-w", work.path()}));
    ASSERT_TRUE(wait_until([&] { return file_exists(work.file("undelivered")); }));
    write_file(work.file("undelivered/a.sme"), "from: a@b.test\nto: c@d.test\nsubject: Tray\n");
    EXPECT_EQ(run_zelieml({"queue", "retry", "-w", work.path()}).status, EX_OK);
    service.wait_for(" sent a.sme~2 ");
}

}  // namespace

}  // namespace zelieml::test
