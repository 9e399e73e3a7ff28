#include "libsendw/step.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <utility>

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
    note_refused({"the server", {"x", "X", "it"}, password, response}, reply);
    return attempt->reason;
}

}  // namespace

TEST(Step, SaysHowItWasLost)
{
    step const greeting = {"greeting", nullptr, "the connection"};
    step const data     = {"data", "DATA", "DATA"};
    step const rcpt     = {"recipient", "RCPT", "the recipient ", "x@b.test"};
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

TEST(Step, NotesCauseAndName)
{
    auto const noted = [](auto&& call) {
        noting_attempt const attempt;
        call();
        return std::make_pair(attempt->cause, std::string(attempt->step));
    };
    auto const lost_by = [&](step const& now, int error) {
        return noted([&] { note_lost({"the server", now}, error); });
    };
    using told           = std::pair<eml_cause, std::string>;
    step const recipient = {step_name::recipient, "RCPT", "the recipient ", "x@b.test"};
    step const login     = {step_name::login, "AUTH PLAIN", "the login of ", "joe"};
    step const pop_login = {step_name::pop_login, "USER", "the user ", "joe"};
    EXPECT_EQ(lost_by(recipient, 0), told(eml_cause_lost, "recipient"));
    EXPECT_EQ(lost_by(recipient, EAGAIN), told(eml_cause_lost, "recipient"));
    EXPECT_EQ(lost_by(recipient, EPIPE), told(eml_cause_lost, "recipient"));
    EXPECT_EQ(lost_by(recipient, EMSGSIZE), told(eml_cause_message, "recipient"));
    EXPECT_EQ(lost_by(login, EMSGSIZE), told(eml_cause_settings, "login")) << "no message's fault";
    EXPECT_EQ(lost_by(pop_login, EMSGSIZE), told(eml_cause_settings, "pop login"));
    EXPECT_EQ(noted([&] {
                  note_refused({"the server", recipient}, "550 no\r\n");
              }),
              told(eml_cause_refused, "recipient"));
    EXPECT_EQ(noted([&] {
                  note_reply({"the server", login}, eml_cause_protocol, "said", "x");
              }),
              told(eml_cause_protocol, "login"));
    EXPECT_EQ(noted([] { note_not_found("look-up", "a.test"); }),
              told(eml_cause_unreachable, "look-up"));
    EXPECT_EQ(noted([] { note_not_found("look-up", nullptr); }),
              told(eml_cause_settings, "look-up"));
    EXPECT_EQ(noted([] { note_not_connected("connect", "a.test", 25, ECONNREFUSED); }),
              told(eml_cause_unreachable, "connect"));
    for (int const error : {ENOMEM, ENOBUFS}) {
        EXPECT_EQ(noted([&] { note_not_connected("connect", "a.test", 25, error); }),
                  told(eml_cause_memory, "connect"));
    }
}

TEST(Step, TakesTheCauseFromTheLastLineOfAReply)
{
    struct {
        char const* reply;
        eml_cause   cause;
    } const cases[] = {
        {"550 5.1.1 no\r\n", eml_cause_refused},
        {"450 4.2.0 later\r\n", eml_cause_refused_now},
        {"450-one\r\n550 two\r\n", eml_cause_refused},
        {"550-one\r\n450 two\r\n", eml_cause_refused_now},
        {"554 \r\n", eml_cause_refused},
        {"421", eml_cause_refused_now},
        {"550-not the last one\r\n", eml_cause_refused},
        {"250 ok\r\n", eml_cause_protocol},
        {"354 go on\r\n", eml_cause_protocol},
        {"150 wait\r\n", eml_cause_protocol},
        {"650 what\r\n", eml_cause_protocol},
        {"55 no\r\n", eml_cause_protocol},
        {"5x0 no\r\n", eml_cause_protocol},
        {"55x no\r\n", eml_cause_protocol},
        {"5500 no\r\n", eml_cause_protocol},
        {"450 4.2.1 a\rb\r\n", eml_cause_refused_now},
        {"450\tx\r\n", eml_cause_refused_now},
        {" 550 no\r\n", eml_cause_protocol},
        {"no\r\n", eml_cause_protocol},
        {"", eml_cause_protocol},
        {"-ERR\r\n", eml_cause_refused},
        {"-err no\r\n", eml_cause_refused},
        {"-ERR [AUTH] no\r\n", eml_cause_refused},
        {"-ERR [SYS/PERM] no\r\n", eml_cause_refused},
        {"-ERR [SYS/TEMP] no\r\n", eml_cause_refused_now},
        {"-ERR [IN-USE] no\r\n", eml_cause_refused_now},
        {"-err [in-use]\r\n", eml_cause_refused_now},
        {"-ERR [LOGIN-DELAY] no\r\n", eml_cause_refused_now},
        {"-ERR [LOGIN-DELAY/SHORT] no\r\n", eml_cause_refused_now},
        {"-ERR [IN-USED] no\r\n", eml_cause_refused},
        {"-ERR [IN-USE", eml_cause_refused},
        {"-ERR not [IN-USE]\r\n", eml_cause_refused},
        {"-ERR  [SYS/TEMP] no\r\n", eml_cause_refused_now},
        {"-ERR\t[SYS/TEMP] no\r\n", eml_cause_refused_now},
        {"+OK error\r\n", eml_cause_protocol},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(cause_of_reply(c.reply), c.cause) << c.reply;
    }
}

TEST(Step, GivesAGreetingThatRefusedAsTheReason)
{
    step_book book   = {"the server", {"x", "X", "it"}};
    book.greeting    = "-ERR [IN-USE] busy\r\n";
    auto const noted = [&](auto&& call) {
        noting_attempt const attempt;
        call();
        return std::make_pair(attempt->cause, std::string(attempt->reason));
    };
    auto const busy =
        std::make_pair(eml_cause_refused_now,
                       std::string("the server refused the connection: -ERR [IN-USE] busy"));
    EXPECT_EQ(noted([&] { note_lost(book, EPIPE); }), busy);
    EXPECT_EQ(noted([&] { note_lost(book, EAGAIN); }), busy);
    EXPECT_EQ(noted([&] { note_refused(book, "-ERR\r\n"); }), busy);
    EXPECT_EQ(noted([&] { note_lost(book, EMSGSIZE); }).first, eml_cause_message)
        << "it was not sent";
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
        {"550 a\rb\r\n", ": 550 a?b"},
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
    note_refused({"the server", {"x", "X", "it"}}, "550 no\r\n");
    note_lost({"the server", {"x", "X", "it"}}, 0);
    note_not_found("look-up", "a.test");
    note_not_connected("connect", "a.test", 25, ECONNREFUSED);
    EXPECT_EQ(current_note(), nullptr);
}

TEST(Step, SaysWhyThereIsNoConnection)
{
    auto const told = [](auto&& call) {
        noting_attempt const attempt;
        call();
        return std::string(attempt->reason);
    };
    EXPECT_EQ(told([] { note_not_found("look-up", "a.test"); }), "the host a.test was not found");
    EXPECT_EQ(told([] { note_not_found("look-up", nullptr); }), "no host is given");
    EXPECT_EQ(told([] { note_not_connected("connect", "a.test", 25, ECONNREFUSED); }),
              "connect to a.test:25: Connection refused");
    EXPECT_EQ(told([] { note_not_connected("connect", "a.test", 25, EMFILE); }),
              "connect to a.test:25: Too many open files");
    EXPECT_EQ(told([] { note_not_connected("connect", "a.test", 25, ETIMEDOUT); }),
              "connect to a.test:25: no answer within 30 s");
}
