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

// Calls nothing but the start; the transcript begins with the greeting.
using start_case = command_case;

strings const refused_start = {"error:can not find code (%s)", "error:smtp start session"};
strings const lost_start    = {"error:read_multiline_reply", "error:smtp start session"};

start_case const start_cases[] = {
    start_case("a greeting of one line")
        .plays("S: 220 mail.test ready")
        .keeps("220 mail.test ready\r\n"),
    start_case("a greeting of two lines")
        .plays(R"(
        S: 220-mail.test
        S: 220 ready
     )")
        .keeps("220-mail.test\r\n220 ready\r\n"),
    start_case("a greeting whose first line alone has another code")
        .plays(R"(
        S: 421-soon
        S: 220 ready
     )")
        .keeps("421-soon\r\n220 ready\r\n"),
    start_case("a greeting with the code within a word")
        .plays("S: 550 call 00220000")
        .keeps("550 call 00220000\r\n"),
    start_case("a greeting that is trickled")
        .plays(R"(
        S: (trickles 2)
        S: 220 mail.test ready
     )")
        .keeps("220 mail.test ready\r\n"),
    start_case("a greeting that says there is no service")
        .plays("S: 554 no service\n" + hangs_up)
        .fails("554 no service\r\n", refused_start),
    start_case("a greeting that takes the good word back")
        .plays(R"(
        S: 220-mail.test
        S: 421 too busy
        C: (closes)
     )")
        .fails("220-mail.test\r\n421 too busy\r\n", refused_start),
    start_case("a server that closes instead of greeting")
        .plays("S: (closes)")
        .fails("", lost_start),
    start_case("a server that ends the stream instead of greeting")
        .plays("S: (half-closes)\n" + hangs_up)
        .fails("", lost_start),
    start_case("a server that closes in the middle of its greeting")
        .plays(R"(
        S: 220-mail.test
        S- 220 rea
        S: (closes)
     )")
        .fails("220-mail.test\r\n", lost_start),
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
    EXPECT_EQ(trouble_traces(), c.traced);
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

// The one test of all that a session traces; the others look at its failures only. The sequences
// of logins are in smtp_auth_test.
TEST_F(SmtpSession, SaysWhereItConnectsTo)
{
    local_server server("S: 220 mail.test ready");
    _s_smtp*     session = nullptr;
    ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
    EXPECT_EQ(traces_above_sockets(), (strings{"connect IP:%s Port:%d", "connect done."}));
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
        EXPECT_EQ(trouble_traces(), (strings{"error:shutdown", "error:shutdown_connection"}))
            << c.reason;
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

TEST_F(SmtpSession, LooksUpItsNameBeforeTheGreetingIsThere)
{
    set_host_name("client.test");
    add_host("client.test", "192.0.2.10");
    hand_held_session held;
    held.pair.server_closes();
    EXPECT_EQ(smtp_read_greeting(&held.session), -1);
    EXPECT_EQ(held.session.own_name, "[192.0.2.10]");
}

TEST_F(SmtpSession, LooksUpAnEmptyNameOnlyOnce)
{
    set_host_name("");
    hand_held_session held;
    held.pair.server_closes();
    EXPECT_EQ(smtp_read_greeting(&held.session), -1);
    set_host_name("client.test");
    EXPECT_EQ(smtp_helo(&held.session), -1);
    EXPECT_EQ(held.session.own_name, "");
}

TEST_F(SmtpSession, EndsOnlyOnce)
{
    EXPECT_EQ(smtp_end_session(nullptr), -1);
    smtp_abandon_session(nullptr);
    EXPECT_EQ(trouble_traces(), strings{});
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
    strings const trouble = trouble_traces();
    ASSERT_GE(trouble.size(), 1U);
    EXPECT_EQ(trouble, strings(trouble.size(), "error:unexpected %d bytes received."))
        << "once for each piece";
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

int mailfrom_reply(_s_smtp* session)
{
    return smtp_mailfrom(session, "reply@a.test");
}

int rcptto_two(_s_smtp* session)
{
    return smtp_rcptto(session, {"x@b.test", "y@c.test"});
}

smtp_act mailfrom(std::string const& address)
{
    return [address](_s_smtp* session) { return smtp_mailfrom(session, address); };
}

smtp_act rcptto(std::vector<std::string> const& addresses)
{
    return [addresses](_s_smtp* session) { return smtp_rcptto(session, addresses); };
}

smtp_act write_data(std::vector<std::string> const& lines)
{
    return [lines](_s_smtp* session) { return smtp_write_data(session, lines); };
}

// With the two commands around it: only the end of the data makes sure that all has been sent.
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
    return command_case(name)
        .calls(smtp_helo)
        .plays(answered("helo {host}", line))
        .keeps(line + "\r\n");
}

std::vector<command_case> reply_cases()
{
    return {
        command_case("a reply of one line")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "250 hello"))
            .keeps("250 hello\r\n"),
        command_case("a reply of several lines is kept whole")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250-mail.test
            S: 250-SIZE 1000
            S: 250 HELP
         )")
            .keeps("250-mail.test\r\n250-SIZE 1000\r\n250 HELP\r\n"),
        command_case("a reply of several lines sent one by one")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250-mail.test
            S: (delays 12)
            S: 250 HELP
         )")
            .keeps("250-mail.test\r\n250 HELP\r\n"),
        command_case("only the last line decides, for the better")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 550-hardly
            S: 250 welcome
         )")
            .keeps("550-hardly\r\n250 welcome\r\n"),
        command_case("only the last line decides, for the worse")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250-welcome
            S: 550 on second thoughts
         )")
            .fails("250-welcome\r\n550 on second thoughts\r\n", refused("error:smtp helo")),
        command_case("the code counts anywhere in the last line")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "550 5.1.1 user 250 unknown"))
            .keeps("550 5.1.1 user 250 unknown\r\n"),
        command_case("the code counts within a number")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "550 error 12501"))
            .keeps("550 error 12501\r\n"),
        command_case("a reply without any code ends at a blank in fourth place")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: oh, well
            S: yes sure
         )")
            .fails("oh, well\r\n", refused("error:smtp helo")),
        command_case("lines of other shapes are no last lines")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250\tok
            S: 250.ok
            S: 2500 ok
            S: hello
            S: 250 ok
         )")
            .keeps("250\tok\r\n250.ok\r\n2500 ok\r\nhello\r\n250 ok\r\n"),
        command_case("short lines are no last lines")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S- \n
            S:
            S: 2
            S: 25
            S: 250
            S: 250 ok
         )")
            .keeps("\n\r\n2\r\n25\r\n250\r\n250 ok\r\n"),
        command_case("a bare code is no last line, and the server that thinks so closes")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250
            S: (closes)
         )")
            .fails("250\r\n", lost("error:smtp helo")),
        command_case("a code and a blank are a last line")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S- 250 \r\n
         )")
            .keeps("250 \r\n"),
        command_case("a line feed alone ends a line")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S- 250-mail.test\n250 HELP\n
         )")
            .keeps("250-mail.test\n250 HELP\n"),
        command_case("a carriage return alone ends none")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S- 550 one\r250 two\r\n
         )")
            .keeps("550 one\r250 two\r\n"),
        command_case("a NUL hides the rest of its line")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "250 he\\0llo"))
            .keeps("250 he"),
        command_case("a NUL may hide the code")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "550 \\0250"))
            .fails("550 ", refused("error:smtp helo")),
        command_case("a NUL before the fourth character makes a short line")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 25\00 hello
            S: \0
            S: 250 hello
         )")
            .keeps("25250 hello\r\n"),
        command_case("bytes of any kind pass")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "250 \\xE3\\x81\\x82\\xFF\\x01%s%n"))
            .keeps("250 \xE3\x81\x82\xFF\x01%s%n\r\n"),
        command_case("a trickled reply")
            .calls(smtp_helo)
            .plays(R"(
            S: (trickles 2)
            C: helo {host}
            S: 250-mail.test
            S: 250 HELP
         )")
            .keeps("250-mail.test\r\n250 HELP\r\n"),
        command_case("a reply that comes with the next one")
            .calls([](_s_smtp* session) {
                return mailfrom_reply(session) == 0 && session->reply == "250 sender ok\r\n"
                           ? smtp_rcptto(session, {"x@b.test"})
                           : -1;
            })
            .plays(R"(
            C: mail from: <reply@a.test>
            S+ 250 sender ok
            S: 250 recipient ok
            C: rcpt to: <x@b.test>
         )")
            .keeps("250 recipient ok\r\n"),
        command_case("a reply that comes before its command")
            .calls(smtp_helo)
            .plays(R"(
            S: 250 hello
            C: helo {host}
         )")
            .keeps("250 hello\r\n"),
        reply_of("a line of 1022 bytes", 1022),
        reply_of("a line of 1023 bytes", 1023),
        reply_of("a line of 1024 bytes", 1024),
        reply_of("a line of 5000 bytes", 5000),
        command_case("a code that straddles two pieces of 1023 bytes")
            .calls(smtp_helo)
            .plays("C: helo {host}\nS: 550 " + filled(1018) + "250")
            .keeps("550 " + filled(1018) + "250\r\n"),
        command_case("a reply of 1000 lines")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: (repeat 999) 250-and
            S: 250 done
         )")
            .keeps([] {
                std::string reply;
                for (int i = 0; i < 999; ++i) {
                    reply += "250-and\r\n";
                }
                return reply + "250 done\r\n";
            }()),
        command_case("a megabyte without a line feed")
            .calls(smtp_helo)
            .plays("C: helo {host}\nS- " + filled(1000000) + "\nS: (closes)")
            .fails("", lost("error:smtp helo")),
        command_case("a hundred thousand bytes without a last line")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: (repeat 10000) 250-again
            S: (closes)
         )")
            .fails(
                [] {
                    std::string reply;
                    for (int i = 0; i < 10000; ++i) {
                        reply += "250-again\r\n";
                    }
                    return reply;
                }(),
                lost("error:smtp helo")),
        command_case("a server that closes in the middle of a reply")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S: 250-mail.test
            S- 250 HEL
            S: (closes)
         )")
            .fails("250-mail.test\r\n", lost("error:smtp helo")),
        command_case("a server that breaks the connection in the middle of a reply")
            .calls(smtp_helo)
            .plays(R"(
            C: helo {host}
            S- 250-mail.te
            S: (resets)
         )")
            .fails("", lost("error:smtp helo")),
    };
}

