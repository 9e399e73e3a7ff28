// strangers_test.cpp - several users, one work directory: what a stranger cannot have an engine do
//
// Needs root, since other users act in it. A stranger's exchange of files falls into the moment at
// which the library opens them.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/engine/neighbours.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_pause.h"
#include "tests/support/open_hook.h"
#include "tests/support/skip.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/wait_until.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

constexpr uid_t stranger_id   = 65534;
constexpr uid_t user_id       = 65533;
constexpr uid_t somebody_else = 65532;

notification_root const root;

constexpr char private_text[] = "subject: private\nto: thief@a.test\nreplyto: r\nA secret.\n";

class stranger : public neighbour
{
public:
    explicit stranger(std::vector<step> const& steps) : neighbour(stranger_id, {}, steps) {}
};

bool make_file(std::string const& path, char const* text)
{
    return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

bool announce(std::string const& path)
{
    return eml_post_message_file_with_stocksymbol(path.c_str(), "symbol") == 0;
}

// Who runs the engine.
class Strangers : public ::testing::TestWithParam<uid_t>
{
protected:
    void SetUp() override
    {
        SKIP_UNLESS_ROOT("other users act here");
        set_wall_clock(1700000000, 1);
        clear_traces();
        open_to_all(root.dir.path());
        open_to_all(root.dir.file("run"));
        open_to_all(root.dir.file("run/zelieml"), 01777);
    }

    static void open_to_all(std::string const& directory, mode_t mode = 0755)
    {
        ::mkdir(directory.c_str(), mode);
        ASSERT_EQ(::chmod(directory.c_str(), mode), 0);
    }

    // Gives a work directory, and a private file beside it, to a user.
    static void give(workplace const& work, uid_t user, mode_t mode)
    {
        open_to_all(work.outside());
        open_to_all(work.path(), mode);
        std::string const secret = work.outside() + "/secret";
        write_file(secret, private_text);
        ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
        ASSERT_EQ(::chown(secret.c_str(), user, user), 0);
        ASSERT_EQ(::chown(work.path(), user, user), 0);
    }

    static void wait_for_queued(int count)
    {
        EXPECT_TRUE(wait_until([&] {
            strings const texts = traces();
            return std::count(texts.begin(), texts.end(), "add file %s") == count;
        }));
    }
};

result const not_loaded = {eml_send_error_other, "250 localhost\r\n"};

}  // namespace

TEST_P(Strangers, CannotHaveAnotherFileSentThanTheAnnouncedOne)
{
    struct row {
        char const* reason;
        int (*put)(std::string const& path, std::string const& secret);
    };
    row const rows[] = {
        {"a link to a private file",
         [](std::string const& path, std::string const& secret) {
             return ::symlink(secret.c_str(), path.c_str());
         }},
        {"a pipe", [](std::string const& path,
                      std::string const& /*secret*/) { return ::mkfifo(path.c_str(), 0666); }},
        {"more than 64 MiB",
         [](std::string const& path, std::string const& /*secret*/) {
             make_file(path, "to: anna@b.test\n");
             return ::truncate(path.c_str(), (64 << 20) + 1);
         }},
    };
    for (row const& r : rows) {
        mail_server const server;
        workplace const   work(server.smtp_port());
        std::string const his    = work.file("his.sme");
        std::string const secret = work.outside() + "/secret";
        stranger const    he({
               [&] { return make_file(his, "to: anna@b.test\nsubject: his\n") && announce(his); },
               [&] { return std::remove(his.c_str()) == 0 && r.put(his, secret) == 0; },
        });
        give(work, GetParam(), 01777);
        clear_traces();
        {
            acting_user const self(GetParam());
            running_engine    engine(work);
            he.take(0);
            wait_for_queued(1);
            before_open("his.sme", [&](std::string const&) { he.take(1); });
            pass_pauses(1);
            EXPECT_TRUE(met_open()) << r.reason;
            EXPECT_EQ(post_mail(work.path(), "symbol", "own"), 0);
            wait_for_queued(2);
            pass_pauses(1);
            EXPECT_EQ(engine.results.all(), (std::vector<result>{not_loaded, sent})) << r.reason;
            EXPECT_EQ(subjects_of(server.mails()), strings{"own"}) << r.reason;
        }
        EXPECT_EQ(read_file(secret), private_text) << r.reason;
    }
}

