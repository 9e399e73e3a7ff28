// fork_engine_test.cpp - an engine in a child of a process that has engines

#include <gtest/gtest.h>

#include "tests/engine/program.h"
#include "tests/engine/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

}  // namespace

TEST(ForkEngine, RunsBesideThoseOfTheParent)
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

}  // namespace zelieml::test
