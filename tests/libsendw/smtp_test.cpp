// The session's commands one by one. Authentication has smtp_auth_test, whole deliveries have
// libsendw_test.

#include "libsendw/smtp.h"

#include <algorithm>
#include <chrono>
#include <sys/socket.h>
#include <thread>

#include "tests/libsendw/smtp_cases.h"

namespace zelieml::test
{

namespace
{

// ---- the start of a session

struct start_case {
    char const* name;
    std::string transcript;
    int         result;
    std::string reply;
    strings     trouble;
};

void PrintTo(start_case const& c, std::ostream* out)
{
    *out << c.name;
}

strings const refused_start = {"error:can not find code (%s)", "error:smtp start session"};
strings const lost_start    = {"error:read_multiline_reply", "error:smtp start session"};

start_case const start_cases[] = {
    {"a greeting of one line", "S: 220 mail.test ready", 0, "220 mail.test ready\r\n", {}},
    {"a greeting of two lines",
     R"(
        S: 220-mail.test
        S: 220 ready
     )",
     0,
     "220-mail.test\r\n220 ready\r\n",
     {}},
    {"a greeting whose first line alone has another code",
     R"(
        S: 421-soon
        S: 220 ready
     )",
     0,
     "421-soon\r\n220 ready\r\n",
     {}},
    {"a greeting with the code within a word",
     "S: 550 call 00220000",
     0,
     "550 call 00220000\r\n",
     {}},
    {"a greeting that is trickled",
     R"(
        S: (trickles 2)
        S: 220 mail.test ready
     )",
     0,
     "220 mail.test ready\r\n",
     {}},
    {"a greeting that says there is no service",
     R"(
        S: 554 no service
        C: (closes)
     )",
     -1, "554 no service\r\n", refused_start},
    {"a greeting that takes the good word back",
     R"(
        S: 220-mail.test
        S: 421 too busy
        C: (closes)
     )",
     -1, "220-mail.test\r\n421 too busy\r\n", refused_start},
    {"a server that closes instead of greeting", "S: (closes)", -1, "", lost_start},
    {"a server that ends the stream instead of greeting",
     R"(
        S: (half-closes)
        C: (closes)
     )",
     -1, "", lost_start},
    {"a server that closes in the middle of its greeting",
     R"(
        S: 220-mail.test
        S- 220 rea
        S: (closes)
     )",
     -1, "220-mail.test\r\n", lost_start},
};

class SmtpStart : public on_a_clean_machine_with<start_case>
{
};

TEST_P(SmtpStart, EndsAsTheTranscriptSays)
{
    start_case const& c = GetParam();
    local_server      server(c.transcript);
    _s_smtp*          session = nullptr;

    EXPECT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), c.result);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->reply, c.reply);
    EXPECT_EQ(trouble_traces(), c.trouble);
    if (c.result == 0) {
        EXPECT_EQ(smtp_end_session(session), 0);
    } else {
        smtp_abandon_session(session);
    }
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

INSTANTIATE_TEST_SUITE_P(, SmtpStart, testing::ValuesIn(start_cases), case_name<start_case>);

class SmtpSession : public on_a_clean_machine
{
};

TEST_F(SmtpSession, SaysWhereItConnectsTo)
{
    local_server server("S: 220 mail.test ready");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
    EXPECT_EQ(traces(),
              (strings{"look_up_address %s", "connect IP:%s Port:%d", "connect done.",
                       "SleepCounter:%d recv:%d", "SleepCounter:%d recv:%d", "readline = %s"}));
    EXPECT_EQ(smtp_end_session(session), 0);
}

TEST_F(SmtpSession, ConnectsToAHostByItsName)
{
    local_server server("S: 220 mail.test ready");
    add_host("mail.test", "127.0.0.1");
    _s_smtp* session = nullptr;
    EXPECT_EQ(smtp_start_session("mail.test", server.port(), &session), 0);
    EXPECT_EQ(smtp_end_session(session), 0);
}

// What a start leaves behind must be possible to abandon and to end alike.
TEST_F(SmtpSession, IsMadeEvenWhenItsStartFails)
{
    closed_port const port;
    struct {
        char const* host;
        strings     trouble;
        char const* reason;
    } const cases[] = {
        {"no.such.host.test",
         {"warning:inet_addr %s", "error:gethostbyname %s", "error:invalid host address"},
         "the host is unknown"},
        {"127.0.0.1",
         {"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d"},
         "the host refuses"},
        {nullptr, {"error:invalid host address"}, "no host is named"},
    };
    for (auto const& c : cases) {
        _s_smtp* session = nullptr;
        clear_traces();
        EXPECT_EQ(smtp_start_session(c.host, port.number(), &session), -1) << c.reason;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.reason;
        ASSERT_NE(session, nullptr) << c.reason;
        EXPECT_EQ(session->reply, "") << c.reason;
        smtp_abandon_session(session);

        ASSERT_EQ(smtp_start_session(c.host, port.number(), &session), -1) << c.reason;
        clear_traces();
        EXPECT_EQ(smtp_end_session(session), 0) << c.reason;
        EXPECT_EQ(traces(), (strings{"error:shutdown", "error:shutdown_connection"})) << c.reason;
    }
}

