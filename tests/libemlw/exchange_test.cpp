// exchange_test.cpp - a message file that is exchanged at the worst moment

#include <cstdio>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "libemlw/salvage.h"
#include "libmsg/libmsg.h"
#include "tests/libemlw/engine_room.h"
#include "tests/support/mail_server.h"
#include "tests/support/open_hook.h"

using namespace zelieml;
using zelieml::test::mail_server;
using zelieml::test::strings;

namespace
{

constexpr char private_text[] = "to: thief@a.test\nreplyto: r\nA secret.\n";

message_holder mail_to(char const* address)
{
    void* made = nullptr;
    msg_create(&made);
    msg_set_to(made, address);
    return message_holder(made);
}

// What an attempt says whose message cannot be loaded.
test::result const not_loaded = {eml_send_error_other, "250 localhost\r\n"};

}  // namespace

class Exchange : public test::engine_room
{
protected:
    Exchange()
    {
        test::write_file(secret_, private_text);
        settings(server_.smtp_port());
    }

    // Has something of the test's take the place of what is at a path.
    void exchange(std::string const& path)
    {
        ASSERT_EQ(std::rename(ready_.c_str(), path.c_str()), 0);
    }
    void link_is_ready() const { ASSERT_EQ(::symlink(secret_.c_str(), ready_.c_str()), 0); }

    strings recipients() const
    {
        strings all;
        for (mailserver::mail const& mail : server_.mails()) {
            all.insert(all.end(), mail.recipients.begin(), mail.recipients.end());
        }
        return all;
    }

    std::string const secret_ = dir_.file("secret");
    std::string const ready_  = dir_.file("ready");
    mail_server       server_;
};

TEST_F(Exchange, OfAClaimedNameForALinkLeavesTheLinksTargetAlone)
{
    link_is_ready();
    test::after_open(".sme", [&](std::string const& path) { exchange(path); });
    EXPECT_EQ(eml_post(workdir().c_str(), mail_to("anna@a.test").get()), 0);
    EXPECT_TRUE(test::met_open());
    EXPECT_EQ(test::read_file(secret_), private_text);
}

TEST_F(Exchange, OfAMailThatIsSentAtOnceChangesNothing)
{
    link_is_ready();
    test::after_open(".sme", [&](std::string const& path) { exchange(path); });
    void* result = nullptr;
    EXPECT_EQ(eml_post_sync(workdir().c_str(), mail_to("anna@a.test").get(), &result), 0);
    eml_cb_delete(result);
    EXPECT_TRUE(test::met_open());
    EXPECT_EQ(recipients(), strings{"anna@a.test"});
    EXPECT_EQ(test::read_file(secret_), private_text);
    EXPECT_EQ(on_disk(), strings()) << "the name is deleted, whatever it means";
}

TEST_F(Exchange, OfAnAnnouncedFileKeepsItFromBeingSent)
{
    struct row {
        char const*           reason;
        std::function<void()> prepare;
    };
    row const rows[] = {
        {"a link", [&] { link_is_ready(); }},
        {"a pipe", [&] { ASSERT_EQ(::mkfifo(ready_.c_str(), 0666), 0); }},
        {"a second name of a private file",
         [&] { ASSERT_EQ(::link(secret_.c_str(), ready_.c_str()), 0); }},
        {"a directory", [&] { ASSERT_EQ(::mkdir(ready_.c_str(), 0777), 0); }},
    };
    start();
    for (row const& r : rows) {
        post("announced");
        r.prepare();
        test::before_open("announced.sme", [&](std::string const& path) {
            std::remove(path.c_str());
            exchange(path);
        });
        std::size_t const before = attempts_.count();
        test::pass_pauses(1);
        EXPECT_TRUE(test::met_open()) << r.reason;
        ASSERT_EQ(attempts_.count(), before + 1) << r.reason;
        EXPECT_EQ(attempts_.all().back(), not_loaded) << r.reason;
        test::pass_pauses(2400);  // the second attempt
        EXPECT_EQ(attempts_.all().back(), not_loaded) << r.reason;
        EXPECT_EQ(on_disk(), strings()) << r.reason;
    }
    EXPECT_EQ(recipients(), strings());
    EXPECT_EQ(test::read_file(secret_), private_text);
    post("anna");
    test::pass_pauses(1);
    EXPECT_EQ(recipients(), strings{"anna@a.test"}) << "the engine goes on";
}

// A stranger's file; who is a stranger is told with the notification.
TEST_F(Exchange, OfTheOwnerKeepsAStrangersFileFromBeingSent)
{
    uid_t const self = ::geteuid();
    start();
    test::deliver(notify_name, symbol, notify_path_key, message("his").c_str(), self);
    test::deliver(notify_name, symbol, notify_path_key, message("not-his").c_str(), self + 1);
    test::pass_pauses(1);
    EXPECT_EQ(recipients(), strings{"his@a.test"});
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>{eml_send_ok, eml_send_error_other}));
    test::pass_pauses(2400);
    EXPECT_EQ(recipients(), strings{"his@a.test"});
    EXPECT_EQ(attempts_.all().back(), not_loaded) << "the second attempt knows it too";
}

TEST_F(Exchange, LeavesWhatTheLookFindsBehindALinkUnsent)
{
    start();
    ASSERT_EQ(::symlink(secret_.c_str(), file("link").c_str()), 0);
    message("found");
    test::pass_pauses(1800);
    EXPECT_EQ(recipients(), strings{"found@a.test"});
    EXPECT_EQ(attempts_.count(), 2U);
    test::pass_pauses(2400);
    EXPECT_EQ(on_disk(), strings()) << "the link goes after two attempts, as any file";
    EXPECT_EQ(test::read_file(secret_), private_text);
}

namespace
{

// What the look queues of a directory with one old message file, at whose opening something happens.
strings found_by_the_look(test::temp_dir const& dir)
{
    _s_iemlw engine;
    iqmgr*   queue = nullptr;
    EXPECT_EQ(iqmgr_create(&queue), 0);
    engine.queue = queue;
    dir.path().copy(engine.workdir, workdir_size - 1);
    EXPECT_EQ(salvage_queue(&engine, true), 0);
    EXPECT_TRUE(test::met_open());
    strings found;
    queue->get(found, 0, 0);
    EXPECT_EQ(iqmgr_destroy(engine.queue.exchange(nullptr)), 0);
    return found;
}

}  // namespace

// post_sync deletes the file that it has sent before it unlocks it.
TEST(Look, LeavesAFileThatIsDeletedWhileItIsLookedAt)
{
    test::temp_dir const dir;
    test::write_file(dir.file("a.sme"), "to: anna@a.test\n");
    test::after_open("a.sme", [](std::string const& path) { ::unlink(path.c_str()); });
    EXPECT_EQ(found_by_the_look(dir), strings());
}

// It cannot see whether the file is locked.
TEST(Look, LeavesFilesForTheNextOneWhenTheHostIsOutOfDescriptors)
{
    test::temp_dir const dir;
    test::write_file(dir.file("a.sme"), "to: anna@a.test\n");
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    test::before_open("a.sme", [&](std::string const&) {
        rlimit const none = {0, before.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    });
    strings const found = found_by_the_look(dir);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(found, strings());

    test::before_open("a.sme", [](std::string const&) {});
    EXPECT_EQ(found_by_the_look(dir), strings{dir.file("a.sme")});
}
