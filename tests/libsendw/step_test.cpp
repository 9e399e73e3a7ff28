#include "libsendw/step.h"

#include <cerrno>
#include <gtest/gtest.h>

#include "support/attempt_note.h"

using namespace zelieml;

namespace
{

std::string lost(step const& now, int error)
{
    noting_attempt const attempt;
    note_lost({"the server", now}, error);
    return attempt->reason;
}

std::string refused(std::string const& reply, std::string const& password,
                    std::string const& response)
{
    noting_attempt const attempt;
    note_refused({"the server", {"X", "it"}, password, response}, reply);
    return attempt->reason;
}

}  // namespace

TEST(Step, SaysHowItWasLost)
{
    step const greeting = {nullptr, "the connection"};
    step const data     = {"DATA", "DATA"};
    step const rcpt     = {"RCPT", "the recipient ", "x@b.test"};
    EXPECT_EQ(lost(greeting, EAGAIN), "no greeting from the server within 15 s");
    EXPECT_EQ(lost(data, EAGAIN), "no answer to DATA within 15 s");
    EXPECT_EQ(lost(rcpt, EAGAIN), "no answer to RCPT for x@b.test within 15 s");
    EXPECT_EQ(lost(greeting, 0), "the server closed the connection without a greeting");
    EXPECT_EQ(lost(data, 0), "the server closed the connection after DATA");
    EXPECT_EQ(lost(rcpt, 0), "the server closed the connection after RCPT for x@b.test");
    EXPECT_EQ(lost(greeting, ECONNRESET),
              "the connection to the server broke before the greeting: Connection reset by peer");
    EXPECT_EQ(lost(data, EPIPE), "the connection to the server broke after DATA: Broken pipe");
    EXPECT_EQ(lost(rcpt, EPIPE),
              "the connection to the server broke after RCPT for x@b.test: Broken pipe");
    EXPECT_EQ(lost(data, EMSGSIZE),
              "the command line of DATA is longer than 1023 bytes and was not sent");
    EXPECT_EQ(lost(rcpt, EMSGSIZE),
              "the command line of RCPT is longer than 1023 bytes and was not sent: x@b.test");
}

TEST(Step, QuotesTheLastLineOfAReply)
{
    struct {
        char const* reply;
        char const* quoted;
    } const cases[] = {
        {"550 no\r\n", ": 550 no"},
        {"550-a\r\n550 b \r\n", ": 550 b"},
        {"550 a\n550 b", ": 550 b"},
        {"", ""},
        {"\r\n \r\n", ""},
        {"550 a\r\n\r\n", ": 550 a"},
        {"x", ": x"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(refused(c.reply, "", ""), std::string("the server refused it") + c.quoted);
    }
}

TEST(Step, HidesPasswordAndResponse)
{
    struct {
        char const* reply;
        char const* password;
        char const* response;
        char const* quoted;
    } const cases[] = {
        {"535 secret\r\n", "secret", "", "535 ***"},
        {"535 secretsecret.secre\r\n", "secret", "", "535 ******.secre"},
        {"535 c2VjcmV0 secret\r\n", "secret", "c2VjcmV0", "535 *** ***"},
        {"535 secret \r\n", "secret ", "", "535 ***"},
        {"535 aaab\r\n", "aa", "aaab", "535 ***"},
        {"535 aaab\r\n", "aaab", "aa", "535 ***"},
        {"535 xaab\r\n", "a", "", "535 x******b"},
        {"secret", "secret", "", "***"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(refused(c.reply, c.password, c.response),
                  std::string("the server refused it: ") + c.quoted);
    }
}

TEST(Step, HidesThemInALongReplyToo)
{
    std::string const password = "secret";
    for (std::size_t before = 950; before < 1100; ++before) {
        std::string const reason =
            refused(std::string(before, 'x') + password + password, password, "");
        EXPECT_EQ(reason.find("sec"), std::string::npos) << before;
        EXPECT_LT(reason.size(), reason_capacity);
    }
    // More marks than bytes of the secret.
    EXPECT_LT(refused(std::string(2000, 'a'), "a", "").size(), reason_capacity);
}

TEST(Step, NeedsNoNote)
{
    note_refused({"the server", {"X", "it"}}, "550 no\r\n");
    note_lost({"the server", {"X", "it"}}, 0);
    note_not_found("a.test");
    note_not_connected("a.test", 25, ECONNREFUSED);
    EXPECT_EQ(current_note(), nullptr);
}

TEST(Step, SaysWhyThereIsNoConnection)
{
    auto const told = [](auto&& call) {
        noting_attempt const attempt;
        call();
        return std::string(attempt->reason);
    };
    EXPECT_EQ(told([] { note_not_found("a.test"); }), "the host a.test was not found");
    EXPECT_EQ(told([] { note_not_found(nullptr); }), "no host is given");
    EXPECT_EQ(told([] { note_not_connected("a.test", 25, ECONNREFUSED); }),
              "connect to a.test:25: Connection refused");
    EXPECT_EQ(told([] { note_not_connected("a.test", 25, EMFILE); }),
              "connect to a.test:25: Too many open files");
    EXPECT_EQ(told([] { note_not_connected("a.test", 25, ETIMEDOUT); }),
              "connect to a.test:25: no answer within 30 s");
}