TEST_F(SmtpSession, CanBeEndedAfterARefusedGreeting)
{
    local_server server(R"(
        S: 554 no service
        C: (closes)
    )");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), -1);
    EXPECT_EQ(smtp_end_session(session), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(SmtpSession, FailsWhenTheServerBreaksTheConnectionInsteadOfGreeting)
{
    local_server server("S: (resets)");
    _s_smtp*     session = nullptr;
    EXPECT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), -1);
    smtp_abandon_session(session);
    // The connection may be broken before it was noticed to be there.
    strings const not_connected = {"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d"};
    EXPECT_TRUE(trouble_traces() == lost_start || trouble_traces() == not_connected)
        << testing::PrintToString(trouble_traces());
}

TEST_F(SmtpSession, GivesUpOnASilentGreeting)
{
    recording_server server({}, [] { reset_waits(false); });
    _s_smtp*         session = nullptr;
    EXPECT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), -1);
    EXPECT_EQ(trouble_traces(), lost_start);
    smtp_abandon_session(session);
    EXPECT_EQ(server.bytes(), "");
}

TEST_F(SmtpSession, EndsOnlyOnce)
{
    EXPECT_EQ(smtp_end_session(nullptr), -1);
    smtp_abandon_session(nullptr);
    EXPECT_EQ(traces(), strings{});
}

TEST_F(SmtpSession, DropsWhatTheServerStillSays)
{
    local_server server(R"(
        S: 220 mail.test ready
        C: quit
        S+ 221 bye
        S: 250 an answer to nothing
        C: (closes)
        S: 421 timeout
    )");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
    EXPECT_EQ(smtp_quit(session), 0);
    EXPECT_EQ(session->reply, "221 bye\r\n") << "the second reply is not looked at";
    clear_traces();
    EXPECT_EQ(smtp_end_session(session), 0);
    strings const all = traces();
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all.front(), "error:unexpected %d bytes received.");
    EXPECT_EQ(all.back(), "shutdown ok!");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(SmtpSession, EndsAllTheSameWhenTheConnectionIsBroken)
{
    local_server server(R"(
        S: 220 mail.test ready
        C: quit
        S: (resets)
    )");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
    EXPECT_EQ(smtp_quit(session), -1);
    clear_traces();
    EXPECT_EQ(smtp_end_session(session), 0);
    strings const trouble = trouble_traces();
    ASSERT_EQ(trouble.size(), 2U);
    EXPECT_TRUE(trouble[0] == "error:shutdown" || trouble[0] == "error:recv") << trouble[0];
    EXPECT_EQ(trouble[1], "error:shutdown_connection");
}

// ---- one command each

int mail_from_reply(_s_smtp* session)
{
    return smtp_mailfrom(session, "reply@a.test");
}

int rcpt_to_two(_s_smtp* session)
{
    return smtp_rcptto(session, {"x@b.test", "y@c.test"});
}

smtp_act mail_from(std::string const& address)
{
    return [address](_s_smtp* session) { return smtp_mailfrom(session, address); };
}

smtp_act rcpt_to(std::vector<std::string> const& addresses)
{
    return [addresses](_s_smtp* session) { return smtp_rcptto(session, addresses); };
}

smtp_act write_data(std::vector<std::string> const& lines)
{
    return [lines](_s_smtp* session) { return smtp_write_data(session, lines); };
}

// With the two commands around it, since only the end of the text makes sure that all has left.
smtp_act send_text(std::vector<std::string> const& lines)
{
    return [lines](_s_smtp* session) {
        return smtp_start_data(session) != 0 || smtp_write_data(session, lines) != 0
                   ? -1
                   : smtp_end_data(session);
    };
}

std::string filled(std::size_t size)
{
    return std::string(size, 'x');
}

// A reply of one line of so many bytes.
command_case reply_of(char const* name, std::size_t size)
{
    std::string const line = "250 " + filled(size - 6);
    return {name, "C: helo {host}\nS: " + line, smtp_helo, 0, line + "\r\n"};
}

