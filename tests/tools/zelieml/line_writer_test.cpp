// line_writer_test.cpp - lines for somebody who may not read them

#include "tools/zelieml/line_writer.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

using program::line_writer;
using std::chrono::milliseconds;
using std::chrono::seconds;

class LineWriter : public testing::Test
{
protected:
    LineWriter()
    {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }

    // All that comes until nobody has the other end.
    std::string read_all()
    {
        writer.reset();
        std::string all;
        char        bytes[4096];
        ssize_t     got = 0;
        while ((got = ::read(reader.get(), bytes, sizeof bytes)) > 0) {
            all.append(bytes, static_cast<std::size_t>(got));
        }
        return all;
    }

    static std::chrono::steady_clock::time_point in(milliseconds time)
    {
        return std::chrono::steady_clock::now() + time;
    }

    unique_fd reader;
    unique_fd writer;
};

TEST_F(LineWriter, WritesLinesInOrder)
{
    line_writer lines(writer.get(), nullptr);
    lines.add("one");
    lines.add("two");
    lines.finish(in(seconds(20)));
    EXPECT_EQ(read_all(), "one\ntwo\n");
}

TEST_F(LineWriter, DropsAndCountsWhatFindsNoRoom)
{
    std::atomic<std::size_t> dropped{0};
    {
        line_writer       lines(writer.get(), [&](int error, std::size_t count) {
            EXPECT_EQ(error, 0);
            dropped += count;
        });
        std::string const long_line(1 << 20, 'x');  // more than a pipe holds
        lines.add(long_line);
        for (std::size_t i = 1; i < line_writer::most + 7; ++i) {
            lines.add("line");
        }
        lines.finish(in(milliseconds(10)));  // in vain
        char        bytes[65536];
        std::size_t got = 0;
        while (got < long_line.size() + 1 + 5 * (line_writer::most - 1)) {
            ssize_t const piece = ::read(reader.get(), bytes, sizeof bytes);
            ASSERT_GT(piece, 0);
            got += static_cast<std::size_t>(piece);
        }
        lines.finish(in(seconds(20)));
    }
    EXPECT_EQ(dropped, 7u);
}

TEST_F(LineWriter, SaysOnceThatItCannotWrite)
{
    std::atomic<int> errors{0};
    unique_fd        read_only(::open("/dev/null", O_RDONLY));
    line_writer      lines(read_only.get(), [&](int error, std::size_t) {
        EXPECT_EQ(error, EBADF);
        ++errors;
    });
    lines.add("one");
    lines.add("two");
    lines.finish(in(seconds(20)));
    EXPECT_EQ(errors, 1);
}

TEST_F(LineWriter, EndsThoughNobodyReads)
{
    {
        line_writer lines(writer.get(), nullptr);
        lines.add(std::string(1 << 20, 'x'));
        lines.add("and more");
        lines.finish(in(milliseconds(10)));
    }
    std::string all;
    char        bytes[65536];
    while (all.size() < (1 << 20) + 10) {  // the thread goes on: let it end
        ssize_t const got = ::read(reader.get(), bytes, sizeof bytes);
        ASSERT_GT(got, 0);
        all.append(bytes, static_cast<std::size_t>(got));
    }
    EXPECT_EQ(all.substr(all.size() - 9), "and more\n");
}

}  // namespace

}  // namespace zelieml::test
