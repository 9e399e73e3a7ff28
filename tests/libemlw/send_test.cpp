// send_test.cpp - a message file is sent once and deleted, and the send log stays off

#include "libemlw/send.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "libsendw/libsendw.h"
#include "tests/libemlw/work_room.h"
#include "tests/support/dialogues.h"
#include "tests/support/scripted_server.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::scripted_server;
using zelieml::test::strings;

class SendSync : public test::work_room
{
protected:
    SendSync() { message("t"); }

    std::string file() const { return work_room::file("t"); }

    int send()
    {
        test::clear_traces();
        return send_sync(workdir().c_str(), file().c_str(), detail_);
    }

    std::string detail_ = "as it was";
};

TEST_F(SendSync, DeletesTheFileAfterSuccess)
{
    scripted_server server(test::helo + test::mail_from("r") + test::rcpt_to("t@a.test") +
                           test::text_sent + test::goodbye);
    server.set_host("[192.0.2.10]");
    settings(server.port());
    EXPECT_EQ(send(), send_ok);
    EXPECT_EQ(detail_, "221 bye\r\n");
    EXPECT_EQ(test::list_directory(workdir()), strings{"zelismes.cf"});
    EXPECT_TRUE(server.ok()) << server.problem();
    strings const traces = test::traces();
    ASSERT_GE(traces.size(), 2U);
    EXPECT_EQ(traces[traces.size() - 2], "ok: SEND(sync)!! %s");
    EXPECT_EQ(traces.back(), "removed %s");
    EXPECT_EQ(std::count(traces.begin(), traces.end(), "error:isendw::send_sync"), 0);
}

TEST_F(SendSync, DeletesTheFileAfterFailure)
{
    EXPECT_EQ(send(), send_no_server);
    EXPECT_EQ(detail_, "as it was");
    EXPECT_EQ(test::list_directory(workdir()), strings());
    strings const traces = test::traces();
    ASSERT_GE(traces.size(), 2U);
    EXPECT_EQ(traces[traces.size() - 2], "error:isendw::send_sync");
    EXPECT_EQ(traces.back(), "removed %s");
}

TEST_F(SendSync, TellsWhenTheFileCannotBeDeleted)
{
    ASSERT_EQ(std::remove(file().c_str()), 0);
    EXPECT_EQ(send(), send_no_server);
    EXPECT_EQ(test::traces().back(), "error:remove(%s)");
}

TEST_F(SendSync, OfAMissingFileIsAMessageThatIsNotLoaded)
{
    ASSERT_EQ(std::remove(file().c_str()), 0);
    scripted_server server(test::helo + test::hangs_up);
    server.set_host("[192.0.2.10]");
    settings(server.port());
    EXPECT_EQ(send(), send_message_refused);
    EXPECT_EQ(detail_, "250 mail.test\r\n");
    EXPECT_TRUE(server.ok()) << server.problem();
}

TEST(LogYes, IsFalseForAnyDirectory)
{
    EXPECT_FALSE(log_yes("/tmp"));
    EXPECT_FALSE(log_yes(""));
    EXPECT_FALSE(log_yes(nullptr));
}

TEST_F(SendSync, WithTheSendLogOffTheMessageIsNotEvenLoaded)
{
    test::clear_traces();
    write_log(workdir().c_str(), file() + ".missing", 0, "detail");
    EXPECT_EQ(test::traces(), strings()) << "a load of a missing file would be traced";
    write_log(workdir().c_str(), file(), 0, "detail");
    EXPECT_EQ(test::list_directory(dir_.path()), strings{"w"});
    EXPECT_EQ(test::list_directory(workdir()), strings{"t.sme"});
}