std::vector<command_case> reply_cases()
{
    return {
        {"a reply of one line",
         R"(
            C: helo {host}
            S: 250 hello
         )",
         smtp_helo, 0, "250 hello\r\n"},
        {"a reply of several lines is kept whole",
         R"(
            C: helo {host}
            S: 250-mail.test
            S: 250-SIZE 1000
            S: 250 HELP
         )",
         smtp_helo, 0, "250-mail.test\r\n250-SIZE 1000\r\n250 HELP\r\n"},
        {"a reply of several lines sent one by one",
         R"(
            C: helo {host}
            S: 250-mail.test
            S: (delays 12)
            S: 250 HELP
         )",
         smtp_helo, 0, "250-mail.test\r\n250 HELP\r\n"},
        {"only the last line decides, for the better",
         R"(
            C: helo {host}
            S: 550-hardly
            S: 250 welcome
         )",
         smtp_helo, 0, "550-hardly\r\n250 welcome\r\n"},
        {"only the last line decides, for the worse",
         R"(
            C: helo {host}
            S: 250-welcome
            S: 550 on second thoughts
         )",
         smtp_helo, -1, "250-welcome\r\n550 on second thoughts\r\n", refused("error:smtp helo")},
        {"the code counts anywhere in the last line",
         R"(
            C: helo {host}
            S: 550 5.1.1 user 250 unknown
         )",
         smtp_helo, 0, "550 5.1.1 user 250 unknown\r\n"},
        {"the code counts within a number",
         R"(
            C: helo {host}
            S: 550 error 12501
         )",
         smtp_helo, 0, "550 error 12501\r\n"},
        {"a reply without any code ends at a blank in fourth place",
         R"(
            C: helo {host}
            S: oh, well
            S: yes sure
         )",
         smtp_helo, -1, "oh, well\r\n", refused("error:smtp helo")},
        {"lines of other shapes are no last lines",
         R"(
            C: helo {host}
            S: 250\tok
            S: 250.ok
            S: 2500 ok
            S: hello
            S: 250 ok
         )",
         smtp_helo, 0, "250\tok\r\n250.ok\r\n2500 ok\r\nhello\r\n250 ok\r\n"},
        {"short lines are no last lines",
         R"(
            C: helo {host}
            S- \n
            S:
            S: 2
            S: 25
            S: 250
            S: 250 ok
         )",
         smtp_helo, 0, "\n\r\n2\r\n25\r\n250\r\n250 ok\r\n"},
        {"a bare code is no last line, and the server that thinks so closes",
         R"(
            C: helo {host}
            S: 250
            S: (closes)
         )",
         smtp_helo, -1, "250\r\n", lost("error:smtp helo")},
        {"a code and a blank are a last line",
         R"(
            C: helo {host}
            S- 250 \r\n
         )",
         smtp_helo, 0, "250 \r\n"},
        {"a line feed alone ends a line",
         R"(
            C: helo {host}
            S- 250-mail.test\n250 HELP\n
         )",
         smtp_helo, 0, "250-mail.test\n250 HELP\n"},
        {"a carriage return alone ends none",
         R"(
            C: helo {host}
            S- 550 one\r250 two\r\n
         )",
         smtp_helo, 0, "550 one\r250 two\r\n"},
        {"a NUL hides the rest of its line",
         R"(
            C: helo {host}
            S: 250 he\0llo
         )",
         smtp_helo, 0, "250 he"},
        {"a NUL may hide the code",
         R"(
            C: helo {host}
            S: 550 \0250
         )",
         smtp_helo, -1, "550 ", refused("error:smtp helo")},
        {"a NUL before the fourth character makes a short line",
         R"(
            C: helo {host}
            S: 25\00 hello
            S: \0
            S: 250 hello
         )",
         smtp_helo, 0, "25250 hello\r\n"},
        {"bytes of any kind pass",
         R"(
            C: helo {host}
            S: 250 \xE3\x81\x82\xFF\x01%s%n
         )",
         smtp_helo, 0, "250 \xE3\x81\x82\xFF\x01%s%n\r\n"},
        {"a trickled reply",
         R"(
            S: (trickles 2)
            C: helo {host}
            S: 250-mail.test
            S: 250 HELP
         )",
         smtp_helo, 0, "250-mail.test\r\n250 HELP\r\n"},
        {"a reply that comes with the next one",
         R"(
            C: mail from: <reply@a.test>
            S+ 250 sender ok
            S: 250 recipient ok
            C: rcpt to: <x@b.test>
         )",
         [](_s_smtp* session) {
             return mail_from_reply(session) == 0 && session->reply == "250 sender ok\r\n"
                        ? smtp_rcptto(session, {"x@b.test"})
                        : -1;
         },
         0, "250 recipient ok\r\n"},
        {"a reply that comes before its command",
         R"(
            S: 250 hello
            C: helo {host}
         )",
         smtp_helo, 0, "250 hello\r\n"},
        reply_of("a line of 1022 bytes", 1022),
        reply_of("a line of 1023 bytes", 1023),
        reply_of("a line of 1024 bytes", 1024),
        reply_of("a line of 5000 bytes", 5000),
        {"a code that straddles two pieces of 1023 bytes",
         "C: helo {host}\nS: 550 " + filled(1018) + "250", smtp_helo, 0,
         "550 " + filled(1018) + "250\r\n"},
        {"a reply of 1000 lines",
         R"(
            C: helo {host}
            S: (repeat 999) 250-and
            S: 250 done
         )",
         smtp_helo, 0,
         [] {
             std::string reply;
             for (int i = 0; i < 999; ++i) {
                 reply += "250-and\r\n";
             }
             return reply + "250 done\r\n";
         }()},
        {"a megabyte without a line feed",
         "C: helo {host}\nS- " + filled(1000000) + "\nS: (closes)", smtp_helo, -1, "",
         lost("error:smtp helo")},
        {"a hundred thousand bytes without a last line",
         R"(
            C: helo {host}
            S: (repeat 10000) 250-again
            S: (closes)
         )",
         smtp_helo, -1,
         [] {
             std::string reply;
             for (int i = 0; i < 10000; ++i) {
                 reply += "250-again\r\n";
             }
             return reply;
         }(),
         lost("error:smtp helo")},
        {"a server that closes in the middle of a reply",
         R"(
            C: helo {host}
            S: 250-mail.test
            S- 250 HEL
            S: (closes)
         )",
         smtp_helo, -1, "250-mail.test\r\n", lost("error:smtp helo")},
        {"a server that breaks the connection in the middle of a reply",
         R"(
            C: helo {host}
            S- 250-mail.te
            S: (resets)
         )",
         smtp_helo, -1, "", lost("error:smtp helo")},
    };
}

