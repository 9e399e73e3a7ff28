// fork_engine_test.cpp - an engine in a child of a process that has one

#include <gtest/gtest.h>

#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

}  // namespace

class ForkEngine : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SKIP_UNLESS(has_backend("linux"), "macOS allows no notifications in a forked child");
        SKIP_UNLESS(!has_sanitizer("thread"),
                    "the thread sanitizer allows no threads in a forked child");
    }
};

TEST_F(ForkEngine, RunsBesideThoseOfTheParent)
{
    mail_server server;
    mail_server other;
    workplace   work(server.smtp_port());
    workplace   other_work(other.smtp_port());
    program     engines(
            {PEER_PROGRAM, "fork_engine", work.path(), "parent's", other_work.path(), "child's"});
    EXPECT_EQ(engines.wait(), 0) << engines.err();
    EXPECT_EQ(subjects_of(server.mails()), strings{"to the parent's"});
    EXPECT_EQ(subjects_of(other.mails()), strings{"to the child's"});
    EXPECT_EQ(root.sockets(), strings());
}

// Its only thread is the copy of the worker.
TEST_F(ForkEngine, EndsInAChildThatReturnsFromACallback)
{
    mail_server server;
    workplace   work(server.smtp_port());
    program     engine({PEER_PROGRAM, "fork_in_callback", work.path(), "symbol"});
    EXPECT_EQ(engine.wait(), 0) << engine.err();
    EXPECT_EQ(engine.out(), "child 0\nresult 0 221 2.0.0 goodbye\nresult 0 221 2.0.0 goodbye\n");
    EXPECT_EQ(engine.err(), "");
    EXPECT_EQ(subjects_of(server.mails()), numbered("mail", 2));
    EXPECT_EQ(work.messages(), strings());
    EXPECT_EQ(root.sockets(), strings());
}

}  // namespace zelieml::test