std::vector<command_case> command_cases()
{
    std::string const long_address = filled(1009);  // makes MAIL a line of 1024 bytes
    return {
        command_case("helo refused")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "502 not here"))
            .fails("502 not here\r\n", refused("error:smtp helo")),
        command_case("helo answered with the code of another command")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "220 hello"))
            .fails("220 hello\r\n", refused("error:smtp helo")),
        command_case("helo unanswered as the server closes")
            .calls(smtp_helo)
            .plays(lost_at("helo {host}"))
            .fails("", lost("error:smtp helo")),
        command_case("helo unanswered as the server ends the stream")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "(half-closes)"))
            .fails("", lost("error:smtp helo")),
        command_case("helo unanswered as the server breaks the connection")
            .calls(smtp_helo)
            .plays(answered("helo {host}", "(resets)"))
            .fails("", lost("error:smtp helo")),

        command_case("mail from accepted")
            .calls(mailfrom_reply)
            .plays(answered("mail from: <reply@a.test>", "250 2.1.0 ok"))
            .keeps("250 2.1.0 ok\r\n"),
        command_case("mail from nobody is the null reverse path")
            .calls(mailfrom(""))
            .plays(answered("mail from: <>", "250 ok"))
            .keeps("250 ok\r\n"),
        command_case("mail from an address that is none is sent as it is")
            .calls(mailfrom("A \"B\" <a@b>, c"))
            .plays(answered("mail from: <A \"B\" <a@b>, c>", "501 syntax"))
            .fails("501 syntax\r\n", refused("error:smtp mail from")),
        command_case("mail from an address that holds a percent sign")
            .calls(mailfrom("a%n%s@b.test"))
            .plays(answered("mail from: <a%n%s@b.test>", "250 ok"))
            .keeps("250 ok\r\n"),
        command_case("mail from an address in UTF-8")
            .calls(mailfrom("\xC3\xA9@b.test"))
            .plays("C: mail from: <\xC3\xA9@b.test>\nS: 250 ok")
            .keeps("250 ok\r\n"),
        command_case("mail from refused")
            .calls(mailfrom_reply)
            .plays(answered("mail from: <reply@a.test>", "550 5.7.1 not you"))
            .fails("550 5.7.1 not you\r\n", refused("error:smtp mail from")),
        command_case("mail from refused for now")
            .calls(mailfrom_reply)
            .plays(answered("mail from: <reply@a.test>", "451 later"))
            .fails("451 later\r\n", refused("error:smtp mail from")),
        command_case("mail from unanswered")
            .calls(mailfrom_reply)
            .plays(lost_at("mail from: <reply@a.test>"))
            .fails("", lost("error:smtp mail from")),
        command_case("mail from in a line of 1023 bytes")
            .calls(mailfrom(long_address.substr(1)))
            .plays("C: mail from: <" + long_address.substr(1) + ">\nS: 250 ok")
            .keeps("250 ok\r\n"),
        command_case("mail from in a line of 1024 bytes is not sent")
            .calls(mailfrom(long_address))
            .plays("C: (closes)")
            .fails(greeting_reply, {"error:smtp mail from"}),

        command_case("rcpt to each recipient in order")
            .calls(rcptto_two)
            .plays(R"(
            C: rcpt to: <x@b.test>
            S: 250 ok
            C: rcpt to: <y@c.test>
            S: 250 fine
         )")
            .keeps("250 fine\r\n"),
        command_case("rcpt to nobody says nothing")
            .calls(rcptto({}))
            .plays("C: (closes)")
            .keeps(greeting_reply),
        command_case("rcpt to an empty address")
            .calls(rcptto({""}))
            .plays(answered("rcpt to: <>", "501 whom?"))
            .fails("501 whom?\r\n", refused("error:smtp rcpt to")),
        command_case("rcpt to the first refused, the second is never sent")
            .calls(rcptto_two)
            .plays(refused_at("rcpt to: <x@b.test>", "550 5.1.1 no such user"))
            .fails("550 5.1.1 no such user\r\n", refused("error:smtp rcpt to")),
        command_case("rcpt to the second refused")
            .calls(rcptto_two)
            .plays(R"(
            C: rcpt to: <x@b.test>
            S: 250 ok
            C: rcpt to: <y@c.test>
            S: 452 too many
         )")
            .fails("452 too many\r\n", refused("error:smtp rcpt to")),
        command_case("rcpt to a recipient who has moved")
            .calls(rcptto_two)
            .plays(refused_at("rcpt to: <x@b.test>", "251 forwarded"))
            .fails("251 forwarded\r\n", refused("error:smtp rcpt to")),
        command_case("rcpt to refused in words that hold the code")
            .calls(rcptto({"x@b.test"}))
            .plays(answered("rcpt to: <x@b.test>", "550 5.1.1 user 250 unknown"))
            .keeps("550 5.1.1 user 250 unknown\r\n"),
        command_case("rcpt to the second in a line of 1024 bytes is not sent")
            .calls(rcptto({"x@b.test", filled(1011)}))
            .plays(refused_at("rcpt to: <x@b.test>", "250 ok"))
            .fails("250 ok\r\n", {"error:smtp rcpt to"}),
        command_case("rcpt to a recipient in a line of 1023 bytes")
            .calls(rcptto({filled(1010)}))
            .plays("C: rcpt to: <" + filled(1010) + ">\nS: 250 ok")
            .keeps("250 ok\r\n"),
        command_case("rcpt to unanswered")
            .calls(rcptto_two)
            .plays(lost_at("rcpt to: <x@b.test>"))
            .fails("", lost("error:smtp rcpt to")),

        command_case("data answered with 354")
            .calls(smtp_start_data)
            .plays(answered("data", "354 go on"))
            .keeps("354 go on\r\n"),
        command_case("data answered with 250")
            .calls(smtp_start_data)
            .plays(answered("data", "250 ok"))
            .keeps("250 ok\r\n"),
        command_case("data answered with several lines")
            .calls(smtp_start_data)
            .plays(R"(
            C: data
            S: 250-well
            S: 354 go on
         )")
            .keeps("250-well\r\n354 go on\r\n"),
        command_case("data refused in words that hold the code")
            .calls(smtp_start_data)
            .plays(answered("data", "554 no 354 for you"))
            .keeps("554 no 354 for you\r\n"),
        command_case("data refused for now")
            .calls(smtp_start_data)
            .plays(answered("data", "451 later"))
            .fails("451 later\r\n", {"error:can not find code 354 250"}),
        command_case("data refused in the last line")
            .calls(smtp_start_data)
            .plays(R"(
            C: data
            S: 354-go on
            S: 503 or rather not
         )")
            .fails("354-go on\r\n503 or rather not\r\n", {"error:can not find code 354 250"}),
        command_case("data unanswered")
            .calls(smtp_start_data)
            .plays(lost_at("data"))
            .fails("", {"error:smtp start data"}),
        command_case("data unanswered as the server breaks the connection")
            .calls(smtp_start_data)
            .plays(answered("data", "(resets)"))
            .fails("", {"error:smtp start data"}),

        command_case("text is sent as it is")
            .calls(send_text({"Subject: hello\r\n", "\r\n", ".a dot that nobody doubles\r\n",
                              "%s%n\xFF\r\n", "", "one\ntwo\r", "three"}))
            .plays(R"(
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
         )")
            .keeps("250 queued\r\n"),
        command_case("text of no lines")
            .calls(send_text({}))
            .plays(R"(
            C: data
            S: 354 go on
            C:
            C: .
            S: 250 queued
         )")
            .keeps("250 queued\r\n"),
        command_case("text gets no reply of its own")
            .calls(write_data({"Subject: hello\r\n"}))
            .plays("C: Subject: hello")
            .keeps(greeting_reply),

        command_case("the end of the text refused")
            .calls(smtp_end_data)
            .plays(R"(
            C:
            C: .
            S: 552 too much
         )")
            .fails("552 too much\r\n", refused("error:smtp end data")),
        command_case("the end of the text answered with 354")
            .calls(smtp_end_data)
            .plays(R"(
            C:
            C: .
            S: 354 go on
         )")
            .fails("354 go on\r\n", refused("error:smtp end data")),
        command_case("the end of the text unanswered")
            .calls(smtp_end_data)
            .plays(R"(
            C:
            C: .
            S: (closes)
         )")
            .fails("", lost("error:smtp end data")),

        command_case("quit accepted")
            .calls(smtp_quit)
            .plays(answered("quit", "221 bye"))
            .keeps("221 bye\r\n"),
        command_case("quit answered with 250")
            .calls(smtp_quit)
            .plays(answered("quit", "250 bye"))
            .fails("250 bye\r\n", refused("error:smtp quit")),
        command_case("quit answered by closing")
            .calls(smtp_quit)
            .plays(lost_at("quit"))
            .fails("", lost("error:smtp quit")),
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
    EXPECT_EQ(mailfrom_reply(session), 0);
    EXPECT_EQ(rcptto_two(session), 0);
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
        {"mail from", mailfrom_reply, lost("error:smtp mail from")},
        {"rcpt to", rcptto_two, lost("error:smtp rcpt to")},
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
        bool        found;
        char const* reason;
    } const cases[] = {
        {"250 ok\r\n", "250", true, "at the start"},
        {"550 user 250 unknown\r\n", "250", true, "anywhere"},
        {"250-ok\r\n550 no\r\n", "250", false, "in another line"},
        {"25  0\r\n", "250", false, "in pieces"},
        {"250 ok\r\n", "", true, "no code is in every line"},
    };
    for (auto const& c : cases) {
        hand_held_session held;
        held.pair.say(c.reply);
        clear_traces();
        EXPECT_EQ(read_reply_and_check_code(&held.session, c.code), c.found ? 0 : -1) << c.reason;
        EXPECT_EQ(trouble_traces(), c.found ? strings{} : strings{"error:can not find code (%s)"})
            << c.reason;
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
        {"mail from", mailfrom_reply, {"error:smtp mail from"}},
        {"rcpt to", rcptto_two, {"error:smtp rcpt to"}},
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
    struct host_case : named_case {
        using named_case::named_case;

        host_case& named(std::string const& its_name)
        {
            host = its_name;
            return *this;
        }
        host_case& at(std::string const& its_address)
        {
            address = its_address;
            return *this;
        }
        host_case& says(std::string const& greeting_name)
        {
            greeting = "helo " + greeting_name + "\r\n";
            return *this;
        }

        std::string host;      // empty: the machine has none
        std::string address;   // empty: the name does not resolve
        std::string greeting;  // empty: the greeting fails, and nothing is sent
    };
    std::string const longest(1016, 'h');
    host_case const   cases[] = {
          host_case("the address").named("client.test").at("192.0.2.10").says("[192.0.2.10]"),
          host_case("the plain name").named("printer-7").says("printer-7"),
          host_case("neither").says("unknown"),
          host_case("a line of 1023 bytes").named(longest).says(longest),
          host_case("a line of 1024 bytes").named(longest + "h"),
    };
    for (auto const& c : cases) {
        clear_hosts();
        if (!c.address.empty()) {
            add_host(c.host, c.address);
        }
        set_host_name(c.host);
        if (c.host.empty()) {
            lose_host_name();
        }
        bool const        fits = !c.greeting.empty();
        hand_held_session held;
        held.pair.say("250 hello\r\n");
        clear_traces();
        EXPECT_EQ(smtp_helo(&held.session), fits ? 0 : -1) << c.name;
        EXPECT_EQ(trouble_traces(), fits ? strings{} : strings{"error:smtp helo"}) << c.name;
        ::shutdown(held.pair.client(), SHUT_WR);
        EXPECT_EQ(held.pair.heard_to_the_end(), c.greeting) << c.name;
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
        held.pair.wait_until_client_is_stuck();
        held.pair.server_resets();
    });
    EXPECT_EQ(smtp_write_data(&held.session, lines), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:_smtp_write_data"});
    server.join();
}

TEST_F(SmtpSession, SendsABigTextToAServerThatReadsLate)
{
    hand_held_session              held;
    std::vector<std::string> const lines(300, std::string(99998, 'x') + "\r\n");
    std::string                    heard;
    std::thread                    server([&] {
        held.pair.wait_until_client_is_stuck();
        heard = held.pair.heard_to_the_end();
    });
    EXPECT_EQ(smtp_write_data(&held.session, lines), 0);
    held.pair.say("250 queued\r\n");
    EXPECT_EQ(smtp_end_data(&held.session), 0);
    ::shutdown(held.pair.client(), SHUT_WR);
    server.join();
    ASSERT_EQ(heard.size(), 300 * 100000U + 5);
    EXPECT_EQ(heard.substr(heard.size() - 7), "\r\n\r\n.\r\n");
}

// ---- time

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
        {"mail from", mailfrom_reply},
        {"rcpt to", rcptto({"x@b.test"})},
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