std::vector<command_case> command_cases()
{
    std::string const long_address = filled(1009);  // makes MAIL a line of 1024 bytes
    return {
        {"helo refused",
         R"(
            C: helo {host}
            S: 502 not here
         )",
         smtp_helo, -1, "502 not here\r\n", refused("error:smtp helo")},
        {"helo answered with the code of another command",
         R"(
            C: helo {host}
            S: 220 hello
         )",
         smtp_helo, -1, "220 hello\r\n", refused("error:smtp helo")},
        {"helo unanswered as the server closes",
         R"(
            C: helo {host}
            S: (closes)
         )",
         smtp_helo, -1, "", lost("error:smtp helo")},
        {"helo unanswered as the server ends the stream",
         R"(
            C: helo {host}
            S: (half-closes)
         )",
         smtp_helo, -1, "", lost("error:smtp helo")},
        {"helo unanswered as the server breaks the connection",
         R"(
            C: helo {host}
            S: (resets)
         )",
         smtp_helo, -1, "", lost("error:smtp helo")},

        {"mail from accepted",
         R"(
            C: mail from: <reply@a.test>
            S: 250 2.1.0 ok
         )",
         mail_from_reply, 0, "250 2.1.0 ok\r\n"},
        {"mail from nobody is the null reverse path",
         R"(
            C: mail from: <>
            S: 250 ok
         )",
         mail_from(""), 0, "250 ok\r\n"},
        {"mail from an address that is none is sent as it is",
         R"(
            C: mail from: <A "B" <a@b>, c>
            S: 501 syntax
         )",
         mail_from("A \"B\" <a@b>, c"), -1, "501 syntax\r\n", refused("error:smtp mail from")},
        {"mail from an address that holds a percent sign",
         R"(
            C: mail from: <a%n%s@b.test>
            S: 250 ok
         )",
         mail_from("a%n%s@b.test"), 0, "250 ok\r\n"},
        {"mail from an address in UTF-8", "C: mail from: <\xC3\xA9@b.test>\nS: 250 ok",
         mail_from("\xC3\xA9@b.test"), 0, "250 ok\r\n"},
        {"mail from refused",
         R"(
            C: mail from: <reply@a.test>
            S: 550 5.7.1 not you
         )",
         mail_from_reply, -1, "550 5.7.1 not you\r\n", refused("error:smtp mail from")},
        {"mail from refused for now",
         R"(
            C: mail from: <reply@a.test>
            S: 451 later
         )",
         mail_from_reply, -1, "451 later\r\n", refused("error:smtp mail from")},
        {"mail from unanswered",
         R"(
            C: mail from: <reply@a.test>
            S: (closes)
         )",
         mail_from_reply, -1, "", lost("error:smtp mail from")},
        {"mail from in a line of 1023 bytes",
         "C: mail from: <" + long_address.substr(1) + ">\nS: 250 ok",
         mail_from(long_address.substr(1)), 0, "250 ok\r\n"},
        {"mail from in a line of 1024 bytes is not sent",
         "C: (closes)",
         mail_from(long_address),
         -1,
         greeting_reply,
         {"error:smtp mail from"}},

        {"rcpt to each recipient in order",
         R"(
            C: rcpt to: <x@b.test>
            S: 250 ok
            C: rcpt to: <y@c.test>
            S: 250 fine
         )",
         rcpt_to_two, 0, "250 fine\r\n"},
        {"rcpt to nobody says nothing", "C: (closes)", rcpt_to({}), 0, greeting_reply},
        {"rcpt to an empty address",
         R"(
            C: rcpt to: <>
            S: 501 whom?
         )",
         rcpt_to({""}), -1, "501 whom?\r\n", refused("error:smtp rcpt to")},
        {"rcpt to the first refused, the second is never sent",
         R"(
            C: rcpt to: <x@b.test>
            S: 550 5.1.1 no such user
            C: (closes)
         )",
         rcpt_to_two, -1, "550 5.1.1 no such user\r\n", refused("error:smtp rcpt to")},
        {"rcpt to the second refused",
         R"(
            C: rcpt to: <x@b.test>
            S: 250 ok
            C: rcpt to: <y@c.test>
            S: 452 too many
         )",
         rcpt_to_two, -1, "452 too many\r\n", refused("error:smtp rcpt to")},
        {"rcpt to a recipient who has moved",
         R"(
            C: rcpt to: <x@b.test>
            S: 251 forwarded
            C: (closes)
         )",
         rcpt_to_two, -1, "251 forwarded\r\n", refused("error:smtp rcpt to")},
        {"rcpt to refused in words that hold the code",
         R"(
            C: rcpt to: <x@b.test>
            S: 550 5.1.1 user 250 unknown
         )",
         rcpt_to({"x@b.test"}), 0, "550 5.1.1 user 250 unknown\r\n"},
        {"rcpt to the second in a line of 1024 bytes is not sent",
         R"(
            C: rcpt to: <x@b.test>
            S: 250 ok
            C: (closes)
         )",
         rcpt_to({"x@b.test", filled(1011)}),
         -1,
         "250 ok\r\n",
         {"error:smtp rcpt to"}},
        {"rcpt to a recipient in a line of 1023 bytes",
         "C: rcpt to: <" + filled(1010) + ">\nS: 250 ok", rcpt_to({filled(1010)}), 0, "250 ok\r\n"},
        {"rcpt to unanswered",
         R"(
            C: rcpt to: <x@b.test>
            S: (closes)
         )",
         rcpt_to_two, -1, "", lost("error:smtp rcpt to")},

        {"data answered with 354",
         R"(
            C: data
            S: 354 go on
         )",
         smtp_start_data, 0, "354 go on\r\n"},
        {"data answered with 250",
         R"(
            C: data
            S: 250 ok
         )",
         smtp_start_data, 0, "250 ok\r\n"},
        {"data answered with several lines",
         R"(
            C: data
            S: 250-well
            S: 354 go on
         )",
         smtp_start_data, 0, "250-well\r\n354 go on\r\n"},
        {"data refused in words that hold the code",
         R"(
            C: data
            S: 554 no 354 for you
         )",
         smtp_start_data, 0, "554 no 354 for you\r\n"},
        {"data refused for now",
         R"(
            C: data
            S: 451 later
         )",
         smtp_start_data,
         -1,
         "451 later\r\n",
         {"error:can not find code 354 250"}},
        {"data refused in the last line",
         R"(
            C: data
            S: 354-go on
            S: 503 or rather not
         )",
         smtp_start_data,
         -1,
         "354-go on\r\n503 or rather not\r\n",
         {"error:can not find code 354 250"}},
        {"data unanswered",
         R"(
            C: data
            S: (closes)
         )",
         smtp_start_data,
         -1,
         "",
         {"error:smtp start data"}},
        {"data unanswered as the server breaks the connection",
         R"(
            C: data
            S: (resets)
         )",
         smtp_start_data,
         -1,
         "",
         {"error:smtp start data"}},

        {"text is sent as it is",
         R"(
            C: data
            S: 354 go on
            C: Subject: hello
            C:
            C: .a dot that nobody doubles
            C: %s%n\xFF
            C- one\ntwo\rthree
            C:
            C: .
            S: 250 queued
         )",
         send_text({"Subject: hello\r\n", "\r\n", ".a dot that nobody doubles\r\n", "%s%n\xFF\r\n",
                    "", "one\ntwo\r", "three"}),
         0, "250 queued\r\n"},
        {"text of no lines",
         R"(
            C: data
            S: 354 go on
            C:
            C: .
            S: 250 queued
         )",
         send_text({}), 0, "250 queued\r\n"},
        {"text gets no reply of its own",
         R"(
            C: Subject: hello
         )",
         write_data({"Subject: hello\r\n"}), 0, greeting_reply},

        {"the end of the text refused",
         R"(
            C:
            C: .
            S: 552 too much
         )",
         smtp_end_data, -1, "552 too much\r\n", refused("error:smtp end data")},
        {"the end of the text answered with 354",
         R"(
            C:
            C: .
            S: 354 go on
         )",
         smtp_end_data, -1, "354 go on\r\n", refused("error:smtp end data")},
        {"the end of the text unanswered",
         R"(
            C:
            C: .
            S: (closes)
         )",
         smtp_end_data, -1, "", lost("error:smtp end data")},

        {"quit accepted",
         R"(
            C: quit
            S: 221 bye
         )",
         smtp_quit, 0, "221 bye\r\n"},
        {"quit answered with 250",
         R"(
            C: quit
            S: 250 bye
         )",
         smtp_quit, -1, "250 bye\r\n", refused("error:smtp quit")},
        {"quit answered by closing",
         R"(
            C: quit
            S: (closes)
         )",
         smtp_quit, -1, "", lost("error:smtp quit")},
    };
}

