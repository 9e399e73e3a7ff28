// liblog_test.cpp - the log file of a month

#include "liblog/liblog.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "tests/support/fake_clock.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

constexpr std::time_t november_15 = 1794772531;  // 2026/11/15 19:55:31
constexpr std::time_t day         = 86400;

std::string const stamp = "2026/11/15 19:55:31";

class LogFile : public testing::Test
{
protected:
    void SetUp() override
    {
        ::setenv("TZ", "GMT0", 1);
        test::set_wall_clock(november_15, 0);
        test::clear_traces();
        work = dir.file("work");
    }

    void TearDown() override { EXPECT_EQ(test::trouble_traces(), strings()); }

    test::temp_dir dir;
    std::string    work;  // the directory that is given; the file lies beside it
};

TEST_F(LogFile, LiesBesideTheDirectoryWithABackslashInItsName)
{
    liblog(work.c_str(), "sent %s, %d", "x.sme", 0);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"work\\202611.log"});
    EXPECT_EQ(test::read_file(work + "\\202611.log"), stamp + ",sent x.sme, 0\n");
    EXPECT_EQ(get_filepath("/tmp/q"), "/tmp/q\\202611.log");
    EXPECT_EQ(get_filepath(""), "\\202611.log");
    EXPECT_EQ(test::traces(), strings()) << "writing the log is not traced";
}

TEST_F(LogFile, GrowsByALineEachTime)
{
    test::write_file(work + "\\202611.log", "from before\r\n");
    liblog(work.c_str(), "one");
    test::set_wall_clock(november_15 + 1, 0);
    liblog(work.c_str(), "two");
    EXPECT_EQ(test::read_file(work + "\\202611.log"),
              "from before\r\n2026/11/15 19:55:31,one\n2026/11/15 19:55:32,two\n");
}

TEST_F(LogFile, IsANewOneEachMonth)
{
    liblog(work.c_str(), "november");
    test::set_wall_clock(november_15 + 20 * day, 0);
    liblog(work.c_str(), "december");
    test::set_wall_clock(november_15 + 50 * day, 0);
    liblog(work.c_str(), "january");
    EXPECT_EQ(test::list_directory(dir.path()),
              (strings{"work\\202611.log", "work\\202612.log", "work\\202701.log"}));
    EXPECT_EQ(test::read_file(work + "\\202611.log"), "2026/11/15 19:55:31,november\n");
    EXPECT_EQ(test::read_file(work + "\\202612.log"), "2026/12/05 19:55:31,december\n");
    EXPECT_EQ(test::read_file(work + "\\202701.log"), "2027/01/04 19:55:31,january\n");
}

TEST_F(LogFile, HasALineForAnEmptyMessage)
{
    liblog(work.c_str(), "%s", "");
    EXPECT_EQ(test::read_file(work + "\\202611.log"), stamp + ",\n");
}

TEST_F(LogFile, HasLinesOfAtMost1023CharactersWithTheirLf)
{
    struct {
        std::size_t message;
        std::size_t kept;
        char const* reason;
    } const cases[] = {
        {1001, 1001, "one below the limit"},
        {1002, 1002, "the time, a comma, 1002 characters and the LF are 1023"},
        {1003, 1002, "one too many"},
        {1022, 1002, "cut by the line"},
        {1023, 1002, "the longest message that its own buffer takes"},
        {1024, 1002, "cut by the message's buffer first"},
        {100000, 1002, "far too long"},
    };
    for (auto const& c : cases) {
        test::write_file(work + "\\202611.log", "");
        liblog(work.c_str(), "%s", std::string(c.message, 'm').c_str());
        EXPECT_EQ(test::read_file(work + "\\202611.log"),
                  stamp + "," + std::string(c.kept, 'm') + "\n")
            << c.reason;
    }
}

TEST_F(LogFile, IsNotMadeWhereNoneCanBe)
{
    test::write_file(dir.file("file"), "");
    liblog(dir.file("none/work").c_str(), "no such directory");
    liblog(dir.file("file/work").c_str(), "a path through a file");
    liblog(nullptr, "no directory");
    void (*const unchecked)(char const*, char const*, ...) = liblog;
    unchecked(work.c_str(), nullptr);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"file"});

    ASSERT_EQ(::mkdir((work + "\\202611.log").c_str(), 0700), 0);
    liblog(work.c_str(), "a directory of that name");
    EXPECT_EQ(test::list_directory(work + "\\202611.log"), strings());
}

TEST_F(LogFile, StaysAsItIsOnAFullDisk)
{
    liblog(work.c_str(), "one");
    std::string const before = test::read_file(work + "\\202611.log");
    {
        test::full_disk const limit(before.size());
        liblog(work.c_str(), "two");
    }
    EXPECT_EQ(test::read_file(work + "\\202611.log"), before);
}

TEST_F(LogFile, TakesWholeLinesOfSeveralThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int n = 0; n < 50; ++n) {
                liblog(work.c_str(), "%s", std::string(900, static_cast<char>('a' + i)).c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string const all    = test::read_file(work + "\\202611.log");
    std::size_t const length = stamp.size() + 1 + 900 + 1;
    ASSERT_EQ(all.size(), 200 * length);
    for (std::size_t at = 0; at < all.size(); at += length) {
        char const letter = all[at + stamp.size() + 1];
        EXPECT_EQ(all.substr(at, length), stamp + "," + std::string(900, letter) + "\n");
    }
}

}  // namespace
}  // namespace zelieml
