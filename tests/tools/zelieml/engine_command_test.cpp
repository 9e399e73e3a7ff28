// engine_command_test.cpp - zelieml engine: a service that loses no mail

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <thread>
#include <unistd.h>

#include "tests/support/contains.h"
#include "tests/support/loopback_program.h"
#include "tests/support/mail_server.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/service_program.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

// A fault of the server, as the loopback program takes it.
mailserver::options with_fault(std::string const& fault)
{
    mailserver::options options;
    options.faults = {mailserver::parse_fault(fault)};
    return options;
}

// ----------------------------------------------------------- what it does

TEST(Engine, SendsWhatLiesThereAndWhatComes)
{
    mail_server server;
    workplace   work(server.smtp_port());
    post(work, "there");
    write_message(work.file("by hand.sme"), "by hand");
    service_program service(ZELIEML_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    EXPECT_TRUE(server.wait_for_mails(2));
    post(work, "comes");
    EXPECT_TRUE(server.wait_for_mails(3));
    service.run().wait_for("\n", 3);
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subjects_of(server.mails()), (strings{"there", "by hand", "comes"}));
    EXPECT_EQ(work.messages(), (strings{".zelieml", "undelivered"}));
    EXPECT_EQ(service.run().err(), "");
}

TEST(Engine, PrintsAnObjectForEachAttempt)
{
    mail_server server;
    workplace   work(server.smtp_port());
    write_message(work.file("a.sme"), "Gr\u00fc\u00dfe");
    service_program service(QUICK_PROGRAM, work.path());
    service.run().wait_for("\n");
    std::string const line = service.run().out();
    for (
        char const* const part :
        {"{\"time\":\"2",
         ",\"file\":\"a.sme\",\"to\":\"anna@b.test\",\"subject\":\"Gr\u00fc\u00dfe\"",
         ",\"attempt\":1,\"code\":0,\"number\":0,\"cause\":\"none\",\"step\":\"\",\"reason\":\"\",",
         "\"reply\":\"221 2.0.0 goodbye\"", "\"seconds\":0."}) {
        EXPECT_TRUE(contains(line, part)) << part << " in " << line;
    }
    EXPECT_EQ(service.end(), EX_OK);
}

TEST(Engine, PrintsALineForEachAttempt)
{
    mail_server server(with_fault("rcpt=refuse:550 5.1.1 no such \x1buser"));
    workplace   work(server.smtp_port());
    write_message(work.file("a.sme"), "hello");
    service_program service(QUICK_PROGRAM, work.path(), {});
    service.run().wait_for("\n");
    std::string const line = service.run().out();
    EXPECT_TRUE(contains(line, " failed a.sme to anna@b.test, subject \"hello\", attempt 1, 0."))
        << line;
    EXPECT_TRUE(contains(line, "550 5.1.1 no such ?user\n")) << line;
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(work.path()), strings{"a.sme"});
}

TEST(Engine, KeepsTheReasonOfAFailure)
{
    mail_server server(with_fault("rcpt=refuse:550 5.1.1 no such user"));
    workplace   work(server.smtp_port());
    write_message(work.file("a.sme"), "hello");
    service_program service(QUICK_PROGRAM, work.path());
    service.run().wait_for("\n");
    EXPECT_TRUE(contains(kept_reason(work.path(), "a.sme"), "550 5.1.1 no such user"));
    EXPECT_EQ(service.end(), EX_OK);
}

TEST(Engine, HearsOfWhatComes)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    // By itself it would look after 30 seconds.
    for (std::size_t i = 1; i <= 3; ++i) {
        post(work, "mail");
        ASSERT_TRUE(server.wait_for_mails(i, std::chrono::seconds(15))) << i;
    }
    EXPECT_EQ(service.run().err(), "") << "it watches";
}

