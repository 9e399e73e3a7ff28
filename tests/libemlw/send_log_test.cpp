// send_log_test.cpp - the send log, were it switched on

#include "libemlw/send.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "tests/support/fake_clock.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

class SendLog : public ::testing::Test
{
protected:
    SendLog()
    {
        ::setenv("TZ", "UTC0", 1);
        test::set_wall_clock(1794740131, 0);  // 2026-11-15 10:55:31
        ::mkdir(workdir().c_str(), 0777);
        message("printer@a.test", "paper");
    }

    std::string workdir() const { return dir_.file("w"); }
    std::string file() const { return workdir() + "/m.sme"; }
    // The backslash is part of the name: the log lies beside the work directory.
    std::string log() const { return dir_.file("w\\202611.log"); }
    std::string logged() const { return test::file_exists(log()) ? test::read_file(log()) : ""; }

    void message(std::string const& from, std::string const& subject)
    {
        test::write_file(file(), "from: " + from + "\nsubject: " + subject + "\nbody\n");
    }
    void write(int code, std::string const& detail)
    {
        write_log(workdir().c_str(), file(), code, detail);
    }

    temp_dir const    dir_;
    std::string const time_ = "2026/11/15 10:55:31,";
};

TEST_F(SendLog, HasALineOfFourFieldsOrOfThreeWithoutADetail)
{
    struct row {
        int         code;
        char const* detail;
        char const* line;
    };
    row const rows[] = {
        {send_ok, "221 bye", "send(ok),printer@a.test,paper,221 bye\n"},
        {send_ok, "", "send(ok),printer@a.test,paper\n"},
        {send_no_server, "", "error(connectioin),printer@a.test,paper\n"},
        {pop_pass_refused, "-ERR no", "error(auth),printer@a.test,paper,-ERR no\n"},
        {send_other_failure, "100% %s %n", "error(other),printer@a.test,paper,100% %s %n\n"},
        {send_ok, "250-a\r\n250 b\r\n", "send(ok),printer@a.test,paper,250-a\r\n250 b\r\n\n"},
    };
    std::string all;
    for (row const& r : rows) {
        write(r.code, r.detail);
        all += time_ + r.line;
        EXPECT_EQ(logged(), all);
    }
    EXPECT_EQ(test::list_directory(workdir()), strings{"m.sme"});
    EXPECT_EQ(test::list_directory(dir_.path()), (strings{"w", "w\\202611.log"}));
}

TEST_F(SendLog, TakesFromAndSubjectAsTheyStandInTheFile)
{
    message("a, \"b\" <%s%d>", "紙, %x");
    write(send_ok, "");
    message("", "");
    write(send_ok, "");
    EXPECT_EQ(logged(), time_ + "send(ok),a, \"b\" <%s%d>,紙, %x\n" + time_ + "send(ok),,\n");
}

TEST_F(SendLog, HasNoLineForAMessageThatCannotBeLoaded)
{
    test::clear_traces();
    write_log(workdir().c_str(), file() + ".missing", send_ok, "detail");
    write_log(workdir().c_str(), workdir(), send_ok, "detail");
    EXPECT_EQ(test::list_directory(dir_.path()), strings{"w"});
    EXPECT_EQ(test::traces(), strings(2, "error:ifstream(%s)"));
}

TEST_F(SendLog, CutsALineSoThatItEndsWithin1023Bytes)
{
    for (std::size_t const length : {std::size_t{900}, std::size_t{1100}, std::size_t{100000}}) {
        message("f", std::string(length, 's'));
        write(send_ok, "221 bye");
        std::string const line  = logged();
        std::string const whole = time_ + "send(ok),f," + std::string(length, 's') + ",221 bye\n";
        EXPECT_EQ(line, whole.size() <= 1023 ? whole : whole.substr(0, 1022) + "\n");
        std::remove(log().c_str());
    }
}

TEST_F(SendLog, StartsANewFileWithEachMonth)
{
    write(send_ok, "november");
    test::set_wall_clock(1796083200, 0);  // 2026-12-01 00:00:00
    write(send_ok, "december");
    EXPECT_EQ(logged(), time_ + "send(ok),printer@a.test,paper,november\n");
    EXPECT_EQ(test::read_file(dir_.file("w\\202612.log")),
              "2026/12/01 00:00:00,send(ok),printer@a.test,paper,december\n");
}

TEST_F(SendLog, ThatCannotBeWrittenIsNoFailure)
{
    ::mkdir(log().c_str(), 0777);
    write(send_ok, "221 bye");
    EXPECT_EQ(test::list_directory(log()), strings());
}

TEST_F(SendLog, IsWrittenBeforeTheMessageIsDeleted)
{
    std::string detail = "as it was";
    EXPECT_EQ(send_sync(workdir().c_str(), file().c_str(), detail), send_no_server);
    EXPECT_EQ(logged(), time_ + "error(connectioin),printer@a.test,paper,as it was\n");
    EXPECT_EQ(test::list_directory(workdir()), strings());
}
