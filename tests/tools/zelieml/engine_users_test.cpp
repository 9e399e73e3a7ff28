// engine_users_test.cpp - zelieml engine among several users, and at the limits of the system

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/engine/neighbours.h"
#include "tests/support/contains.h"
#include "tests/support/mail_server.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/service_program.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

constexpr uid_t other_user = 12345;

// A service of another user than the test's.
std::unique_ptr<service_program> service_of_other(workplace const& work)
{
    ::chmod(work.outside().c_str(), 0755);
    ::chmod(work.file("zelismes.cf").c_str(), 0644);
    ::chmod(root.dir.path().c_str(), 0755);
    ::chmod(root.dir.file("tmp").c_str(), 01777);
    acting_user const somebody(other_user);
    return std::make_unique<service_program>(QUICK_PROGRAM, work.path());
}

TEST(Engine, OtherUsersMayPost)
{
    SKIP_UNLESS_ROOT("to post as another user");
    mail_server server;
    workplace   work(server.smtp_port());
    ::chmod(work.outside().c_str(), 0755);
    ::chmod(work.path(), 01777);
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    {
        acting_user const somebody(other_user);
        post(work, "from another user");
    }
    EXPECT_TRUE(server.wait_for_mails(1));
    service.run().wait_for("\n");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(waiting_in(work.path()), strings());
}

TEST(Engine, WhatItCannotTakeIsNotSent)
{
    SKIP_UNLESS_ROOT("a file of another user");
    SKIP_UNLESS(has_backend("linux"), "the notifications of the fake are one user's");
    mail_server server;
    workplace   work(server.smtp_port());
    ::chmod(work.path(), 01777);
    write_message(work.file("a.sme"), "of root's");
    write_message(work.file("b.sme"), "another of root's");
    ::chmod(work.file("a.sme").c_str(), 0644);
    ::chmod(work.file("b.sme").c_str(), 0644);
    auto const service = service_of_other(work);
    EXPECT_TRUE(wait_until([&] { return contains(service->run().err(), "a.sme is not sent"); }));
    EXPECT_EQ(server.mails().size(), 0u);
    ASSERT_EQ(::chmod(work.path(), 0777), 0);  // now it may
    ::chmod(work.file("b.sme").c_str(), 0600);
    service->run().signal(SIGHUP);
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_TRUE(wait_until([&] { return contains(service->run().err(), "b.sme is not sent"); }));
    ::chmod(work.file("b.sme").c_str(), 0644);  // which tells it
    EXPECT_TRUE(server.wait_for_mails(2));
    EXPECT_EQ(service->end(), EX_OK);
    EXPECT_EQ(count_of(service->run().err(), "\n"), 2) << service->run().err();
    EXPECT_EQ(subjects_of(server.mails()), (strings{"of root's", "another of root's"}));
}

// More than are remembered at a time.
TEST(Engine, WhatItCannotReadKeepsNobodyWaiting)
{
    SKIP_UNLESS_ROOT("files of another user");
    SKIP_UNLESS(has_backend("linux"), "the notifications of the fake are one user's");
    mail_server server;
    workplace   work(server.smtp_port());
    ::chmod(work.path(), 0777);
    for (int i = 0; i < 5000; ++i) {
        std::string const path = work.file(std::to_string(i) + ".sme");
        write_message(path, "not for others");
        ::chmod(path.c_str(), 0600);
    }
    write_message(work.file("good.sme"), "good");
    ::chmod(work.file("good.sme").c_str(), 0644);
    auto const service = service_of_other(work);
    EXPECT_TRUE(server.wait_for_mails(1));
    EXPECT_EQ(service->end(), EX_OK);
    EXPECT_EQ(count_of(service->run().err(), "\n"), 1) << service->run().err();
}