TEST(Engine, SendsInTheOrderOfPosting)
{
    mail_server server;
    workplace   work(server.smtp_port());
    strings     expected;
    for (int i = 0; i < 50; ++i) {
        expected.push_back("mail." + std::to_string(i));
        std::string const path = work.file(std::to_string(99 - i) + ".sme");
        write_message(path, expected.back());
        timespec const times[2] = {{1'700'000'000 + i, 0}, {1'700'000'000 + i, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    service_program service(QUICK_PROGRAM, work.path());
    EXPECT_TRUE(server.wait_for_mails(50));
    EXPECT_EQ(subjects_of(server.mails()), expected);
}

TEST(Engine, LeavesAloneWhatIsNoMessage)
{
    mail_server server;
    workplace   work(server.smtp_port());
    write_message(work.file("other"), "another file");
    write_message(work.file("two.sme"), "a file with two names");
    ASSERT_EQ(::link(work.file("two.sme").c_str(), work.file("other name").c_str()), 0);
    ASSERT_EQ(::symlink("other", work.file("link.sme").c_str()), 0);
    ASSERT_EQ(::mkfifo(work.file("pipe.sme").c_str(), 0600), 0);
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    post(work, "a message");
    EXPECT_TRUE(server.wait_for_mails(1));
    service.run().wait_for("\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subjects_of(server.mails()), strings{"a message"});
    EXPECT_EQ(waiting_in(work.path()), (strings{"link.sme", "pipe.sme", "two.sme"}));
}

TEST(Engine, WaitsForWhoeverStillWrites)
{
    mail_server server;
    workplace   work(server.smtp_port());
    write_message(work.file("a.sme"), "locked");
    unique_fd writer(::open(work.file("a.sme").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    post(work, "free");
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_EQ(subjects_of(server.mails()), strings{"free"});
    writer.reset();  // which nothing tells: it was not written through this descriptor
    EXPECT_TRUE(server.wait_for_mails(2));
    EXPECT_EQ(subjects_of(server.mails()), (strings{"free", "locked"}));
}

TEST(Engine, TakesTheSettingsOfTheMoment)
{
    mail_server     first;
    mail_server     second;
    workplace       work(first.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    post(work, "one");
    EXPECT_TRUE(first.wait_for_mails(1));
    write_file(work.file("new"), settings_for(second.smtp_port()));
    ASSERT_EQ(::rename(work.file("new").c_str(), work.file("zelismes.cf").c_str()), 0);
    post(work, "two");
    EXPECT_TRUE(second.wait_for_mails(1));
}

// ------------------------------------------------------------- beginning and end

TEST(Engine, TellsItsManager)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    set_for_now const period("WATCHDOG_USEC", "100000");
    service_program   service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    EXPECT_TRUE(contains(service.manager.told(),
                         "READY=1\nSTATUS=sending what comes to " + std::string(work.path())));
    EXPECT_TRUE(service.manager.hears("WATCHDOG=1", 5));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_TRUE(contains(service.manager.told(), "STOPPING=1\n"));
    EXPECT_EQ(service.run().out() + service.run().err(), "");
}

TEST(Engine, AWatchdogOfAnotherProcessIsNotItsOwn)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    set_for_now const period("WATCHDOG_USEC", "2000");
    set_for_now const process("WATCHDOG_PID", "1");
    service_program   service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_FALSE(contains(service.manager.told(), "WATCHDOG"));
}

TEST(Engine, TellsAManagerWithoutAFile)
{
    SKIP_UNLESS(!has_backend("macos"), "only Linux has sockets without files");
    mail_server       server;
    workplace         work(server.smtp_port());
    manager_socket    manager("@zelieml-test-" + std::to_string(::getpid()));
    set_for_now const told("NOTIFY_SOCKET", manager.name());
    program           service({QUICK_PROGRAM, "engine", "-w", work.path()});
    EXPECT_TRUE(manager.hears("READY=1"));
}

TEST(Engine, ASecondServiceEnds)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    for (strings const& how : {strings{}, strings{"--bare"}}) {
        strings words = {"engine", "-w", work.path()};
        words.insert(words.end(), how.begin(), how.end());
        outcome const second = run_zelieml(words);
        EXPECT_EQ(second.status, EX_TEMPFAIL);
        EXPECT_TRUE(
            contains(second.err, "the process " + std::to_string(service.run().pid()) + ":"))
            << second.err;
    }
    post(work, "still there");
    EXPECT_TRUE(server.wait_for_mails(1));
}

TEST(Engine, UsesNoFolderOfOthers)
{
    mail_server server;
    workplace   work(server.smtp_port());
    post(work, "stays");
    ASSERT_EQ(::mkdir(work.file("undelivered").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(work.file("undelivered").c_str(), 0777), 0);
    outcome const run = run_zelieml({"engine", "-w", work.path()});
    EXPECT_EQ(run.status, EX_CONFIG);
    EXPECT_TRUE(contains(run.err, "chmod 700")) << run.err;
    EXPECT_EQ(waiting_in(work.path()).size(), 1u);
}

TEST(Engine, RefusesADirectoryThatIsTooDeep)
{
    temp_dir const dir;
    std::string    deep = dir.path();
    while (deep.size() < 240) {
        deep += "/" + std::string(std::min<std::size_t>(100, 241 - deep.size()), 'd');
        ASSERT_EQ(::mkdir(deep.c_str(), 0700), 0);
    }
    outcome const run = run_zelieml({"engine", "-w", deep});
    EXPECT_EQ(run.status, EX_CONFIG);
    EXPECT_TRUE(contains(run.err, "is too long: use one of at most 239 bytes")) << run.err;
}

TEST(Engine, AnyNameIsSent)
{
    mail_server    server;
    temp_dir const dir;
    std::string    deep = dir.path();
    while (deep.size() < 239) {  // the deepest that it takes
        deep += "/" + std::string(std::min<std::size_t>(100, 238 - deep.size()), 'd');
        ASSERT_EQ(::mkdir(deep.c_str(), 0700), 0);
    }
    write_file(deep + "/zelismes.cf", settings_for(server.smtp_port()));
    write_message(deep + "/" + std::string(251, 'a') + ".sme", "long");
    write_message(deep + "/.sme" + std::string(251, 'a'), "also long");
    write_message(deep + "/a\n\x1b[2J\xff~1-2.tried.sme", "odd");
    service_program service(QUICK_PROGRAM, deep);
    EXPECT_TRUE(server.wait_for_mails(3));
    service.run().wait_for("\n", 3);
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(deep), strings());
    EXPECT_EQ(service.run().err(), "");
}

TEST(Engine, EndsInOrder)
{
    mail_server server(with_fault("text=delay:300"));
    workplace   work(server.smtp_port());
    for (int i = 0; i < 3; ++i) {
        post(work, "mail." + std::to_string(i));
    }
    service_program service(QUICK_PROGRAM, work.path());
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(server.mails().size() + waiting_in(work.path()).size(), 3u);
    EXPECT_EQ(service.sent(), static_cast<int>(server.mails().size()))
        << "what was on the wire is over";
}

TEST(Engine, EndsInTime)
{
    loopback_program server({"--show", "--fault", "greeting=silent"});
    workplace        work(server.port("smtp"));
    post(work, "mail");
    service_program service(QUICK_PROGRAM, work.path(), {"--stop-timeout", "0"});
    server.wait_for("(connects)");
    EXPECT_EQ(service.end(), EX_TEMPFAIL);
    EXPECT_TRUE(contains(service.run().err(), "may be sent again")) << service.run().err();
    EXPECT_EQ(waiting_in(work.path()).size(), 1u);
}

TEST(Engine, ASecondSignalEndsItAtOnce)
{
    loopback_program server({"--show", "--fault", "greeting=silent"});
    workplace        work(server.port("smtp"));
    post(work, "mail");
    service_program service(QUICK_PROGRAM, work.path(), {"--stop-timeout", "3600"});
    server.wait_for("(connects)");
    service.run().signal(SIGTERM);
    EXPECT_TRUE(service.manager.hears("STOPPING=1"));
    service.run().signal(SIGINT);
    EXPECT_EQ(service.run().wait(), EX_TEMPFAIL);
}

TEST(Engine, AHangUpIsHarmless)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    for (int i = 0; i < 10; ++i) {
        service.run().signal(SIGHUP);
        post(work, "mail");
    }
    EXPECT_TRUE(server.wait_for_mails(10));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(server.mails().size(), 10u);
}

TEST(Engine, LosesNothingThatIsPostedWhileItStarts)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    std::atomic<bool> over{false};
    std::atomic<int>  posted{0};
    std::thread       poster([&] {
        while (!over && posted < 1000) {  // as many as can be sent in time on a slow machine
            post(work, "mail." + std::to_string(posted++));
            ::usleep(2000);
        }
    });
    for (int i = 0; i < 5; ++i) {
        service_program service(QUICK_PROGRAM, work.path());
        EXPECT_TRUE(service.is_ready());
        EXPECT_EQ(service.end(), EX_OK);
    }
    over = true;
    poster.join();
    service_program service(QUICK_PROGRAM, work.path());
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    EXPECT_EQ(sorted(subjects_of(server.mails())), sorted(numbered("mail", posted)));
}

// ------------------------------------------------------------------- trouble

TEST(Engine, WaitsForADirectoryThatIsGone)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    std::string const away = work.outside() + "/away";
    ASSERT_EQ(::rename(work.path(), away.c_str()), 0);
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "is not there any more"); }));
    // Another one of this name, as from a backup.
    ASSERT_EQ(::mkdir(work.path(), 0755), 0);
    write_file(work.file("zelismes.cf"), settings_for(server.smtp_port()));
    post(work, "in the new one");
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "is back"); }));
    post(work, "and another");
    EXPECT_TRUE(server.wait_for_mails(2, std::chrono::seconds(10)));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(count_of(service.run().err(), "\n"), 2) << service.run().err();
}

