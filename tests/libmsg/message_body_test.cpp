// message_body_test.cpp - bodies that stay in their files

#include "libmsg/message_body.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "tests/libmsg/message_model.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
#include "tests/support/random_values.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

constexpr std::size_t piece = 65536;  // of the file

class MessageBody : public testing::Test
{
protected:
    message_holder load(message_body& body, message_file const& file)
    {
        void*     msg    = nullptr;
        int const result = body.load(&msg, file);
        EXPECT_EQ(result, 0);
        return message_holder(msg);
    }

    // All that is left, read in pieces of a size.
    static std::string read_all(message_body& body, std::size_t size)
    {
        std::string all;
        std::string bytes(size, '\0');
        std::size_t count = size;
        while (count == size) {
            if (!body.read(&bytes[0], size, count)) {
                return "cannot be read";
            }
            all.append(bytes, 0, count);
        }
        return all;
    }

    // Loads and reads a file of these bytes as the model says.
    void expect_as_modelled(std::string const& bytes, std::vector<std::size_t> const& sizes)
    {
        test::write_file(path_, bytes);
        message_file const file = follow_message_file(path_.c_str());
        for (std::size_t const size : sizes) {
            message_body         body;
            message_holder const msg = load(body, file);
            test::message        m   = test::get_all(msg.get());
            EXPECT_EQ(m.body, "");
            m.body = read_all(body, size);
            EXPECT_TRUE(m == test::message_of(bytes)) << "in pieces of " << size;
            EXPECT_GE(body.most(), static_cast<std::int64_t>(m.body.size()));
        }
        ::unlink(path_.c_str());
    }

    test::temp_dir const dir_;
    std::string const    path_ = dir_.file("a.sme");
};

TEST_F(MessageBody, IsThatOfALoadedMessage)
{
    for (std::uint32_t round = 0; round < 500 && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::random_values random(round);
        std::string         bytes;
        for (auto count = random.below(40); count > 0; --count) {
            bytes += random.pick({"\n", "\n", "\nto: x", "\ncc: ", "a", "word ", "\r", "\r\n",
                                  "to: ", "\x1b$B%H\x1b(B", "\nsubject: ", ".", "\n.\n", "\xff"});
            bytes += random.percent(5) ? std::string(random.below(2 * piece), 'x') : "";
            bytes += random.percent(1) ? std::string(1, '\0') : "";
        }
        expect_as_modelled(bytes, {1 + random.below(100), 1 + random.below(100000)});
    }
}

// What can be cut at the border of two pieces.
TEST_F(MessageBody, IsTheSameAtEveryBorder)
{
    for (std::string const& cut :
         {std::string("\nmessageid: 1\n"), std::string("\r\n\r\n"), std::string("\n\n.\n"),
          std::string("\nto: a\0b\nc", 10), std::string("x\0\ncc: c\n", 9)}) {
        for (std::size_t before = 0; before <= cut.size(); ++before) {
            for (char const* const line : {"", "an ordinary line\n"}) {
                std::string bytes = "subject: s\n";
                while (*line != '\0' && bytes.size() + 100 < piece) {
                    bytes += line;
                }
                bytes += std::string(piece - before - bytes.size(), 'x') + cut;
                SCOPED_TRACE(testing::PrintToString(cut) + " after " + std::to_string(before));
                expect_as_modelled(bytes, {1000, 57 * 1024});
                expect_as_modelled(bytes + std::string(piece, 'y') + "\nz\n", {piece});
            }
        }
    }
}

TEST_F(MessageBody, MayBeEmptyOrAllLineBreaks)
{
    for (std::string const& bytes :
         {std::string(), std::string("\n"), std::string(200000, '\n'), std::string("to: a"),
          "x" + std::string(200000, '\n'), std::string(200000, '\0')}) {
        expect_as_modelled(bytes, {2, 100000});
    }
}

// ---- files that change

struct change {
    char const*                                  what;
    std::function<void(std::string const& path)> make;
};

