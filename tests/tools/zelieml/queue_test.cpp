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
        for (char const* const folder : {"undelivered", ".zelieml", ".zelieml/reasons"}) {
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

    // An attempt as the service keeps it.
    void fail(std::string const& name, int attempt, std::time_t announced) const
    {
        json const kept = {{"file", name},
                           {"attempt", attempt},
                           {"announced", announced},
                           {"reason", "connect to mail.test:25: Connection refused"}};
        write_file(dir.file(".zelieml/reasons/" + name), kept.dump());
    }

    strings reasons() const { return list_directory(dir.file(".zelieml/reasons")); }
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
    post("undelivered/b.sme", noon - 60);
    post("undelivered/a.sme", noon - 30);
    post("no.message");
    EXPECT_EQ(run_well({"list", "--names"}).out,
              "old.sme\nnew.sme\nundelivered/b.sme\nundelivered/a.sme\n");
}

TEST_F(Queue, IsListedForPeople)
{
    set_for_now const zone("TZ", "UTC");
    post("a.sme");
    fail("a.sme", 1, noon);
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
    fail("b.sme", 2, noon);
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
    post("a.sme");
    for (char const* const text : {"", "{", "[1]", "{\"reason\": 7, \"attempt\": []}", "null"}) {
        write_file(dir.file(".zelieml/reasons/a.sme"), text);
        EXPECT_EQ(json::parse(run_well({"list", "--json"}).out)[0]["reason"], "") << text;
        EXPECT_EQ(run({"retry", "a.sme"}).status, EX_TEMPFAIL) << text;
    }
}

// ---- retry

TEST_F(Queue, WhatWasNotDeliveredIsRetriedUnderANewName)
{
    post("undelivered/a.sme");
    post("undelivered/b.sme");
    fail("a.sme", 2, noon);
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
    post("a.sme");
    fail("a.sme", 1, std::time(nullptr) - 600);
    EXPECT_EQ(run_well({"retry", "a.sme"}).out, "");
    EXPECT_EQ(waiting(), strings{"a.sme~2"});
    EXPECT_EQ(reasons(), strings{});
}

TEST_F(Queue, WhatMayBeSentAtThisMomentIsNotTouched)
{
    post("untried.sme");
    post("late.sme");
    fail("late.sme", 1, std::time(nullptr) - 29 * 60 - 1);
    post("given_back.sme~2");
    fail("given_back.sme~2", 2, std::time(nullptr) - 600);
    post("of_another_service.sme");
    fail("of_another_service.sme", 1, std::time(nullptr) - 600);
    set_time(dir.file(".zelieml/reasons/of_another_service.sme"), std::time(nullptr) - 600);
    strings const before = waiting();
    expect_failure({"retry", "untried.sme"}, EX_TEMPFAIL, "untried.sme has not been tried yet");
    expect_failure({"retry", "late.sme"}, EX_TEMPFAIL, "late.sme is about to be tried again");
    expect_failure({"retry", "given_back.sme~2"}, EX_TEMPFAIL, "has not been tried yet");
    expect_failure({"retry", "of_another_service.sme"}, EX_TEMPFAIL, "has not been tried yet");
    EXPECT_EQ(waiting(), before);
}

TEST_F(Queue, WhatBecameOfEachIsPrintedAsJson)
{
    post("undelivered/a.sme");
    post("b.sme");
    outcome const retried =
        run({"retry", "--json", "undelivered/c.sme", "undelivered/a.sme", "b.sme"});
    EXPECT_EQ(retried.status, EX_NOINPUT);
    EXPECT_NE(retried.err.find("undelivered/c.sme is not in the queue"), retried.err.npos);
    EXPECT_EQ(
        json::parse(retried.out),
        json({{{"file", "undelivered/c.sme"},
               {"status", EX_NOINPUT},
               {"reason", "undelivered/c.sme is not in the queue: 'zelieml queue list' names "
                          "what is"}},
              {{"file", "undelivered/a.sme"}, {"status", EX_OK}, {"reason", ""}},
              {{"file", "b.sme"},
               {"status", EX_TEMPFAIL},
               {"reason", "b.sme has not been tried yet: a service tries it when it runs"}}}));
    EXPECT_EQ(run_well({"drop", "--json", "b.sme"}).out,
              "[{\"file\":\"b.sme\",\"status\":0,\"reason\":\"\"}]\n");
    EXPECT_EQ(run_well({"retry", "--json"}).out, "[]\n");
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
    post("a.sme");
    post("b.sme");
    post("undelivered/c.sme");
    fail("a.sme", 1, noon);
    fail("c.sme", 2, noon);
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
    json const listed =
        json::parse(run_zelieml({"queue", "list", "--json", "-w", work.path()}).out);
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_NE(listed[0]["reason"].get<std::string>().find("451 later"), std::string::npos);

    json const kept = json::parse(read_file(work.file(".zelieml/reasons/a.sme")));
    EXPECT_NEAR(kept["announced"].get<double>(), static_cast<double>(std::time(nullptr)), 60);

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
