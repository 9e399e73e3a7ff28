// long_mail_test.cpp - mails whose bodies stay in their files until they are sent
//
// The reads of the file are replaced at link time: they fail, or the file changes before them.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "libsendw/libsendw.h"
#include "support/attempt_note.h"
#include "tests/libmsg/message_model.h"
#include "tests/libsendw/compose_model.h"
#include "tests/libsendw/send_model.h"
#include "tests/support/fake_clock.h"
#include "tests/support/files.h"
#include "tests/support/random_values.h"
#include "tests/support/trace_recorder.h"

namespace
{

int                   reads        = 0;
int                   special_read = 0;         // of them; 0: none
int                   error        = 0;         // of the special one
std::function<void()> before_read  = nullptr;   // likewise
size_t                most_at_once = SIZE_MAX;  // bytes that a read gives

}  // namespace

extern "C" {

ssize_t REAL_PREAD(int fd, void* data, size_t size, off_t position);

ssize_t WRAP_PREAD(int fd, void* data, size_t size, off_t position)
{
    if (++reads == special_read) {
        if (before_read) {
            before_read();
        }
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    return REAL_PREAD(fd, data, std::min(size, most_at_once), position);
}
}

namespace zelieml
{
namespace
{

constexpr std::int64_t seconds   = 1700000000;
constexpr int          in_a_pass = 5;  // reads, of a file of this size with a long line
constexpr std::size_t  file_size = 200000;

std::string joined(test::server_record const& record)
{
    std::string all;
    for (test::sent_strings const& sent : record.sent) {
        for (std::string const& bytes : sent) {
            all += bytes;
        }
        all += "(ends)";
    }
    return all;
}

class LongMail : public testing::Test
{
protected:
    LongMail()
    {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        test::set_wall_clock(static_cast<std::time_t>(seconds), 0);
        room_.date     = test::model_date(seconds, 0);
        room_.settings = "smtp_server = mail.test\r\nsmtp_port = 25\r\nsmtp_auth = no\r\n"
                         "pop_before_smtp = no\r\nsubject_use_encoding = yes\r\n";
        room_.servers  = {{{"220 ready\r\n", "250 hello\r\n", "250 sender\r\n", "250 anna\r\n",
                            "354 go\r\n", "250 taken\r\n", "221 bye\r\n"}}};
        test::write_file(settings_, *room_.settings);
        reads        = 0;
        special_read = 0;
        error        = 0;
        before_read  = nullptr;
        most_at_once = SIZE_MAX;
    }

    // Sends a file of these bytes.
    test::send_outcome send(std::string const& bytes)
    {
        room_.message = bytes;
        test::write_file(message_, bytes);
        test::fake_mail_servers const servers(room_.servers);
        test::send_outcome            outcome;
        outcome.result = isendw().send(message_.c_str(), settings_.c_str(), outcome.reply);
        outcome.record = servers.record();
        return outcome;
    }

    void expect_as_modelled(std::string const& bytes)
    {
        test::send_outcome const outcome  = send(bytes);
        test::send_outcome const expected = test::model_send(room_, "");
        EXPECT_EQ(outcome.result, expected.result);
        EXPECT_EQ(outcome.reply, expected.reply);
        EXPECT_TRUE(joined(outcome.record) == joined(expected.record));
    }

    test::temp_dir const dir_;
    std::string const    message_  = dir_.file("a.sme");
    std::string const    settings_ = dir_.file("zelismes.cf");
    test::send_room      room_;
};

TEST_F(LongMail, IsSentAsTheModelSays)
{
    for (std::uint32_t round = 0; round < 50 && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::random_values random(round);
        std::string         bytes = "to: anna@a.test\nencoding: ";
        bytes += random.pick({"UTF-8", "ISO-2022-JP", "iso-2022-jp"});
        std::size_t const size = 60000 + random.below(100000);
        while (bytes.size() < size) {
            bytes +=
                random.pick({"\n", "\n.", "\n\n.\n", "\r", "\r\n", "an ordinary line\n",
                             "\x1b$B%H\x1b(B", "\nsubject: from the body\n", "a", " ", "\xff"});
            bytes += random.percent(1) ? std::string(random.below(70000), 'x') : "";
        }
        bytes += random.percent(10) ? std::string("\0cut off\nto: ben@a.test", 22) : "";
        expect_as_modelled(bytes);
    }
}

TEST_F(LongMail, OfAnySizeAroundThatOfShortOnesIsSentAsTheModelSays)
{
    for (char const* const encoding : {"UTF-8", "ISO-2022-JP"}) {
        for (std::size_t const size : {65535u, 65536u, 65537u, 65538u, 131072u, 131073u}) {
            std::string bytes = std::string("to: anna@a.test\nencoding: ") + encoding + "\n";
            bytes += std::string(size - bytes.size(), 'x');
            SCOPED_TRACE(size);
            expect_as_modelled(bytes);
        }
    }
}

// A long header, and nothing to send.
TEST_F(LongMail, MayHaveNoBody)
{
    expect_as_modelled("to: anna@a.test\nsubject: " + std::string(file_size, 's'));
    expect_as_modelled("to: anna@a.test\n" + std::string(file_size, '\n'));
}

// As some file systems do; and not alike both times.
TEST_F(LongMail, MayBeReadInShortPieces)
{
    std::string bytes = "to: anna@a.test\n";
    while (bytes.size() < file_size) {
        bytes += "subject: of " + std::to_string(bytes.size()) + "\nan ordinary line\n";
    }
    for (std::size_t const first : {1000u, 40000u}) {
        for (std::size_t const second : {999u, 70000u}) {
            SCOPED_TRACE(std::to_string(first) + " and " + std::to_string(second));
            reads        = 0;
            most_at_once = first;
            special_read = static_cast<int>((bytes.size() - 1) / first) + 3;
            before_read  = [&] { most_at_once = second; };
            expect_as_modelled(bytes);
            EXPECT_EQ(most_at_once, second);
        }
    }
}

TEST_F(LongMail, IsSentAsItWasWhenItsNameGoesToAnotherFile)
{
    std::string const other = dir_.file("b.sme");
    std::string const bytes = "to: anna@a.test\n" + std::string(file_size, 'x');
    special_read            = in_a_pass + 1;
    before_read             = [&] {
        test::write_file(other, std::string(file_size, 'y'));
        EXPECT_EQ(std::rename(other.c_str(), message_.c_str()), 0);
    };
    expect_as_modelled(bytes);
    EXPECT_GT(reads, special_read);
}

class UnreadableLongMail : public LongMail
{
protected:
    // Sends a mail, and expects that this is why it is not sent.
    void expect_unsent(std::string const& reason)
    {
        for (char const* const encoding : {"UTF-8", "ISO-2022-JP"}) {
            std::string bytes = std::string("to: anna@a.test\nencoding: ") + encoding + "\n";
            bytes += std::string(file_size - bytes.size(), 'x');
            reads = 0;
            test::clear_traces();
            noting_attempt const     attempt;
            test::send_outcome const outcome = send(bytes);
            EXPECT_EQ(outcome.result, send_message_refused);
            EXPECT_EQ(attempt->reason, reason);
            EXPECT_EQ(attempt->cause, eml_cause_file);
            EXPECT_STREQ(attempt->step, "message");

            bool const        loaded = special_read > in_a_pass;
            std::string const sent   = joined(outcome.record);
            EXPECT_EQ(outcome.reply, loaded ? "354 go\r\n" : "250 hello\r\n");
            EXPECT_EQ(sent.find("mail from") != sent.npos, loaded);
            EXPECT_EQ(sent.find("\r\n.\r\n"), sent.npos) << "the mail is not completed";
            EXPECT_EQ(sent.find("quit"), sent.npos);
            std::vector<std::string> traces = {"warning:inet_addr %s", "error:ifstream(%s)"};
            if (loaded) {
                traces.emplace_back("error:_send_message");
            }
            traces.emplace_back("error:send_message");
            traces.emplace_back("error:unexpected %d bytes received.");  // what is left to be said
            EXPECT_EQ(test::trouble_traces(), traces);
        }
    }
};

TEST_F(UnreadableLongMail, IsNotSent)
{
    error = EIO;
    for (special_read = 1; special_read <= 2 * in_a_pass; ++special_read) {
        SCOPED_TRACE("read " + std::to_string(special_read));
        expect_unsent("the message file cannot be read: Input/output error");
    }
}

TEST_F(UnreadableLongMail, IsNotSentWhenItChangesMeanwhile)
{
    std::function<void()> const changes[] = {
        [&] { EXPECT_EQ(::truncate(message_.c_str(), 0), 0); },
        [&] { EXPECT_EQ(::truncate(message_.c_str(), file_size - 1), 0); },
        [&] { EXPECT_EQ(::truncate(message_.c_str(), file_size + 1), 0); },
        [&] { test::write_file(message_, std::string(file_size, 'y')); },
    };
    for (auto const& change : changes) {
        before_read = change;
        for (special_read = in_a_pass + 1; special_read <= 2 * in_a_pass; ++special_read) {
            SCOPED_TRACE("read " + std::to_string(special_read));
            expect_unsent("the message file cannot be read: it has changed meanwhile");
        }
    }
}

}  // namespace
}  // namespace zelieml