TEST(Engine, LooksEverySecondWhereNothingCanBeWatched)
{
    SKIP_UNLESS_ROOT("to use up what another user may have");
    SKIP_UNLESS(has_backend("linux"), "the notifications of the fake are one user's");
    mail_server server;
    workplace   work(server.smtp_port());
    ::chmod(work.path(), 0777);
    std::vector<unique_fd> instances;
    {
        acting_user const somebody(other_user);
        int               instance = 0;
        while ((instance = ::inotify_init1(IN_CLOEXEC)) >= 0) {
            instances.emplace_back(instance);
        }
        EXPECT_EQ(errno, EMFILE);
    }
    auto const service = service_of_other(work);
    ASSERT_TRUE(service->is_ready());
    EXPECT_TRUE(wait_until([&] { return contains(service->run().err(), "cannot be watched"); }));
    for (std::size_t i = 1; i <= 3; ++i) {
        post(work, "mail");
        ::chmod(work.file(waiting_in(work.path()).front()).c_str(), 0644);
        EXPECT_TRUE(server.wait_for_mails(i, std::chrono::seconds(10)));
    }
    EXPECT_EQ(count_of(service->run().err(), "\n"), 1) << service->run().err();
    EXPECT_EQ(service->end(), EX_OK);
}

TEST(Engine, WaitsForDescriptors)
{
    SKIP_UNLESS(!has_sanitizer("undefined"), "the sanitizer needs descriptors itself");
    SKIP_UNLESS(has_backend("linux"), "the notifications of the fake need descriptors");
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    rlimit before = {};
    ASSERT_EQ(::prlimit(service.run().pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    rlimit const none = {0, before.rlim_max};
    ASSERT_EQ(::prlimit(service.run().pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    post(work, "mail");
    EXPECT_TRUE(wait_until([&] { return contains(service.run().err(), "Too many open files"); }));
    ASSERT_EQ(::prlimit(service.run().pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(server.wait_for_mails(1));
    service.run().wait_for("\"attempt\":1,\"code\":0,");
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(service.run().out().find('\n') + 1, service.run().out().size()) << "no other attempt";
}

TEST(Engine, LooksAtEverythingWhenItMissedTooMuch)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    service_program service(QUICK_PROGRAM, work.path());
    ASSERT_TRUE(service.is_ready());
    std::string const most = read_file("/proc/sys/fs/inotify/max_queued_events");
    service.run().signal(SIGSTOP);
    write_file(work.file("other"), "");
    for (int i = 0; i <= std::atoi(most.c_str()); ++i) {
        ASSERT_EQ(::rename(work.file(i % 2 == 0 ? "other" : "another").c_str(),
                           work.file(i % 2 == 0 ? "another" : "other").c_str()),
                  0);
    }
    write_message(work.file("a.sme"), "missed");
    service.run().signal(SIGCONT);
    EXPECT_TRUE(server.wait_for_mails(1, std::chrono::seconds(10)));
}

TEST(Engine, SendsTenThousandInOrderWithLittleMemory)
{
    // A sanitizer makes each many times as slow.
    int const   count = has_sanitizer("address") || has_sanitizer("thread") ? 2000 : 10000;
    mail_server server;
    workplace   work(server.smtp_port());
    for (int i = 0; i < count; ++i) {
        // The name says nothing of the order, and the last ones are the oldest.
        std::string const path = work.file(std::to_string(i * 7919 % count) + ".sme");
        write_message(path, "mail." + std::to_string(count - 1 - i));
        timespec const time     = {1000000000 - i, i};
        timespec const times[2] = {time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    service_program service(QUICK_PROGRAM, work.path());
    EXPECT_TRUE(server.wait_for_mails(static_cast<std::size_t>(count), std::chrono::seconds(100)));
    EXPECT_EQ(subjects_of(server.mails()), numbered("mail", count));
    EXPECT_TRUE(wait_until([&] { return waiting_in(work.path()).empty(); }));
    std::string const status =
        read_file("/proc/" + std::to_string(service.run().pid()) + "/status");
    std::size_t const peak = status.find("VmHWM:");
    ASSERT_NE(peak, status.npos);
    if (!has_sanitizer("address") && !has_sanitizer("thread")) {
        EXPECT_LT(std::atoi(status.c_str() + peak + 6), 32 * 1024) << "KiB";
    }
    EXPECT_EQ(service.end(), EX_OK);
}

}  // namespace

}  // namespace zelieml::test