TEST_F(MessageBody, OfAFileThatHasChangedCannotBeReadToItsEnd)
{
    std::string bytes = "to: a\n";
    while (bytes.size() < 200000) {
        bytes += "a line\n";
    }
    auto const at = [&](std::size_t position, char c) {
        std::string other = bytes;
        other[position]   = c;
        return [other](std::string const& path) { test::write_file(path, other); };
    };
    change const changes[] = {
        {"shorter",
         [](std::string const& path) { ASSERT_EQ(::truncate(path.c_str(), 190000), 0); }},
        {"empty", [](std::string const& path) { ASSERT_EQ(::truncate(path.c_str(), 0), 0); }},
        {"longer", [](std::string const& path) { ASSERT_EQ(::truncate(path.c_str(), 210000), 0); }},
        {"a byte", at(100000, 'b')},
        {"the first byte", at(0, 'T')},
        {"the last byte", at(bytes.size() - 1, ' ')},
        {"a header", at(4, 'b')},
        {"a NUL", at(7, '\0')},
    };
    for (change const& c : changes) {
        for (std::size_t const size : {1000u, 300000u}) {
            SCOPED_TRACE(c.what + (" by " + std::to_string(size)));
            test::write_file(path_, bytes);
            message_file const   file = follow_message_file(path_.c_str());
            message_body         body;
            message_holder const msg = load(body, file);
            c.make(path_);
            errno = EAGAIN;
            EXPECT_EQ(read_all(body, size), "cannot be read");
            EXPECT_EQ(errno, 0);
            char        byte  = 0;
            std::size_t count = 0;
            EXPECT_FALSE(body.read(&byte, 1, count)) << "once more";
        }
    }
}

TEST_F(MessageBody, OfAFileThatHasGrownBeyondItsLimitCannotBeRead)
{
    test::write_file(path_, std::string(100000, 'x'));
    message_file const file(unique_fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC)), 100000, 150000);
    message_body       body;
    message_holder const msg = load(body, file);
    test::write_file(path_, std::string(200000, 'x'));
    EXPECT_EQ(read_all(body, 1000), "cannot be read");
    EXPECT_EQ(errno, EFBIG);
}

// ---- what cannot be loaded

TEST_F(MessageBody, LeavesAnEmptyRecordIfItCannotBeLoaded)
{
    message_file const files[] = {
        {}, message_file(unique_fd(::open(dir_.path().c_str(), O_RDONLY | O_CLOEXEC)))};
    for (message_file const& file : files) {
        message_body body;
        void*        msg = nullptr;
        test::clear_traces();
        errno = 0;
        EXPECT_EQ(body.load(&msg, file), -1);
        EXPECT_EQ(errno, file ? EISDIR : 0);
        EXPECT_EQ(test::traces(), std::vector<std::string>{"error:ifstream(%s)"});
        EXPECT_EQ(test::get_all(msg), test::message());
        msg_destroy(msg);
    }
}

TEST_F(MessageBody, TakesNoMemoryOnceItIsLoaded)
{
    test::write_file(path_, "to: " + std::string(100, 'a') + "\n" + std::string(200000, 'x'));
    message_file const file    = follow_message_file(path_.c_str());
    int                failed  = 0;
    bool               refused = true;
    for (int good = 0; refused; ++good) {
        ASSERT_LT(good, 10);
        message_body body;
        void*        msg    = nullptr;
        int          result = 0;
        test::clear_traces();
        {
            test::failing_new const no_memory(good);
            result  = body.load(&msg, file);
            refused = test::failing_new::refused();
        }
        message_holder const record(msg);
        EXPECT_EQ(result, refused ? -1 : 0);
        if (result != 0) {
            EXPECT_EQ(errno, ENOMEM);
            ++failed;
        } else {
            std::string             all(200001, '\0');
            std::size_t             count = 0;
            test::failing_new const none(0);
            EXPECT_TRUE(body.read(&all[0], all.size(), count));
            EXPECT_EQ(count, 200000U);
            EXPECT_FALSE(test::failing_new::refused());
        }
    }
    EXPECT_EQ(failed, 3) << "the record, the buffer and the header";
}

}  // namespace
}  // namespace zelieml
