// post_command_test.cpp - zelieml post: the mail is saved for an engine, and the engine sends it

#include <gtest/gtest.h>
#include <sysexits.h>
#include <vector>

#include "tests/support/full_disk.h"
#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

outcome post(workplace const& work, strings const& more = {}, std::string const& body = "hello\n")
{
    strings words = {"post", "-w",       work.path(), "--from", "p7@a.test",
                     "--to", "x@b.test", "--subject", "tray 2"};
    words.insert(words.end(), more.begin(), more.end());
    return run_zelieml(words, body);
}

TEST(Post, SavesTheMailAndSaysNothing)
{
    notification_root const root;
    workplace const         work(1);
    outcome const           run = post(work);
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    ASSERT_EQ(work.messages().size(), 1U);
    EXPECT_EQ(read_file(work.file(work.messages()[0])),
              "encoding: UTF-8\nfrom: p7@a.test\nto: x@b.test\nsubject: tray 2\n"
              "replyto: p7@a.test\nhello\n");
}

TEST(Post, PrintsJson)
{
    notification_root const root;
    workplace const         work(1);
    outcome const           run = post(work, {"--json"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out.rfind("{\"code\":0,\"number\":0,\"cause\":\"none\",\"step\":\"\","
                            "\"reason\":\"\",\"reply\":\"\",\"seconds\":",
                            0),
              0U)
        << run.out;
    EXPECT_EQ(run.out.find("\"file\""), run.out.npos) << run.out;
}

TEST(Post, NotifiesTheEngineOfItsSymbol)
{
    for (std::string const& symbol : {std::string("zelieml_stocksymbol"), std::string("ours")}) {
        notification_root const root;
        mail_server             server;
        workplace const         work(server.smtp_port());
        running_engine const    engine(work, symbol);
        wait_for_registration();
        strings const more =
            symbol == "ours" ? strings{"--symbol", symbol} : strings{};  // or the usual one
        ASSERT_EQ(post(work, more).status, EX_OK);
        ASSERT_TRUE(server.wait_for_mails(1));
        EXPECT_EQ(subjects_of(server.mails()), strings{"tray 2"});
    }
}

TEST(Post, RefusesWhatSendRefuses)
{
    workplace const work(1);
    outcome const   run = post(work, {}, "a\nto: b@b.test\n");
    EXPECT_EQ(run.status, EX_DATAERR);
    EXPECT_NE(run.err.find("zelieml: standard input, line 2: "), run.err.npos) << run.err;
    EXPECT_EQ(post(work, {"--check"}).status, EX_DATAERR);
    EXPECT_EQ(work.messages(), strings{});
}

TEST(Post, ShowsTheMailInADryRun)
{
    workplace const work(1);
    outcome const   run = post(work, {"--dry-run"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out.rfind("MAIL FROM:<p7@a.test>\nRCPT TO:<x@b.test>\n\nDate: ", 0), 0U)
        << run.out;
    EXPECT_EQ(work.messages(), strings{});
}

TEST(Post, SaysThatThePathIsTooLong)
{
    workplace const work(1);
    std::string     path = work.path();
    while (path.size() < 230) {
        path += "/" + std::string(60, 'd');
        ASSERT_EQ(::mkdir(path.c_str(), 0777), 0);
    }
    outcome const run =
        run_zelieml({"post", "-w", path, "--from", "p7@a.test", "--to", "x@b.test"}, "hello\n");
    EXPECT_EQ(run.status, EX_CANTCREAT);
    EXPECT_NE(run.err.find(path + ": the path is too long: use a shorter path\n"), run.err.npos)
        << run.err;
}

TEST(Post, SaysWhyTheMailCannotBeSaved)
{
    workplace const work(1);
    {
        full_disk const full(16384);
        outcome const   run = post(work, {"--json"}, std::string(30000, 'a'));
        EXPECT_EQ(run.status, EX_CANTCREAT);
        EXPECT_EQ(run.err, "zelieml: the message cannot be saved in " + std::string(work.path()) +
                               ": File too large: make room, give this user the right to write "
                               "there, or use another directory\n");
        EXPECT_EQ(run.out.rfind("{\"code\":1,\"number\":100,\"cause\":\"file\",\"step\":"
                                "\"message\",\"reason\":\"the message cannot be saved in ",
                                0),
                  0U)
            << run.out;
        EXPECT_EQ(work.messages(), strings{});  // nor a part of it
    }
}

}  // namespace

}  // namespace zelieml::test