class SmtpCommand : public smtp_command
{
};

TEST_P(SmtpCommand, EndsAsTheTranscriptSays)
{
    play();
}

INSTANTIATE_TEST_SUITE_P(Reply, SmtpCommand, testing::ValuesIn(reply_cases()),
                         case_name<command_case>);
INSTANTIATE_TEST_SUITE_P(Single, SmtpCommand, testing::ValuesIn(command_cases()),
                         case_name<command_case>);

TEST_F(SmtpSession, LeadsFromTheGreetingToTheGoodbye)
{
    local_server server(R"(
        S: 220 mail.test ready
        C: helo {host}
        S: 250 mail.test
        C: mail from: <reply@a.test>
        S: 250 ok
        C: rcpt to: <x@b.test>
        S: 250 ok
        C: rcpt to: <y@c.test>
        S: 250 ok
        C: data
        S: 354 go on
        C: Subject: hello
        C:
        C: body
        C: .
        S: 250 queued as 1
        C: quit
        S: 221 bye
        C: (closes)
    )");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
    EXPECT_EQ(smtp_helo(session), 0);
    EXPECT_EQ(mail_from_reply(session), 0);
    EXPECT_EQ(rcpt_to_two(session), 0);
    EXPECT_EQ(smtp_start_data(session), 0);
    EXPECT_EQ(smtp_write_data(session, {"Subject: hello\r\n", "\r\n", "body"}), 0);
    EXPECT_EQ(smtp_end_data(session), 0);
    EXPECT_EQ(session->reply, "250 queued as 1\r\n");
    EXPECT_EQ(smtp_quit(session), 0);
    EXPECT_EQ(smtp_end_session(session), 0);
    EXPECT_EQ(trouble_traces(), strings{});
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

// ---- silence, and replies that are there before the client asks

TEST_F(SmtpSession, GivesUpOnASilentServerAfter3001WaitsAtEveryCommand)
{
    struct {
        char const* name;
        smtp_act    act;
        strings     trouble;
    } const cases[] = {
        {"helo", smtp_helo, lost("error:smtp helo")},
        {"mail from", mail_from_reply, lost("error:smtp mail from")},
        {"rcpt to", rcpt_to_two, lost("error:smtp rcpt to")},
        {"data", smtp_start_data, {"error:smtp start data"}},
        {"end of the text", smtp_end_data, lost("error:smtp end data")},
        {"quit", smtp_quit, lost("error:smtp quit")},
    };
    for (auto const& c : cases) {
        for (char const* const said :
             {"", "25", "250", "250-first\r\n", "250\r\n", "250-\r\n250 o"}) {
            hand_held_session held;
            held.pair.say(said);
            reset_waits(false);
            clear_traces();
            EXPECT_EQ(c.act(&held.session), -1) << c.name << " after " << said;
            EXPECT_EQ(trouble_traces(), c.trouble) << c.name << " after " << said;
            EXPECT_EQ(waits().readable_waits, std::vector<int>(3001, 5000))
                << c.name << " after " << said;
        }
    }
}

TEST_F(SmtpSession, KeepsTheLinesThatCameBeforeTheSilence)
{
    hand_held_session held;
    held.pair.say("250-first\r\n250-second\r\n250 thi");
    held.session.reply = "the reply before";
    reset_waits(false);
    std::vector<std::string> lines = {"what was there before"};
    EXPECT_EQ(read_multiline_reply(&held.session, lines), -1);
    EXPECT_EQ(lines, (strings{"250-first\r\n", "250-second\r\n"}));
    EXPECT_EQ(held.session.reply, "250-first\r\n250-second\r\n");
}

TEST_F(SmtpSession, ReadsOneReplyAtATime)
{
    hand_held_session held;
    held.pair.say("250-one\r\n250 two\r\n354 three\r\n");
    std::vector<std::string> lines = {"what was there before"};
    EXPECT_EQ(read_multiline_reply(&held.session, lines), 0);
    EXPECT_EQ(lines, (strings{"250-one\r\n", "250 two\r\n"}));
    EXPECT_EQ(held.session.reply, "250-one\r\n250 two\r\n");
    EXPECT_EQ(read_reply_and_check_code(&held.session, "354"), 0);
    EXPECT_EQ(held.session.reply, "354 three\r\n");
}

TEST_F(SmtpSession, LooksForACodeInTheLastLineOnly)
{
    struct {
        char const* reply;
        char const* code;
        int         result;
        strings     trouble;
        char const* reason;
    } const cases[] = {
        {"250 ok\r\n", "250", 0, {}, "at the start"},
        {"550 user 250 unknown\r\n", "250", 0, {}, "anywhere"},
        {"250-ok\r\n550 no\r\n", "250", -1, {"error:can not find code (%s)"}, "in another line"},
        {"25  0\r\n", "250", -1, {"error:can not find code (%s)"}, "in pieces"},
        {"250 ok\r\n", "", 0, {}, "no code is in every line"},
    };
    for (auto const& c : cases) {
        hand_held_session held;
        held.pair.say(c.reply);
        clear_traces();
        EXPECT_EQ(read_reply_and_check_code(&held.session, c.code), c.result) << c.reason;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.reason;
    }
}

TEST_F(SmtpSession, TracesCommandsThatCannotBeWritten)
{
    struct {
        char const* name;
        smtp_act    act;
        strings     trouble;
    } const cases[] = {
        {"helo", smtp_helo, {"error:smtp helo"}},
        {"mail from", mail_from_reply, {"error:smtp mail from"}},
        {"rcpt to", rcpt_to_two, {"error:smtp rcpt to"}},
        {"data", smtp_start_data, {"error:smtp data start"}},
        {"text", write_data({"Subject: hello\r\n"}), {"error:_smtp_write_data"}},
        {"end of the text", smtp_end_data, {"error:smtp end data"}},
        {"quit", smtp_quit, {"error:smtp quit"}},
    };
    for (auto const& c : cases) {
        hand_held_session held;
        held.session.reply = "the reply before";
        ::shutdown(held.pair.client(), SHUT_WR);
        clear_traces();
        EXPECT_EQ(c.act(&held.session), -1) << c.name;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.name;
        EXPECT_EQ(held.session.reply, "the reply before") << c.name;
    }
}

// ---- the name in the greeting

TEST_F(SmtpSession, GreetsWithTheNameOfTheMachine)
{
    struct {
        std::string name;      // empty: the machine has none
        char const* address;   // null: the name does not resolve
        std::string greeting;  // null: nothing is sent
        int         result;
        char const* reason;
    } const cases[] = {
        {"client.test", "192.0.2.10", "helo [192.0.2.10]\r\n", 0, "the address literal"},
        {"printer-7", nullptr, "helo printer-7\r\n", 0, "the plain name"},
        {"", nullptr, "helo unknown\r\n", 0, "neither"},
        {std::string(1016, 'h'), nullptr, "helo " + std::string(1016, 'h') + "\r\n", 0,
         "a line of 1023 bytes"},
        {std::string(1017, 'h'), nullptr, "", -1, "a line of 1024 bytes"},
    };
    for (auto const& c : cases) {
        clear_hosts();
        if (c.address != nullptr) {
            add_host(c.name, c.address);
        }
        set_host_name(c.name);
        if (c.name.empty()) {
            lose_host_name();
        }
        hand_held_session held;
        held.pair.say("250 hello\r\n");
        clear_traces();
        EXPECT_EQ(smtp_helo(&held.session), c.result) << c.reason;
        EXPECT_EQ(trouble_traces(), c.result == 0 ? strings{} : strings{"error:smtp helo"})
            << c.reason;
        ::shutdown(held.pair.client(), SHUT_WR);
        EXPECT_EQ(held.pair.heard_to_the_end(), c.greeting) << c.reason;
    }
}

// ---- big mails and broken connections

TEST_F(SmtpSession, SurvivesAServerThatBreaksTheConnectionDuringTheText)
{
    hand_held_session held;
    held.pair.server_resets();
    std::vector<std::string> const lines(100, "a line of text\r\n");
    // The system may take some of them before it knows.
    smtp_write_data(&held.session, lines);
    clear_traces();
    EXPECT_EQ(smtp_write_data(&held.session, lines), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:_smtp_write_data"});
}

TEST_F(SmtpSession, SurvivesAServerThatStopsReadingABigTextAndBreaksTheConnection)
{
    hand_held_session              held;
    std::vector<std::string> const lines(64, std::string(1000000, 'x') + "\r\n");
    std::thread                    server([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        held.pair.server_resets();
    });
    EXPECT_EQ(smtp_write_data(&held.session, lines), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:_smtp_write_data"});
    server.join();
}

TEST_F(SmtpSession, SendsABigTextToAServerThatReadsLate)
{
    hand_held_session              held;
    std::vector<std::string> const lines(100, std::string(99998, 'x') + "\r\n");
    std::string                    heard;
    std::thread                    server([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        heard = held.pair.heard_to_the_end();
    });
    EXPECT_EQ(smtp_write_data(&held.session, lines), 0);
    held.pair.say("250 queued\r\n");
    EXPECT_EQ(smtp_end_data(&held.session), 0);
    ::shutdown(held.pair.client(), SHUT_WR);
    server.join();
    ASSERT_EQ(heard.size(), 100 * 100000U + 5);
    EXPECT_EQ(heard.substr(heard.size() - 7), "\r\n\r\n.\r\n");
}

// ---- time

// The kernel gathers the lines of a text for up to 200 ms, and the end of the text ends that.
TEST_F(SmtpSession, SendsTheLinesOfATextTogether)
{
    std::string text;
    strings     lines;
    for (int i = 0; i < 12; ++i) {
        lines.push_back("X-Header: " + std::to_string(i) + "\r\n");
        text += lines.back();
    }
    // A busy machine may take longer than that between two statements, but not every time.
    bool together = false;
    for (int attempt = 0; attempt < 20 && !together; ++attempt) {
        hand_held_session held;
        ASSERT_EQ(smtp_write_data(&held.session, lines), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        bool const nothing_yet = held.pair.heard().empty();
        held.pair.say("250 queued\r\n");
        ASSERT_EQ(smtp_end_data(&held.session), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        together = nothing_yet && held.pair.heard() == text + "\r\n.\r\n";
    }
    EXPECT_TRUE(together);
}

// Against a server that answers at once. A pause of 5 ms before each reply or of 40 ms after each
// small write shows every time; a busy machine does not, since each step has many tries.
TEST_F(SmtpSession, TakesNoTimeOfItsOwn)
{
    using std::chrono::steady_clock;

    struct {
        char const*            name;
        smtp_act               act;
        steady_clock::duration fastest = steady_clock::duration::max();
        bool                   quick() const { return fastest < std::chrono::milliseconds(4); }
    } steps[] = {
        {"greeting", nullptr},
        {"helo", smtp_helo},
        {"mail from", mail_from_reply},
        {"rcpt to", rcpt_to({"x@b.test"})},
        {"data", smtp_start_data},
        {"text", write_data(std::vector<std::string>(12, "X-Header: a short line\r\n"))},
        {"end of the text", smtp_end_data},
        {"quit", smtp_quit},
        {"end", smtp_end_session},
    };
    auto const all_quick = [&] {
        return std::all_of(std::begin(steps), std::end(steps),
                           [](auto const& step) { return step.quick(); });
    };
    auto const give_up = steady_clock::now() + std::chrono::seconds(30);
    while (!all_quick() && steady_clock::now() < give_up) {
        recording_server server({"220 ready\r\n", "250 a\r\n", "250 b\r\n", "250 c\r\n",
                                 "354 d\r\n", "250 e\r\n", "221 f\r\n"});
        _s_smtp*         session = nullptr;
        for (auto& step : steps) {
            auto const before = steady_clock::now();
            ASSERT_EQ(session == nullptr ? smtp_start_session("127.0.0.1", server.port(), &session)
                                         : step.act(session),
                      0)
                << step.name;
            step.fastest = std::min(step.fastest, steady_clock::now() - before);
        }
    }
    for (auto const& step : steps) {
        EXPECT_TRUE(step.quick()) << step.name;
    }
}

}  // namespace

}  // namespace zelieml::test