// What he announced was his; by now it is another user's, whatever way it came there.
TEST_P(Strangers, CannotHaveAFileSentThatIsNotTheirs)
{
    mail_server const server;
    workplace const   work(server.smtp_port());
    std::string const his = work.file("his.sme");
    stranger const    he(
           {[&] { return make_file(his, "to: anna@b.test\nsubject: his\n") && announce(his); }});
    give(work, GetParam(), 01777);
    acting_user const self(GetParam());
    running_engine    engine(work);
    he.take(0);
    wait_for_queued(1);
    {
        acting_user const administrator(0);
        ASSERT_EQ(std::remove(his.c_str()), 0);
        write_file(his, private_text);
        ASSERT_EQ(::chown(his.c_str(), somebody_else, somebody_else), 0);
    }
    pass_pauses(1);
    EXPECT_EQ(engine.results.all(), std::vector<result>{not_loaded});
    EXPECT_EQ(server.mails().size(), 0U);
}

TEST_P(Strangers, MayPostTheirOwnFilesAndLeaveThemToTheLook)
{
    mail_server const server;
    workplace const   work(server.smtp_port());
    std::string const his = work.file("his.sme");
    stranger const    he({
           [&] { return make_file(his, "to: anna@b.test\nsubject: his\n") && announce(his); },
           [&] { return make_file(work.file("left.sme"), "to: anna@b.test\nsubject: left\n"); },
    });
    give(work, GetParam(), 01777);
    acting_user const self(GetParam());
    running_engine    engine(work);
    he.take(0);
    wait_for_queued(1);
    pass_pauses(1);
    he.take(1);
    pass_pauses(1799);
    EXPECT_EQ(subjects_of(server.mails()), (strings{"his", "left"}));
}

TEST_P(Strangers, CannotHaveALinkSentThatWaitsForTheLook)
{
    mail_server const server;
    workplace const   work(server.smtp_port());
    std::string const secret = work.outside() + "/secret";
    stranger const he({[&] { return ::symlink(secret.c_str(), work.file("a.sme").c_str()) == 0; }});
    give(work, GetParam(), 01777);
    acting_user const self(GetParam());
    running_engine    engine(work);
    he.take(0);
    EXPECT_EQ(post_mail(work.path(), "another", "found"), 0);
    pass_pauses(1800);
    EXPECT_EQ(subjects_of(server.mails()), strings{"found"});
    EXPECT_EQ(read_file(secret), private_text);
}

// The owner of a work directory exchanges each new file between the claim of its name and the save.
TEST_P(Strangers, CannotHaveAPostOverwriteAnotherFile)
{
    workplace const   work(0);
    std::string const secret = work.outside() + "/secret";
    stranger const    he({[&] {
        std::string const ready   = work.file("ready");
        std::string const claimed = work.messages().front();
        return ::symlink(secret.c_str(), ready.c_str()) == 0 &&
               std::rename(ready.c_str(), work.file(claimed).c_str()) == 0;
    }});
    give(work, GetParam(), 0777);
    ASSERT_EQ(::chown(work.path(), stranger_id, stranger_id), 0);
    acting_user const self(GetParam());
    after_open(".sme", [&](std::string const&) { he.take(0); });
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    EXPECT_TRUE(met_open());
    EXPECT_EQ(read_file(secret), private_text);
}

INSTANTIATE_TEST_SUITE_P(OfAnEngine, Strangers, ::testing::Values(0, user_id), [](auto const& who) {
    return std::string(who.param == 0 ? "OfRoot" : "OfAnotherUser");
});

}  // namespace zelieml::test