TEST(Engine, MakesItsFoldersAgain)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    for (char const* const name : {".zelieml/engine", ".zelieml", "undelivered"}) {
        ASSERT_EQ(run_program({"/bin/rm", "-r", work.file(name)}), 0);
        std::size_t const before = server.mails().size();
        post(work, name);
        EXPECT_TRUE(server.wait_for_mails(before + 1)) << name;
    }
    EXPECT_EQ(run_zelieml({"engine", "-w", work.path()}).status, EX_TEMPFAIL);
    EXPECT_EQ(service.end(), EX_OK);
}

TEST(Engine, EndsWhenAnotherServiceHasTakenItsPlace)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program first(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(first.is_ready());
    ASSERT_EQ(run_program({"/bin/rm", "-r", work.file(".zelieml")}), 0);
    service_program second(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(second.is_ready());
    first.run().signal(SIGHUP);
    EXPECT_EQ(first.run().wait(), EX_TEMPFAIL);
    post(work, "mail");
    EXPECT_TRUE(server.wait_for_mails(1));
}

TEST(Engine, AFullDiskForItsOutputIsToldOnce)
{
    SKIP_UNLESS(file_exists("/dev/full"), "there is no /dev/full");
    mail_server       server;
    workplace         work(server.smtp_port());
    manager_socket    manager;
    set_for_now const told("NOTIFY_SOCKET", manager.name());
    program service({"/bin/sh", "-c", "exec \"$@\" > /dev/full", "sh", QUICK_PROGRAM, "engine",
                     "-w", work.path()});
    for (std::size_t i = 1; i <= 3; ++i) {
        post(work, "mail");
        EXPECT_TRUE(server.wait_for_mails(i));
    }
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), EX_OK);
    EXPECT_EQ(count_of(service.err(), "standard output"), 1) << service.err();
}

