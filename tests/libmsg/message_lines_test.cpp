// message_lines_test.cpp - message files read through small buffers, so that everything falls on
// the border of two pieces

#include "libmsg/message_lines.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libmsg/load_message.h"
#include "tests/libmsg/message_model.h"
#include "tests/support/files.h"
#include "tests/support/random_values.h"

namespace zelieml
{
namespace
{

constexpr std::size_t longest_key = 11;

// A file with these bytes; its name is gone.
message_file file_with(test::temp_dir const& dir, std::string const& bytes)
{
    std::string const path = dir.file("a");
    test::write_file(path, bytes);
    message_file file = follow_message_file(path.c_str());
    ::unlink(path.c_str());
    return file;
}

std::string random_file(test::random_values& random)
{
    std::string bytes;
    for (auto count = random.below(30); count > 0; --count) {
        bytes += random.pick(test::file_pieces);
        bytes += random.percent(2) ? std::string(1, '\0') : "";
    }
    return bytes;
}

// room  for lines of the body that are taken together; 0: none are
test::message by_parts(message_file const& file, std::size_t size, std::size_t room)
{
    std::vector<char> buffer(size);
    message_lines     lines(file, buffer.data(), size);
    _s_msg            record;
    msg_init(&record);
    for (message_part part; lines.next(part);) {
        if (part.header != nullptr) {
            set_header(part, record);
        } else {
            record.body += part.joint;
            record.body += part.text;
        }
        std::string       more(room, '\0');
        std::size_t const count = lines.take_body(&more[0], room);
        EXPECT_LE(count, room);
        record.body.append(more, 0, count);
    }
    EXPECT_FALSE(lines.failed());
    EXPECT_EQ(lines.so_far().count, file.size());
    return test::get_all(&record);
}

test::message by_headers(message_file const& file, std::size_t size, std::int64_t& most)
{
    std::vector<char> buffer(size);
    message_lines     lines(file, buffer.data(), size);
    _s_msg            record;
    msg_init(&record);
    for (message_part part; lines.next_header(part);) {
        set_header(part, record);
    }
    EXPECT_FALSE(lines.failed());
    EXPECT_EQ(lines.so_far().count, file.size());
    most = lines.most_of_body();
    return test::get_all(&record);
}

TEST(MessageLines, AreTheMessageWhateverTheSizeOfThePieces)
{
    test::temp_dir const dir;
    int                  with_headers = 0;
    for (std::uint32_t round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        test::random_values random(round);
        std::string const   bytes = random_file(random);
        message_file const  file  = file_with(dir, bytes);
        test::message       m     = test::message_of(bytes);
        for (std::size_t size = longest_key + 1; size < 60; size += 1 + random.below(5)) {
            SCOPED_TRACE(testing::PrintToString(bytes) + " by " + std::to_string(size));
            EXPECT_EQ(by_parts(file, size, 0), m);
            EXPECT_EQ(by_parts(file, size, 1 + random.below(100)), m) << "several lines at once";
        }
        std::int64_t most = 0;
        std::string  body;
        body.swap(m.body);
        for (std::size_t size = longest_key + 1; size < 60; size += 1 + random.below(5)) {
            SCOPED_TRACE(testing::PrintToString(bytes) + " by " + std::to_string(size));
            EXPECT_EQ(by_headers(file, size, most), m) << "without the body";
            EXPECT_GE(most, static_cast<std::int64_t>(body.size()));
            EXPECT_LE(most, static_cast<std::int64_t>(3 * bytes.size() + 2));
        }
        with_headers += m == test::message() ? 0 : 1;
    }
    EXPECT_GE(with_headers, 300);
}

TEST(MessageLines, HaveSumsThatTellAChange)
{
    test::temp_dir const     dir;
    std::vector<std::string> files = {"",
                                      std::string(1, '\0'),
                                      "a",
                                      "b",
                                      "ab",
                                      "ba",
                                      "12345678abcdefgh",
                                      "abcdefgh12345678",
                                      "12345678abcdefgh1",
                                      "12345678abcdefgh2"};
    std::vector<reading>     readings;
    for (std::string const& bytes : files) {
        char          buffer[64];
        message_file  file = file_with(dir, bytes);
        message_lines lines(file, buffer, sizeof buffer);
        for (message_part part; lines.next(part);) {
        }
        readings.push_back(lines.so_far());
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (std::size_t j = 0; j < files.size(); ++j) {
            EXPECT_EQ(readings[i] == readings[j], i == j)
                << testing::PrintToString(files[i]) << " and " << testing::PrintToString(files[j]);
        }
    }
}

TEST(MessageLines, SayWhyTheyCannotBeRead)
{
    test::temp_dir const dir;
    message_file const   directory(unique_fd(::open(dir.path().c_str(), O_RDONLY | O_CLOEXEC)));
    for (bool const headers : {false, true}) {
        char          buffer[64];
        message_part  part;
        message_lines lines(directory, buffer, sizeof buffer);
        errno = 0;
        EXPECT_FALSE(headers ? lines.next_header(part) : lines.next(part));
        EXPECT_EQ(errno, EISDIR);
        EXPECT_TRUE(lines.failed());
        EXPECT_FALSE(headers ? lines.next_header(part) : lines.next(part)) << "once more";
    }
}

}  // namespace
}  // namespace zelieml