TEST(Engine, ANameMayBeUsedAgainAtOnce)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    constexpr int     count = 300;
    std::string const name  = work.file("status.sme");
    service_program   service(QUICK_PROGRAM, work.path());
    for (int i = 0; i < count; ++i) {
        write_message(work.file("new"), "mail." + std::to_string(i));
        ASSERT_TRUE(wait_until([&] { return !file_exists(name); }));
        ASSERT_EQ(::rename(work.file("new").c_str(), name.c_str()), 0);
    }
    EXPECT_TRUE(server.wait_for_mails(count));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subjects_of(server.mails()), numbered("mail", count));
}

TEST(Engine, WhatFailsDoesNotKeepOthersOfItsNameWaiting)
{
    mailserver::options options;
    options.faults          = {mailserver::parse_fault("rcpt=refuse:550 5.1.1 no such user")};
    options.faults[0].times = 1;
    mail_server     server(options);
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    write_message(work.file("status.sme"), "first");
    service.run().wait_for("\n");
    write_message(work.file("status.sme"), "second");
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_EQ(subjects_of(server.mails()), strings{"second"});
    service.run().wait_for("\n", 2);
    EXPECT_EQ(waiting_in(work.path()), strings{"status.sme"});
}

TEST(Engine, HundredsThatFailKeepNobodyWaiting)
{
    mailserver::options options;
    options.rejected_recipients = {"nobody@b.test"};
    mail_server     server(options);
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    constexpr int   count = 600;
    for (int i = 0; i < count; ++i) {
        write_file(work.file(std::to_string(i) + ".sme"),
                   "from: a@a.test\nto: nobody@b.test\n\n.\n");
    }
    service.run().wait_for("\n", count);
    write_message(work.file("good.sme"), "good");
    EXPECT_TRUE(server.wait_for_mails(1));
    service.run().wait_for("\n", count + 1);
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(work.path()).size(), std::size_t{count});
}

// More than it remembers, of which it can take none: it goes on behind those, whatever comes.
TEST(Engine, WhatComesDoesNotMakeItPassOverOthers)
{
    auto const set_age = [](std::string const& path, int seconds) {
        timespec const times[2] = {{::time(nullptr) - seconds, 0}, {::time(nullptr) - seconds, 0}};
        EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    mail_server server;
    workplace   work(server.smtp_port());
    for (int i = 0; i < 4200; ++i) {
        std::string const path = work.file(std::to_string(i) + ".sme");
        write_file(path, "");  // as if it was about to be written
        set_age(path, 15);
    }
    for (int i = 0; i < 20; ++i) {
        std::string const path = work.file("old." + std::to_string(i) + ".sme");
        write_message(path, "old");
        set_age(path, 10);
    }
    service_program service(QUICK_PROGRAM, work.path());
    auto const      all_old = [&] {
        strings const subjects = subjects_of(server.mails());
        return std::count(subjects.begin(), subjects.end(), "old") == 20;
    };
    for (int i = 0; i < 300 && !all_old(); ++i) {
        write_message(work.file("new." + std::to_string(i) + ".sme"), "new");
        wait_ms(10);
    }
    EXPECT_TRUE(wait_until(all_old, std::chrono::seconds(10))) << "before the next look";
}

TEST(Engine, SendsWhatWasThereWhenTheDirectoryWasAway)
{
    loopback_program  server({"--show", "--fault", "text=delay:200"});
    workplace         work(server.port("smtp"));
    std::string const away = work.outside() + "/away";
    for (int i = 0; i < 10; ++i) {
        post(work, "mail." + std::to_string(i));
    }
    service_program service(QUICK_PROGRAM, work.path());
    server.wait_for("Subject: mail.1");
    ASSERT_EQ(::rename(work.path(), away.c_str()), 0);
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "is not there any more"); }));
    ASSERT_EQ(::rename(away.c_str(), work.path()), 0);
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    for (int i = 0; i < 10; ++i) {
        server.wait_for("Subject: mail." + std::to_string(i));
    }
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(list_directory(work.file("undelivered")), strings());
}

TEST(Engine, AFileThatIsSwappedForADirectoryStopsNothing)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    for (int i = 0; i < 200; ++i) {
        write_message(work.file("a.sme"), "mail");
        ::unlink(work.file("a.sme").c_str());
        ::mkdir(work.file("a.sme").c_str(), 0755);
        ::rmdir(work.file("a.sme").c_str());
        ::symlink("zelismes.cf", work.file("a.sme").c_str());
        ::unlink(work.file("a.sme").c_str());
    }
    post(work, "last");
    service.run().wait_for("\"subject\":\"last\",");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(work.path()), strings());
}

// --------------------------------------------------------------------- output

// A pipe that is full.
class stuffed_pipe
{
public:
    stuffed_pipe()
    {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        reader_.reset(ends[0]);
        writer_.reset(ends[1]);
        ::fcntl(writer_.get(), F_SETFL, O_NONBLOCK);
        while (::write(writer_.get(), "x", 1) == 1) {
        }
        ::fcntl(writer_.get(), F_SETFL, 0);
    }

    // For a shell.
    std::string path() const
    {
        return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(writer_.get());
    }

private:
    unique_fd reader_;
    unique_fd writer_;
};

TEST(Engine, SendsThoughNobodyReadsWhatItPrints)
{
    SKIP_UNLESS(file_exists("/proc/self/fd"), "there is no /proc");
    constexpr int     count = 1200;  // more than are kept
    mail_server       server;
    workplace         work(server.smtp_port());
    stuffed_pipe      full;
    manager_socket    manager;
    set_for_now const told("NOTIFY_SOCKET", manager.name());
    set_for_now const pipe("FULL", full.path());
    for (int i = 0; i < count; ++i) {
        write_message(work.file(std::to_string(i) + ".sme"), "mail");
    }
    program service({"/bin/sh", "-c", "exec \"$@\" > $FULL 2>&1", "sh", QUICK_PROGRAM, "engine",
                     "--stop-timeout", "1", "-w", work.path()});
    EXPECT_TRUE(server.wait_for_mails(count, std::chrono::seconds(60)));
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), EX_OK);
}

TEST(Engine, SaysHowManyAttemptsItDidNotReport)
{
    SKIP_UNLESS(file_exists("/proc/self/fd"), "there is no /proc");
    constexpr int count = 1200;
    mail_server   server;
    workplace     work(server.smtp_port());
    int           ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    unique_fd const   reader(ends[0]);
    unique_fd         writer(ends[1]);
    set_for_now const pipe("FULL", "/proc/" + std::to_string(::getpid()) + "/fd/" +
                                       std::to_string(writer.get()));
    ASSERT_GT(::fcntl(writer.get(), F_SETPIPE_SZ, 4096), 0);
    for (int i = 0; i < count; ++i) {
        write_message(work.file(std::to_string(i) + ".sme"), "mail");
    }
    program service(
        {"/bin/sh", "-c", "exec \"$@\" > $FULL", "sh", QUICK_PROGRAM, "engine", "-w", work.path()});
    EXPECT_TRUE(server.wait_for_mails(count, std::chrono::seconds(60)));
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    writer.reset();
    service.signal(SIGTERM);
    char        bytes[4096];
    std::string read;
    ssize_t     got = 0;
    while ((got = ::read(reader.get(), bytes, sizeof bytes)) > 0) {
        read.append(bytes, static_cast<std::size_t>(got));
    }
    EXPECT_EQ(service.wait(), EX_OK);
    int const         lines = count_of(read, "\n");
    std::string const lost  = std::to_string(count - lines) + " attempts are not reported";
    EXPECT_LT(lines, count);
    EXPECT_TRUE(contains(service.err(), lost)) << lines << service.err();
}

TEST(Engine, AHugeHeaderIsCutInWhatItPrintsAndKeeps)
{
    mailserver::options options;
    options.rejected_recipients = {"anna@b.test"};
    mail_server     server(options);
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    write_message(work.file("a.sme"), std::string(20 << 20, 'x'));
    service.run().wait_for("\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_LT(service.run().out().size(), 4096u);
    EXPECT_LT(kept_reason(work.path(), "a.sme").size(), 4096u);
    EXPECT_TRUE(contains(service.run().out(), "\"subject\":\"xxx"));
}

TEST(Engine, TellsItsManagerWhenThatHasRoomAgain)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    manager_socket    manager;
    set_for_now const told("NOTIFY_SOCKET", manager.name());
    manager.stuff();
    program service({QUICK_PROGRAM, "engine", "-w", work.path()});
    post(work, "mail");
    EXPECT_TRUE(server.wait_for_mails(1));  // it has told, in vain
    EXPECT_TRUE(manager.hears("READY=1"));
}

// ----------------------------------------------------------------- without it

TEST(BareEngine, DeletesWhatLiesThereAndSendsWhatIsPosted)
{
    mail_server server;
    workplace   work(server.smtp_port());
    post(work, "there");
    service_program service(ZELIEML_PROGRAM, work.path(), {"--bare", "--symbol", "bare", "--json"});
    ASSERT_TRUE(service.is_ready());
    wait_for_registration();
    EXPECT_EQ(waiting_in(work.path()), strings());
    EXPECT_EQ(post_mail(work.path(), "bare", "posted"), 0);
    service.run().wait_for("\"subject\":\"posted\",\"attempt\":1,\"code\":0,");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(subjects_of(server.mails()), strings{"posted"});
    EXPECT_EQ(waiting_in(work.path()), strings());
}

TEST(BareEngine, KeepsAServiceAway)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program bare(QUICK_PROGRAM, work.path(), {"--bare"});
    ASSERT_TRUE(bare.is_ready());
    outcome const second = run_zelieml({"engine", "-w", work.path()});
    EXPECT_EQ(second.status, EX_TEMPFAIL);
    EXPECT_TRUE(contains(second.err, "has a service already")) << second.err;
}

}  // namespace

}  // namespace zelieml::test
