// Whole deliveries: a message file and a settings file on one side, what a server hears and what
// the caller gets on the other.
//
// send_not_ended (1002) has no case: whatever goes wrong while a connection is closed, the end of
// the session takes it upon itself and succeeds.

#include "libsendw/libsendw.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <optional>
#include <ostream>
#include <thread>
#include <vector>

#include "libbase64/libbase64.h"
#include "libcryptw/libcryptw.h"
#include "libsendw/sock.h"
#include "tests/support/clean_machine.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

// ---- settings and messages

// A setting that differs from the usual ones.
struct change {
    std::string                key;
    std::optional<std::string> value;
};
using changes = std::vector<change>;

// In the place of a value: the key is missing.
constexpr auto not_there = std::nullopt;

// The usual settings: no POP3, no authentication. Those of both are there all the same.
changes usual_settings(std::uint16_t smtp_port, std::uint16_t pop_port)
{
    return {
        {"pop_before_smtp", "no"},
        {"pop_server", "127.0.0.1"},
        {"pop_port", std::to_string(pop_port)},
        {"pop_account", "anna"},
        {"pop_passwd", "pop secret"},
        {"pop_auth_type", "plain"},
        {"pop_wait_time", "0"},
        {"smtp_server", "127.0.0.1"},
        {"smtp_port", std::to_string(smtp_port)},
        {"smtp_auth", "no"},
        {"smtp_auth_type", "auto"},
        {"smtp_account", "joe"},
        {"smtp_passwd", "secret"},
        {"passwd_raw", "yes"},
        {"subject_use_encoding", "yes"},
    };
}

std::string settings_text(std::uint16_t smtp_port, std::uint16_t pop_port,
                          changes const& different = {})
{
    std::string text;
    for (change const& usual : usual_settings(smtp_port, pop_port)) {
        std::optional<std::string> value = usual.value;
        for (change const& c : different) {
            value = c.key == usual.key ? c.value : value;
        }
        if (value) {
            text += usual.key + " = " + *value + "\r\n";
        }
    }
    return text;
}

// The parts of a message file that matter here.
std::string message_text(std::string const& to, std::string const& cc = "",
                         std::string const& replyto = "reply@a.test")
{
    return "encoding: UTF-8\n"
           "from: Printer <printer@a.test>\n"
           "to: " +
           to + "\n" + (cc.empty() ? "" : "cc: " + cc + "\n") +
           "subject: hello\n"
           "replyto: " +
           replyto +
           "\n"
           "the paper is empty";
}

std::string const usual_message = message_text("x@b.test");

std::string encrypted(char const* password)
{
    icryptw              crypt;
    unsigned char* const stored =
        crypt.encrypt_passwd(reinterpret_cast<unsigned char const*>(password));
    std::string text = reinterpret_cast<char const*>(stored);
    crypt.encrypt_free_passwd(stored);
    return text;
}

// A message and its settings in files, and the call that sends it.
struct sender {
    sender(std::string const& message, std::string const& settings)
    {
        write_file(msg_path, message);
        write_file(conf_path, settings);
    }

    int send() { return isendw().send(msg_path.c_str(), conf_path.c_str(), result_text); }

    temp_dir    dir;
    std::string msg_path    = dir.file("0000000000.sme");
    std::string conf_path   = dir.file("zelismes.cf");
    std::string result_text = "what was there before";
};

// ---- conversations

struct send_case {
    char const* name;
    changes     settings;
    std::string message;
    std::string transcript;
    int         result;
    std::string result_text;
    strings     trouble        = {};
    std::string pop_transcript = {};
    // Of the POP3 step, in microseconds.
    std::vector<std::int64_t> sleeps = {};
};

void PrintTo(send_case const& c, std::ostream* out)
{
    *out << c.name;
}

class Sending : public on_a_clean_machine_with<send_case>
{
};

TEST_P(Sending, EndsAsTheTranscriptSays)
{
    send_case const& c = GetParam();
    local_server     server(c.transcript);
    local_server     pop_server(c.pop_transcript);
    sender           s(c.message, settings_text(server.port(), pop_server.port(), c.settings));

    EXPECT_EQ(s.send(), c.result);
    EXPECT_EQ(s.result_text, c.result_text);
    EXPECT_EQ(trouble_traces(), c.trouble);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
    EXPECT_EQ(waits().sleeps, c.sleeps);
    EXPECT_EQ(read_file(s.msg_path), c.message) << "the message stays as it was";
}

// The parts of a good conversation.
std::string const greeted  = "S: 220 mail.test ready\n";
std::string const helo     = greeted + "C: helo {host}\nS: 250 mail.test\n";
std::string const mail     = "C: mail from: <reply@a.test>\nS: 250 sender ok\n";
std::string const rcpt     = "C: rcpt to: <x@b.test>\nS: 250 recipient ok\n";
std::string const data     = "C: data\nS: 354 go on\nC: (data)\nS: 250 queued\n";
std::string const goodbye  = "C: quit\nS: 221 bye\nC: (closes)\n";
std::string const delivery = mail + rcpt + data + goodbye;
std::string const hangs_up = "C: (closes)\n";

std::string ehlo(std::string const& offer)
{
    return greeted + "C: ehlo {host}\nS: 250-mail.test\nS: 250 " + offer + "\n";
}

strings not_sent(std::string const& error)
{
    return {"error:can not find code (%s)", error, "error:_send_message", "error:send_message"};
}

// RFC 5321 allows 64 + 1 + 255 bytes; the command's line ends sooner than this.
std::string const long_address = std::string(1000, 'x') + "@b.test";

std::vector<send_case> envelope_cases()
{
    return {
        {"a message is sent", {}, usual_message, helo + delivery, 0, "221 bye\r\n"},
        {"every reply has several lines",
         {},
         usual_message,
         R"(
        S: 220-mail.test
        S: 220 ready
        C: helo {host}
        S: 250-mail.test
        S: 250 hello
        C: mail from: <reply@a.test>
        S: 250-sender
        S: 250 ok
        C: rcpt to: <x@b.test>
        S: 250-recipient
        S: 250 ok
        C: data
        S: 354-go
        S: 354 on
        C: (data)
        S: 250-queued
        S: 250 as 1
        C: quit
        S: 221-good
        S: 221 bye
        C: (closes)
     )",
         0,
         "221-good\r\n221 bye\r\n"},
        {"every reply is trickled",
         {},
         usual_message,
         "S: (trickles 1)\n" + helo + delivery,
         0,
         "221 bye\r\n"},
        {"all replies come at once",
         {},
         usual_message,
         R"(
        S+ 220 ready
        S+ 250 hello
        S+ 250 sender ok
        S+ 250 recipient ok
        S+ 354 go on
        S+ 250 queued
        S: 221 bye
        C: helo {host}
        C: mail from: <reply@a.test>
        C: rcpt to: <x@b.test>
        C: data
        C: (data)
        C: quit
        C: (closes)
     )",
         0,
         "221 bye\r\n"},
        {"data answered with 250",
         {},
         usual_message,
         helo + mail + rcpt + "C: data\nS: 250 go on\nC: (data)\nS: 250 queued\n" + goodbye,
         0,
         "221 bye\r\n"},
        {"an empty reply-to is the null reverse path",
         {},
         message_text("x@b.test", "", ""),
         helo + "C: mail from: <>\nS: 250 ok\n" + rcpt + data + goodbye,
         0,
         "221 bye\r\n"},
        {"a message without a reply-to line has the null reverse path",
         {},
         "from: printer@a.test\nto: x@b.test\nsubject: hello\nbody",
         helo + "C: mail from: <>\nS: 250 ok\n" + rcpt + data + goodbye,
         0,
         "221 bye\r\n"},
        {"the sender is the reply-to address and not from",
         {},
         message_text("x@b.test", "", "Anna <anna@a.test>"),
         helo + "C: mail from: <Anna <anna@a.test>>\nS: 501 syntax\n" + hangs_up,
         1005,
         "501 syntax\r\n",
         not_sent("error:smtp mail from")},
        {"several recipients",
         {},
         message_text("x@b.test, y@c.test", "z@d.test"),
         helo + mail + rcpt +
             "C: rcpt to: <y@c.test>\nS: 250 ok\n"
             "C: rcpt to: <z@d.test>\nS: 250 ok\n" +
             data + goodbye,
         0,
         "221 bye\r\n"},
        {"a recipient in to and in cc gets one copy, in the first place",
         {},
         message_text("a@b.test,b@b.test", "a@b.test"),
         helo + mail +
             "C: rcpt to: <a@b.test>\nS: 250 ok\n"
             "C: rcpt to: <b@b.test>\nS: 250 ok\n" +
             data + goodbye,
         0,
         "221 bye\r\n"},
        {"a recipient twice in to, with blanks that differ",
         {},
         message_text("x@b.test, y@c.test , x@b.test", "y @ c.test"),
         helo + mail + rcpt + "C: rcpt to: <y@c.test>\nS: 250 ok\n" + data + goodbye,
         0,
         "221 bye\r\n"},
        {"recipients that differ in case are two",
         {},
         message_text("x@b.test,X@b.test"),
         helo + mail + rcpt + "C: rcpt to: <X@b.test>\nS: 250 ok\n" + data + goodbye,
         0,
         "221 bye\r\n"},
        {"empty entries of to are one recipient without a name",
         {},
         message_text("x@b.test,,"),
         helo + mail + rcpt + "C: rcpt to: <>\nS: 501 whom?\n" + hangs_up,
         1005,
         "501 whom?\r\n",
         {"error:can not find code (%s)", "error:smtp rcpt to", "error:_send_message",
          "error:send_message"}},
        {"no recipient at all",
         {},
         message_text(""),
         helo + mail + hangs_up,
         1005,
         "250 sender ok\r\n",
         {"error:no address", "error:smtpmsg_split_address", "error:_send_message",
          "error:send_message"}},
        {"no to, but cc: the entry before the comma is empty",
         {},
         message_text("", "z@d.test"),
         helo + mail + "C: rcpt to: <>\nS: 501 whom?\n" + hangs_up,
         1005,
         "501 whom?\r\n",
         not_sent("error:smtp rcpt to")},
        {"the first of two recipients refused",
         {},
         message_text("x@b.test,y@c.test"),
         helo + mail + "C: rcpt to: <x@b.test>\nS: 550 5.1.1 no such user\n" + hangs_up,
         1005,
         "550 5.1.1 no such user\r\n",
         not_sent("error:smtp rcpt to")},
        {"the second of two recipients refused",
         {},
         message_text("x@b.test", "y@c.test"),
         helo + mail + rcpt + "C: rcpt to: <y@c.test>\nS: 452 too many\n" + hangs_up,
         1005,
         "452 too many\r\n",
         not_sent("error:smtp rcpt to")},
        {"a recipient who has moved",
         {},
         usual_message,
         helo + mail + "C: rcpt to: <x@b.test>\nS: 251 forwarded\n" + hangs_up,
         1005,
         "251 forwarded\r\n",
         not_sent("error:smtp rcpt to")},
        {"a recipient refused in words that hold the code",
         {},
         usual_message,
         helo + mail + "C: rcpt to: <x@b.test>\nS: 550 5.1.1 user 250 unknown\n" + data + goodbye,
         0,
         "221 bye\r\n"},
        {"a sender whose line is too long",
         {},
         message_text("x@b.test", "", long_address + "xx"),
         helo + hangs_up,
         1005,
         "250 mail.test\r\n",
         {"error:smtp mail from", "error:_send_message", "error:send_message"}},
        {"a recipient whose line is too long",
         {},
         message_text(long_address + "xxxx"),
         helo + mail + hangs_up,
         1005,
         "250 sender ok\r\n",
         {"error:smtp rcpt to", "error:_send_message", "error:send_message"}},
        {"addresses whose lines are as long as can be",
         {},
         message_text(long_address + "xxx", "", long_address + "x"),
         helo + "C: mail from: <" + long_address + "x>\nS: 250 ok\nC: rcpt to: <" + long_address +
             "xxx>\nS: 250 ok\n" + data + goodbye,
         0,
         "221 bye\r\n"},
    };
}

INSTANTIATE_TEST_SUITE_P(Envelope, Sending, testing::ValuesIn(envelope_cases()),
                         case_name<send_case>);

std::vector<send_case> refusal_cases()
{
    return {
        {"there is no service",
         {},
         usual_message,
         "S: 554 no service\n" + hangs_up,
         1001,
         "what was there before",
         {"error:can not find code (%s)", "error:smtp start session", "error:smtp_start_sesion"}},
        {"the greeting is lost",
         {},
         usual_message,
         "S- 220 mail.te\nS: (closes)",
         1001,
         "what was there before",
         {"error:read_multiline_reply", "error:smtp start session", "error:smtp_start_sesion"}},
        {"helo refused",
         {},
         usual_message,
         greeted + "C: helo {host}\nS: 550-you are\nS: 550 on a list\n" + hangs_up,
         1003,
         "550-you are\r\n550 on a list\r\n",
         {"error:can not find code (%s)", "error:smtp helo", "error:smtp_helo"}},
        {"ehlo refused",
         {{"smtp_auth", "yes"}},
         usual_message,
         greeted + "C: ehlo {host}\nS: 502 helo, please\n" + hangs_up,
         1004,
         "502 helo, please\r\n",
         {"error:not 250", "error:smtp_ehlo"}},
        {"the sender refused",
         {},
         usual_message,
         helo + "C: mail from: <reply@a.test>\nS: 550 5.7.1 not you\n" + hangs_up,
         1005,
         "550 5.7.1 not you\r\n",
         not_sent("error:smtp mail from")},
        {"the recipient refused",
         {},
         usual_message,
         helo + mail + "C: rcpt to: <x@b.test>\nS: 550 5.1.1 no such user\n" + hangs_up,
         1005,
         "550 5.1.1 no such user\r\n",
         not_sent("error:smtp rcpt to")},
        {"data refused",
         {},
         usual_message,
         helo + mail + rcpt + "C: data\nS: 451 later\n" + hangs_up,
         1005,
         "451 later\r\n",
         {"error:can not find code 354 250", "error:_send_message", "error:send_message"}},
        {"the text refused",
         {},
         usual_message,
         helo + mail + rcpt + "C: data\nS: 354 go on\nC: (data)\nS: 552 too much\n" + hangs_up,
         1005,
         "552 too much\r\n",
         not_sent("error:smtp end data")},
        {"quit refused although the message was accepted",
         {},
         usual_message,
         helo + mail + rcpt + data + "C: quit\nS: 250 stay\n" + hangs_up,
         1006,
         "250 stay\r\n",
         {"error:can not find code (%s)", "error:smtp quit", "error:smtp_quit"}},
        {"quit answered by closing",
         {},
         usual_message,
         helo + mail + rcpt + data + "C: quit\nS: (closes)\n",
         1006,
         "",
         {"error:read_multiline_reply", "error:smtp quit", "error:smtp_quit"}},
        {"a NUL in the last reply cuts the result text",
         {},
         usual_message,
         helo + "C: mail from: <reply@a.test>\nS: 550 not\\0 you\n" + hangs_up,
         1005,
         "550 not",
         not_sent("error:smtp mail from")},
        {"a server that goes on talking is heard to its end",
         {},
         usual_message,
         helo + mail + rcpt + data +
             "C: quit\nS: 221 bye\nC: (closes)\nS: (delays 10)\nS: 421 oh\n",
         0,
         "221 bye\r\n",
         {"error:unexpected %d bytes received."}},
    };
}

INSTANTIATE_TEST_SUITE_P(Refusal, Sending, testing::ValuesIn(refusal_cases()),
                         case_name<send_case>);

std::string const cram_md5_login =
    ehlo("AUTH LOGIN CRAM-MD5") +
    "C: AUTH CRAM-MD5\n"
    "S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\n"
    "C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\n"
    "S: 235 welcome\n";
std::string const login_login =
    "C: AUTH LOGIN\nS64: 334 User:\nC64: joe\nS64: 334 Password:\nC64: secret\nS: 235 welcome\n";
std::string const plain_login = "C: AUTH PLAIN {base64:\\0joe\\0secret}\nS: 235 welcome\n";

std::vector<send_case> auth_cases()
{
    return {
        {"cram-md5, the example of RFC 2195",
         {{"smtp_auth", "yes"}, {"smtp_account", "tim"}, {"smtp_passwd", "tanstaaftanstaaf"}},
         usual_message,
         cram_md5_login + delivery,
         0,
         "221 bye\r\n"},
        {"cram-md5 by setting",
         {{"smtp_auth", "yes"},
          {"smtp_auth_type", "cram-md5"},
          {"smtp_account", "tim"},
          {"smtp_passwd", "tanstaaftanstaaf"}},
         usual_message,
         cram_md5_login + delivery,
         0,
         "221 bye\r\n"},
        {"login by the server's offer",
         {{"smtp_auth", "yes"}},
         usual_message,
         ehlo("AUTH PLAIN LOGIN") + login_login + delivery,
         0,
         "221 bye\r\n"},
        {"login by setting, whatever the server offers",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", "login"}},
         usual_message,
         ehlo("AUTH CRAM-MD5") + login_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain by the server's offer",
         {{"smtp_auth", "yes"}},
         usual_message,
         ehlo("AUTH PLAIN") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain by setting",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", "plain"}},
         usual_message,
         ehlo("AUTH CRAM-MD5 LOGIN") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain for want of an offer",
         {{"smtp_auth", "yes"}},
         usual_message,
         ehlo("8BITMIME") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain by a setting in upper case",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", "CRAM-MD5"}},
         usual_message,
         ehlo("AUTH CRAM-MD5") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain by an empty setting",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", ""}},
         usual_message,
         ehlo("AUTH CRAM-MD5") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"plain and a caret in the password",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", "plain"}, {"smtp_passwd", "se^cret"}},
         usual_message,
         ehlo("AUTH PLAIN") + "C: AUTH PLAIN {base64:\\0joe\\0se\\0cret}\nS: 535 wrong\n" +
             hangs_up,
         1004,
         "535 wrong\r\n",
         {"error:can not find code (%s)", "error:not 235", "error:smtp_ehlo"}},
        {"a password with blanks at its ends keeps the last one",
         {{"smtp_auth", "yes"}, {"smtp_passwd", "  sec ret "}},
         usual_message,
         ehlo("AUTH PLAIN") + "C: AUTH PLAIN {base64:\\0joe\\0sec ret }\nS: 235 welcome\n" +
             delivery,
         0,
         "221 bye\r\n"},
        {"cram-md5 refused, and nothing else is tried",
         {{"smtp_auth", "yes"}},
         usual_message,
         ehlo("AUTH CRAM-MD5 LOGIN PLAIN") + "C: AUTH CRAM-MD5\nS: 504 not now\n" + hangs_up,
         1004,
         "504 not now\r\n",
         {"error:not 334", "error:smtp_ehlo"}},
        {"login refused",
         {{"smtp_auth", "yes"}},
         usual_message,
         ehlo("AUTH LOGIN") +
             "C: AUTH LOGIN\nS: 334 a\nC64: joe\nS: 334 b\nC64: secret\nS: 535 wrong\n" + hangs_up,
         1004,
         "535 wrong\r\n",
         {"error:can not find code (%s)", "error:auth_login_data %s for %s", "error:smtp_ehlo"}},
        {"credentials whose line is too long",
         {{"smtp_auth", "yes"},
          {"smtp_auth_type", "plain"},
          {"smtp_account", std::string(60, 'u')},
          {"smtp_passwd", std::string(700, 'p')}},
         usual_message,
         ehlo("AUTH PLAIN") + hangs_up,
         1004,
         "250-mail.test\r\n250 AUTH PLAIN\r\n",
         {"error:not 235", "error:smtp_ehlo"}},
        {"smtp_auth in upper case means helo",
         {{"smtp_auth", "YES"}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n"},
        {"smtp_auth of something else means helo",
         {{"smtp_auth", "yes please"}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n"},
    };
}

INSTANTIATE_TEST_SUITE_P(Authentication, Sending, testing::ValuesIn(auth_cases()),
                         case_name<send_case>);

// ---- missing settings

char const* const missing = "error:conf_get_string %s";

std::vector<send_case> missing_cases()
{
    return {
        {"pop_before_smtp missing is no",
         {{"pop_before_smtp", not_there}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {missing}},
        {"smtp_server missing",
         {{"smtp_server", not_there}},
         usual_message,
         "",
         1000,
         "what was there before",
         {missing, "error:get_smtp_server_addr"}},
        {"smtp_port missing",
         {{"smtp_port", not_there}},
         usual_message,
         "",
         1000,
         "what was there before",
         {missing, "error:get_smtp_server_addr"}},
        {"smtp_auth missing: the line of smtp_auth_type is found in its place",
         {{"smtp_auth", not_there}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n"},
        {"smtp_auth and smtp_auth_type missing is no",
         {{"smtp_auth", not_there}, {"smtp_auth_type", not_there}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {missing}},
        {"smtp_auth missing, and smtp_auth_type says yes",
         {{"smtp_auth", not_there}, {"smtp_auth_type", "yes"}},
         usual_message,
         ehlo("AUTH LOGIN") + plain_login + delivery,
         0,
         "221 bye\r\n"},
        {"smtp_auth_type missing is auto",
         {{"smtp_auth", "yes"}, {"smtp_auth_type", not_there}},
         usual_message,
         ehlo("AUTH LOGIN") + login_login + delivery,
         0,
         "221 bye\r\n",
         {missing}},
        {"smtp_account missing",
         {{"smtp_auth", "yes"}, {"smtp_account", not_there}},
         usual_message,
         greeted + hangs_up,
         1004,
         "220 mail.test ready\r\n",
         {missing, "error:get_smtp_userinfo", "error:smtp_ehlo"}},
        {"smtp_passwd missing",
         {{"smtp_auth", "yes"}, {"smtp_passwd", not_there}},
         usual_message,
         greeted + hangs_up,
         1004,
         "220 mail.test ready\r\n",
         {missing, "error:get_smtp_userinfo", "error:smtp_ehlo"}},
        {"smtp_account missing where nobody asks for it",
         {{"smtp_account", not_there}, {"smtp_passwd", not_there}, {"passwd_raw", not_there}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n"},
        {"subject_use_encoding missing is yes",
         {{"subject_use_encoding", not_there}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {missing}},
    };
}

INSTANTIATE_TEST_SUITE_P(Missing, Sending, testing::ValuesIn(missing_cases()),
                         case_name<send_case>);

// ---- POP before SMTP

changes with_pop(changes different = {})
{
    different.insert(different.begin(), {"pop_before_smtp", "yes"});
    return different;
}

std::string const pop_login =
    "S: +OK pop ready\nC: user anna\nS: +OK\nC: pass pop secret\nS: +OK in\n";
std::string const pop_goodbye = "C: quit\nS: +OK pop bye\nC: (closes)\n";

std::vector<send_case> pop_cases()
{
    return {
        {"user and pass",
         with_pop(),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         pop_login + pop_goodbye,
         {0}},
        {"apop, the example of RFC 1939",
         with_pop(
             {{"pop_auth_type", "apop"}, {"pop_account", "mrose"}, {"pop_passwd", "tanstaaf"}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         "S: +OK POP3 server ready <1896.697170952@dbc.mtview.ca.us>\n"
         "C: apop mrose c4c9334bac560ecc979e58001b3e22fb\n"
         "S: +OK in\n" +
             pop_goodbye,
         {0}},
        {"apop in upper case means user and pass",
         with_pop({{"pop_auth_type", "APOP"}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         pop_login + pop_goodbye,
         {0}},
        {"the wait is handed on in milliseconds",
         with_pop({{"pop_wait_time", "1500"}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         pop_login + pop_goodbye,
         {1500000}},
        {"a wait that is no number is none",
         with_pop({{"pop_wait_time", "a while"}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         pop_login + pop_goodbye,
         {0}},
        {"a wait beyond all numbers is the longest",
         with_pop({{"pop_wait_time", "99999999999"}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {},
         pop_login + pop_goodbye,
         {std::int64_t{2147483647} * 1000}},
        {"a result of SMTP covers that of POP3",
         with_pop(),
         usual_message,
         greeted + "C: helo {host}\nS: 502 no\n" + hangs_up,
         1003,
         "502 no\r\n",
         {"error:can not find code (%s)", "error:smtp helo", "error:smtp_helo"},
         pop_login + pop_goodbye,
         {0}},
        {"without a session of SMTP the result text is that of POP3",
         with_pop(),
         usual_message,
         "S: 554 no service\n" + hangs_up,
         1001,
         "+OK pop bye\r\n",
         {"error:can not find code (%s)", "error:smtp start session", "error:smtp_start_sesion"},
         pop_login + pop_goodbye,
         {0}},
        {"without an SMTP server too",
         with_pop({{"smtp_server", not_there}}),
         usual_message,
         "",
         1000,
         "+OK pop bye\r\n",
         {missing, "error:get_smtp_server_addr"},
         pop_login + pop_goodbye,
         {0}},
        {"yes in upper case is no",
         {{"pop_before_smtp", "YES"}},
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n"},

        {"the POP3 server closes instead of greeting",
         with_pop(),
         usual_message,
         "",
         2002,
         "",
         {"error:sock_readline"},
         "S: (closes)"},
        {"the user refused",
         with_pop(),
         usual_message,
         "",
         2004,
         "-ERR who?\r\n",
         {"error:-ERR"},
         "S: +OK\nC: user anna\nS: -ERR who?\nC: (closes)"},
        {"the password refused",
         with_pop(),
         usual_message,
         "",
         2005,
         "-ERR wrong\r\n",
         {"error:-ERR"},
         "S: +OK\nC: user anna\nS: +OK\nC: pass pop secret\nS: -ERR wrong\nC: (closes)"},
        {"apop refused",
         with_pop({{"pop_auth_type", "apop"}}),
         usual_message,
         "",
         2006,
         "-ERR wrong\r\n",
         {"error:-ERR"},
         "S: +OK <1896.697170952@dbc.mtview.ca.us>\nC: apop anna {any}\nS: -ERR wrong\nC: (closes)"},
        {"apop impossible",
         with_pop({{"pop_auth_type", "apop"}}),
         usual_message,
         "",
         2006,
         "+OK ready\r\n",
         {"error:challenge spos %s"},
         "S: +OK ready\nC: (closes)"},
        {"quit of POP3 unanswered",
         with_pop(),
         usual_message,
         "",
         100,
         "",
         {"error:sock_readline", "error: pop_quit"},
         pop_login + "C: quit\nS: (closes)"},

        {"pop_server missing",
         with_pop({{"pop_server", not_there}}),
         usual_message,
         "",
         100,
         "what was there before",
         {missing, "error:get_pop_server_addr"}},
        {"pop_port missing",
         with_pop({{"pop_port", not_there}}),
         usual_message,
         "",
         100,
         "what was there before",
         {missing, "error:get_pop_server_addr"}},
        {"pop_account missing",
         with_pop({{"pop_account", not_there}}),
         usual_message,
         "",
         100,
         "what was there before",
         {missing, "error:get_smtp_userinfo"}},
        {"pop_passwd missing",
         with_pop({{"pop_passwd", not_there}}),
         usual_message,
         "",
         100,
         "what was there before",
         {missing, "error:get_smtp_userinfo"}},
        {"pop_passwd not decrypted",
         with_pop({{"passwd_raw", "no"}, {"pop_passwd", "ABC"}}),
         usual_message,
         "",
         100,
         "what was there before",
         {"error:etc_hexstr2bin", "error:crypt::decrypt_passwd", "error:get_smtp_userinfo"}},
        {"pop_auth_type missing is user and pass",
         with_pop({{"pop_auth_type", not_there}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {missing},
         pop_login + pop_goodbye,
         {0}},
        {"pop_wait_time missing is no wait",
         with_pop({{"pop_wait_time", not_there}}),
         usual_message,
         helo + delivery,
         0,
         "221 bye\r\n",
         {missing},
         pop_login + pop_goodbye,
         {0}},
    };
}

INSTANTIATE_TEST_SUITE_P(PopBeforeSmtp, Sending, testing::ValuesIn(pop_cases()),
                         case_name<send_case>);

class Delivery : public on_a_clean_machine
{
};

TEST_F(Delivery, ConnectsToNoSmtpServerWhenPop3Fails)
{
    local_server      server("");
    closed_port const pop_port;
    sender            s(usual_message, settings_text(server.port(), pop_port.number(), with_pop()));
    EXPECT_EQ(s.send(), 2002);
    EXPECT_EQ(s.result_text, "") << "the empty last reply of the POP3 session";
    EXPECT_EQ(trouble_traces(),
              (strings{"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d"}));
    EXPECT_EQ(server.connections(), 0);
    EXPECT_EQ(server.heard(), "");
}

// ---- stored passwords

TEST_F(Delivery, ReadsPasswordsInTheFormThatTheSettingsSay)
{
    std::string const stored       = encrypted("secret");
    std::string       stored_lower = stored;
    std::transform(stored_lower.begin(), stored_lower.end(), stored_lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
    struct {
        std::optional<std::string> passwd_raw;
        std::string                passwd;
        char const*                password;  // in Base64 escapes
        strings                    trouble;
        char const*                reason;
    } const cases[] = {
        {"yes", "secret", "secret", {}, "plain"},
        {"yes", stored, stored.c_str(), {}, "as written, even if it looks like a stored form"},
        {"no", stored, "secret", {}, "stored form"},
        {"no", stored_lower, "secret", {}, "digits may be lower case"},
        {not_there, stored, "secret", {"warning:conf_get_string %s"}, "no key, stored form"},
        {"NO", "secret", "secret", {}, "anything but no"},
        {"no ", "secret", "secret", {}, "anything but no, a blank behind it included"},
        {"", "secret", "secret", {}, "anything but no, nothing included"},
        {"0", "secret", "secret", {}, "anything but no"},
    };
    for (auto const& c : cases) {
        local_server server(ehlo("AUTH PLAIN") + "C: AUTH PLAIN {base64:\\0joe\\0" + c.password +
                            "}\nS: 235 ok\n" + delivery);
        sender       s(usual_message, settings_text(server.port(), 0,
                                                    {{"smtp_auth", "yes"},
                                                     {"passwd_raw", c.passwd_raw},
                                                     {"smtp_passwd", c.passwd}}));
        clear_traces();
        EXPECT_EQ(s.send(), 0) << c.reason;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.reason;
        EXPECT_EQ(server.heard(), server.expected()) << c.reason << ": " << server.problem();
    }
}

TEST_F(Delivery, DecryptsThePop3PasswordToo)
{
    local_server      pop_server(pop_login + pop_goodbye);
    local_server      server(helo + delivery);
    std::string const stored = encrypted("pop secret");
    sender            s(usual_message,
                        settings_text(server.port(), pop_server.port(),
                                      with_pop({{"passwd_raw", "no"}, {"pop_passwd", stored}})));
    EXPECT_EQ(s.send(), 0);
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
}

TEST_F(Delivery, RefusesAStoredPasswordOfOddLength)
{
    for (char const* const odd : {"A", "ABC", "not hex at all, but odd"}) {
        local_server server(greeted + hangs_up);
        sender       s(usual_message,
                       settings_text(server.port(), 0,
                                     {{"smtp_auth", "yes"}, {"passwd_raw", "no"}, {"smtp_passwd", odd}}));
        clear_traces();
        EXPECT_EQ(s.send(), 1004) << odd;
        EXPECT_EQ(s.result_text, "220 mail.test ready\r\n") << odd;
        EXPECT_EQ(trouble_traces(), (strings{"error:etc_hexstr2bin", "error:crypt::decrypt_passwd",
                                             "error:get_smtp_userinfo", "error:smtp_ehlo"}))
            << odd;
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    }
}

// ---- servers that are not there

TEST_F(Delivery, FailsWhenTheServerIsNotReached)
{
    closed_port const port;
    std::string const number = std::to_string(port.number());
    struct {
        char const* host;
        char const* port;
        strings     trouble;
        char const* reason;
    } const cases[] = {
        {"127.0.0.1",
         number.c_str(),
         {"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d", "error:smtp_start_sesion"},
         "nobody listens"},
        {"127.0.0.1",
         "smtp",
         {"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d", "error:smtp_start_sesion"},
         "a port that is no number is port 0"},
        {"no.such.host.test",
         number.c_str(),
         {"warning:inet_addr %s", "error:gethostbyname %s", "error:invalid host address",
          "error:smtp_start_sesion"},
         "an unknown host"},
        {"",
         number.c_str(),
         {"warning:inet_addr %s", "error:gethostbyname %s", "error:invalid host address",
          "error:smtp_start_sesion"},
         "an empty setting is a host without a name"},
    };
    for (auto const& c : cases) {
        sender s(usual_message,
                 settings_text(0, 0, {{"smtp_server", c.host}, {"smtp_port", c.port}}));
        clear_traces();
        EXPECT_EQ(s.send(), 1001) << c.reason;
        EXPECT_EQ(s.result_text, "what was there before") << c.reason;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.reason;
    }
}

TEST_F(Delivery, ReachesAServerByItsName)
{
    local_server server(helo + delivery);
    add_host("mail.test", "127.0.0.1");
    sender s(usual_message, settings_text(server.port(), 0, {{"smtp_server", "mail.test"}}));
    EXPECT_EQ(s.send(), 0);
    EXPECT_EQ(looked_up_names(), (strings{"mail.test", "client.test"}));
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Delivery, ReadsThePortAsFarAsItIsANumber)
{
    local_server      server(helo + delivery);
    std::string const port = std::to_string(server.port()) + " (smtp)";
    sender            s(usual_message, settings_text(0, 0, {{"smtp_port", port}}));
    EXPECT_EQ(s.send(), 0);
}

// ---- files that are not there

TEST_F(Delivery, FailsWithoutSettings)
{
    local_server server("");
    sender       s(usual_message, "");
    EXPECT_EQ(s.send(), 1000) << "an empty file";
    EXPECT_EQ(trouble_traces(), (strings{missing, missing, "error:get_smtp_server_addr"}));

    clear_traces();
    s.conf_path += ".not";
    EXPECT_EQ(s.send(), 1000) << "no file";
    EXPECT_EQ(trouble_traces(), (strings{"error:ifstream(%s)", missing, "error:ifstream(%s)",
                                         missing, "error:get_smtp_server_addr"}));
    EXPECT_EQ(s.result_text, "what was there before");
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(Delivery, ConnectsBeforeItLooksForTheMessage)
{
    struct {
        std::function<std::string(sender const&)> path;
        char const*                               reason;
    } const cases[] = {
        {[](sender const& s) { return s.msg_path + ".not"; }, "no such file"},
        {[](sender const& s) { return s.msg_path + "/file"; }, "a path through a file"},
        {[](sender const& s) { return s.msg_path.substr(0, s.msg_path.rfind('/')); },
         "a directory"},
        {[](sender const&) { return std::string(); }, "no path"},
    };
    for (auto const& c : cases) {
        local_server server(helo + hangs_up);
        sender       s(usual_message, settings_text(server.port(), 0));
        s.msg_path = c.path(s);
        clear_traces();
        EXPECT_EQ(s.send(), 1005) << c.reason;
        EXPECT_EQ(s.result_text, "250 mail.test\r\n") << c.reason;
        EXPECT_EQ(trouble_traces(), (strings{"error:ifstream(%s)", "error:send_message"}))
            << c.reason;
        EXPECT_EQ(server.heard(), server.expected()) << c.reason << ": " << server.problem();
    }
}

TEST_F(Delivery, TracesItsFilesFirst)
{
    sender s(usual_message, "");
    s.send();
    strings const all = traces();
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[0], "msg_fullpath = %s");
    EXPECT_EQ(all[1], "conf_fullpath = %s");
}

TEST_F(Delivery, TracesItsWay)
{
    struct {
        changes     settings;
        std::string transcript;
        std::string pop_transcript;
        strings     marks;
        char const* reason;
    } const cases[] = {
        {{}, helo + delivery, "", {}, "a simple delivery"},
        {{{"smtp_auth", "yes"}},
         ehlo("AUTH PLAIN") + plain_login + delivery,
         "",
         {"smtp_ehlo user:%s passwd:%s"},
         "authentication"},
        {{{"pop_before_smtp", "yes"}},
         helo + delivery,
         pop_login + pop_goodbye,
         {"pop_before_smtp user:%s passwd:%s"},
         "POP before SMTP"},
        {{},
         helo + mail + "C: rcpt to: <x@b.test>\nS: 550 no\n" + hangs_up,
         "",
         {"smtp_rcptto"},
         "a recipient refused"},
    };
    strings const known_marks = {"smtp_ehlo user:%s passwd:%s", "pop_before_smtp user:%s passwd:%s",
                                 "smtp_rcptto"};
    for (auto const& c : cases) {
        local_server server(c.transcript);
        local_server pop_server(c.pop_transcript);
        sender       s(usual_message, settings_text(server.port(), pop_server.port(), c.settings));
        clear_traces();
        s.send();
        strings marks;
        for (std::string const& text : traces()) {
            if (std::count(known_marks.begin(), known_marks.end(), text) != 0) {
                marks.push_back(text);
            }
        }
        EXPECT_EQ(marks, c.marks) << c.reason;
        EXPECT_TRUE(server.ok()) << server.problem();
    }
}

TEST_F(Delivery, ReadsItsSettingsAfreshForEachMessage)
{
    local_server first(helo + delivery);
    local_server second(helo + delivery);
    sender       s(usual_message, settings_text(first.port(), 0));
    EXPECT_EQ(s.send(), 0);
    write_file(s.conf_path, settings_text(second.port(), 0));
    EXPECT_EQ(s.send(), 0);
    EXPECT_TRUE(first.ok()) << first.problem();
    EXPECT_TRUE(second.ok()) << second.problem();
}

// ---- what can go wrong at every reply of a delivery

// A conversation, and what comes out when it ends with the reply of that number.
struct step {
    char const* name;
    std::string heard;  // what the client says before the reply
    std::string reply;
    int         result;
};

std::vector<step> const helo_steps = {
    {"greeting", "", "220 ready", 1001},
    {"helo", "C: helo {host}", "250 hello", 1003},
    {"mail", "C: mail from: <reply@a.test>", "250 sender ok", 1005},
    {"rcpt", "C: rcpt to: <x@b.test>", "250 recipient ok", 1005},
    {"data", "C: data", "354 go on", 1005},
    {"text", "C: (data)", "250 queued", 1005},
    {"quit", "C: quit", "221 bye", 1006},
};

std::vector<step> const auth_steps = {
    {"greeting", "", "220 ready", 1001},
    {"ehlo", "C: ehlo {host}", "250 AUTH LOGIN", 1004},
    {"auth", "C: AUTH LOGIN", "334 VXNlcjo=", 1004},
    {"user", "C64: joe", "334 UGFzczo=", 1004},
    {"password", "C64: secret", "235 welcome", 1004},
    {"mail", "C: mail from: <reply@a.test>", "250 sender ok", 1005},
    {"rcpt", "C: rcpt to: <x@b.test>", "250 recipient ok", 1005},
    {"data", "C: data", "354 go on", 1005},
    {"text", "C: (data)", "250 queued", 1005},
    {"quit", "C: quit", "221 bye", 1006},
};

struct route {
    std::vector<step> const& steps;
    changes                  settings;
};

route const routes[] = {
    {helo_steps, {}},
    {auth_steps, {{"smtp_auth", "yes"}}},
};

// The conversation up to and without that reply.
std::string up_to(std::vector<step> const& steps, std::size_t end)
{
    std::string transcript;
    for (std::size_t i = 0; i <= end && i < steps.size(); ++i) {
        transcript += steps[i].heard + "\n";
        if (i < end) {
            transcript += "S: " + steps[i].reply + "\n";
        }
    }
    return transcript;
}

TEST_F(Delivery, FailsAtEveryReplyThatDoesNotCome)
{
    struct {
        char const* instead;
        char const* kept;  // of the reply, as result text
        char const* reason;
    } const cases[] = {
        {"S: (closes)", "", "the server closes"},
        {"S: (resets)", "", "the server breaks the connection"},
        {"S: (half-closes)\nC: (closes)", "", "the server ends the stream"},
        {"S- 250 235 354 334 221 220\nS: (closes)", "", "the server closes within a line"},
        {"S: 250-a\nS: 250\nS: (closes)", "250-a\r\n250\r\n",
         "the server closes after a bare code"},
        {"S: 250-a\nS- 2\nS: (resets)", "250-a\r\n",
         "the server breaks the connection within the second line"},
    };
    for (route const& r : routes) {
        for (std::size_t i = 0; i < r.steps.size(); ++i) {
            for (auto const& c : cases) {
                SCOPED_TRACE(std::string(r.steps[i].name) + ": " + c.reason);
                int const descriptors = open_descriptors();
                {
                    local_server server(up_to(r.steps, i) + c.instead);
                    sender       s(usual_message, settings_text(server.port(), 0, r.settings));
                    EXPECT_EQ(s.send(), r.steps[i].result);
                    EXPECT_EQ(s.result_text, i == 0 ? "what was there before" : c.kept);
                    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
                }
                EXPECT_EQ(open_descriptors(), descriptors);
            }
        }
    }
}

TEST_F(Delivery, FailsAtEveryReplyThatRefuses)
{
    for (route const& r : routes) {
        for (std::size_t i = 0; i < r.steps.size(); ++i) {
            for (char const* const refusal : {"421 closing", "504 no", "599 5.0.0 \xE3\x81\x82"}) {
                SCOPED_TRACE(std::string(r.steps[i].name) + ": " + refusal);
                int const descriptors = open_descriptors();
                {
                    local_server server(up_to(r.steps, i) + "S: 111-x\nS: " + refusal +
                                        "\nC: (closes)");
                    sender       s(usual_message, settings_text(server.port(), 0, r.settings));
                    EXPECT_EQ(s.send(), r.steps[i].result);
                    EXPECT_EQ(s.result_text, i == 0 ? std::string("what was there before")
                                                    : "111-x\r\n" + std::string(refusal) + "\r\n");
                    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
                }
                EXPECT_EQ(open_descriptors(), descriptors);
            }
        }
    }
}

TEST_F(Delivery, TakesTwoRepliesAtOnceAtEveryStep)
{
    for (route const& r : routes) {
        for (std::size_t i = 0; i + 1 < r.steps.size(); ++i) {
            SCOPED_TRACE(r.steps[i].name);
            std::string transcript = up_to(r.steps, i) + "S+ " + r.steps[i].reply +
                                     "\nS: " + r.steps[i + 1].reply + "\n" + r.steps[i + 1].heard +
                                     "\n";
            for (std::size_t k = i + 2; k < r.steps.size(); ++k) {
                transcript += r.steps[k].heard + "\nS: " + r.steps[k].reply + "\n";
            }
            local_server server(transcript);
            sender       s(usual_message, settings_text(server.port(), 0, r.settings));
            EXPECT_EQ(s.send(), 0);
            EXPECT_EQ(s.result_text, "221 bye\r\n");
            EXPECT_EQ(server.heard(), server.expected()) << server.problem();
        }
    }
}

TEST_F(Delivery, GivesUpWhereTheServerFallsSilent)
{
    for (route const& r : routes) {
        for (std::size_t i = 0; i < r.steps.size(); ++i) {
            SCOPED_TRACE(r.steps[i].name);
            reset_waits(true);
            int const descriptors = open_descriptors();
            {
                std::vector<std::string> replies;
                for (std::size_t k = 0; k < i; ++k) {
                    replies.push_back(r.steps[k].reply + "\r\n");
                }
                recording_server server(replies, [] { reset_waits(false); });
                sender           s(usual_message, settings_text(server.port(), 0, r.settings));
                EXPECT_EQ(s.send(), r.steps[i].result);
                EXPECT_EQ(s.result_text, i == 0 ? "what was there before" : "");
                EXPECT_EQ(server.bytes().find("(broken)"), std::string::npos);
            }
            std::vector<int> const waited = waits().readable_waits;
            // Those until the server had heard the command are not among them.
            EXPECT_GT(waited.size(), 0U);
            EXPECT_LE(waited.size(), 3001U);
            EXPECT_EQ(std::count(waited.begin(), waited.end(), 5000),
                      static_cast<std::ptrdiff_t>(waited.size()));
            EXPECT_EQ(open_descriptors(), descriptors);
        }
    }
}

TEST_F(Delivery, FailsInOrderWhenMemoryRunsOut)
{
    std::string const stored = encrypted("secret");
    // Without memory a setting is not read, a password not decrypted, a digest not made; a subject
    // becomes empty, and the message goes all the same.
    std::vector<int> results;
    for (int good = 0; good < 100; ++good) {
        SCOPED_TRACE(good);
        mailserver::options options;
        options.users               = {{"joe", "secret"}};
        options.smtp_mechanisms     = {"CRAM-MD5"};
        options.smtp_login_required = true;
        mail_server server(options);
        sender      s("encoding: ISO-2022-JP\nto: x@b.test\nsubject: a\n.b\n",
                      settings_text(
                          server.smtp_port(), server.pop_port(),
                          {{"smtp_auth", "yes"}, {"passwd_raw", not_there}, {"smtp_passwd", stored}}));
        int const   buffers = live_heap_buffers();
        fail_heap_after(good);
        results.push_back(s.send());
        fail_heap_after(-1);
        EXPECT_EQ(live_heap_buffers(), buffers);
    }
    EXPECT_EQ(results.front(), 1000);
    EXPECT_EQ(results.back(), 0) << "as much memory as it takes";
    results.erase(std::unique(results.begin(), results.end()), results.end());
    for (int const result : results) {
        EXPECT_TRUE(result == 0 || result == 1000 || result == 1004 || result == 1005) << result;
    }
    EXPECT_EQ(std::count(results.begin(), results.end(), 1004), 1);
}

// ---- the text on the wire

TEST_F(Delivery, SendsAnIso2022JpBodyWithItsDotsDoubled)
{
    local_server server(helo + mail + rcpt + R"(
        C: data
        S: 354 go on
        C: Date: {any}
        C: From: Printer <printer@a.test>
        C: To: x@b.test
        C: Subject: =?ISO-2022-JP?B?GyRCJCIbKEI=?=
        C: Reply-To: reply@a.test
        C: Mime-Version: 1.0
        C: Content-Type: text/plain; charset="ISO-2022-JP"
        C: Content-Transfer-Encoding: 7bit
        C:
        C: ..starts with a dot
        C: a . in the middle
        C: ..
        C: ...two
        C:
        C: \x1b$B$"\x1b(B
        C: ..
        C: .
        S: 250 queued
    )" + goodbye);
    sender       s("encoding: ISO-2022-JP\n"
                         "from: Printer <printer@a.test>\n"
                         "to: x@b.test\n"
                         "subject: \x1b$B$\"\x1b(B\n"
                         "replyto: reply@a.test\n"
                         ".starts with a dot\n"
                         "a . in the middle\n"
                         ".\n"
                         "..two\n"
                         "\n"
                         "\x1b$B$\"\x1b(B\n"
                         ".",
                   settings_text(server.port(), 0));
    EXPECT_EQ(s.send(), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Delivery, SendsThePlainSubjectWhenToldTo)
{
    local_server server(helo + mail + rcpt + data + goodbye);
    sender s(usual_message, settings_text(server.port(), 0, {{"subject_use_encoding", "no"}}));
    EXPECT_EQ(s.send(), 0);
    EXPECT_NE(server.data().find("\r\nSubject: hello\r\n"), std::string::npos) << server.data();
}

TEST_F(Delivery, PutsExactlyTheseBytesOnTheWire)
{
    ::setenv("TZ", "JST-9", 1);
    set_wall_clock(1000000000, 0);
    set_zone_offset(9 * 3600);
    recording_server server({"220 ready\r\n", "250 hello\r\n", "250 ok\r\n", "250 ok\r\n",
                             "250 ok\r\n", "354 go on\r\n", "250 queued\r\n", "221 bye\r\n"});
    sender           s("encoding: UTF-8\n"
                                 "from: Printer <printer@a.test>\n"
                                 "to: x@b.test\n"
                                 "cc: y@c.test\n"
                                 "subject: hello\n"
                                 "replyto: reply@a.test\n"
                                 "messageid: <1@a.test>\n"
                                 "the paper is empty\n"
                                 ".",
                       settings_text(server.port(), 0));
    EXPECT_EQ(s.send(), 0);
    EXPECT_EQ(s.result_text, "221 bye\r\n");
    EXPECT_EQ(server.bytes(), "helo [192.0.2.10]\r\n"
                              "mail from: <reply@a.test>\r\n"
                              "rcpt to: <x@b.test>\r\n"
                              "rcpt to: <y@c.test>\r\n"
                              "data\r\n"
                              "Date: Sun, 09 Sep 2001 10:46:40 +0900\r\n"
                              "From: Printer <printer@a.test>\r\n"
                              "To: x@b.test\r\n"
                              "Cc: y@c.test\r\n"
                              "Subject: =?UTF-8?B?aGVsbG8=?=\r\n"
                              "Reply-To: reply@a.test\r\n"
                              "Mime-Version: 1.0\r\n"
                              "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
                              "Content-Transfer-Encoding: base64\r\n"
                              "Message-Id: <1@a.test>\r\n"
                              "\r\n"
                              "dGhlIHBhcGVyIGlzIGVtcHR5DQou"
                              "\r\n.\r\n"
                              "quit\r\n")
        << "and the end of the stream, not a broken connection";
}

TEST_F(Delivery, EndsTheConnectionAfterQuitBeforeTheServerDoes)
{
    // This server closes only when the client has; its record would say so if that never came.
    recording_server server({"220 ready\r\n", "250 hello\r\n", "250 ok\r\n", "250 ok\r\n",
                             "354 go on\r\n", "250 queued\r\n", "221 bye\r\n"});
    sender           s(usual_message, settings_text(server.port(), 0));
    EXPECT_EQ(s.send(), 0);
    std::string const& heard = server.bytes();
    ASSERT_GT(heard.size(), 6U);
    EXPECT_EQ(heard.substr(heard.size() - 6), "quit\r\n");
}

TEST_F(Delivery, CarriesABigMessageUnharmed)
{
    std::string body;
    for (int i = 0; i < 100000; ++i) {
        body += "line " + std::to_string(i) + "\n";
    }
    body += "end";
    mail_server server;
    sender      s("to: x@b.test\nsubject: big\nreplyto: r@a.test\n" + body,
                  settings_text(server.smtp_port(), 0));
    ASSERT_EQ(s.send(), 0);
    ASSERT_EQ(server.mails().size(), 1U);

    // As RFC 2045 lets a reader do it: without the line ends.
    std::string text = server.mails()[0].text;
    text.erase(0, text.find("\r\n\r\n") + 4);
    text.erase(
        std::remove_if(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }),
        text.end());
    std::string wanted;
    for (char const c : body) {
        wanted += c == '\n' ? "\r\n" : std::string(1, c);
    }
    int                 size = 0;
    base64_buffer const decoded(base64_decode_ex(
        reinterpret_cast<unsigned char const*>(text.data()), static_cast<int>(text.size()), &size));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(std::string(reinterpret_cast<char const*>(decoded.get()),
                            static_cast<std::size_t>(size)) == wanted);
}

TEST_F(Delivery, SurvivesAServerThatBreaksTheConnectionWithinABigText)
{
    listening_socket door;
    std::thread      server([&] {
        unique_fd client = door.accept();
        send_all(client.get(), "220 a\r\n250 b\r\n250 c\r\n250 d\r\n354 e\r\n");
        // Once the text has begun: it is too big for all buffers on the way.
        std::vector<char> heard(100001);
        EXPECT_EQ(sock_read(client.get(), heard.data(), 100000), 100000);
        break_connection(client);
    });
    sender           s("to: x@b.test\nreplyto: r@a.test\n" + std::string(24000000, 'x'),
                       settings_text(door.port(), 0));
    EXPECT_EQ(s.send(), 1005);
    EXPECT_EQ(s.result_text, "354 e\r\n") << "the last reply, since the text has none";
    server.join();
    strings const trouble = trouble_traces();
    ASSERT_GE(trouble.size(), 3U);
    EXPECT_EQ(strings(trouble.begin(), trouble.begin() + 3),
              (strings{"error:_smtp_write_data", "error:_send_message", "error:send_message"}));
}

// ---- several at once

TEST_F(Delivery, GoesOnInSeveralThreadsAtOnce)
{
    constexpr int threads  = 6;
    constexpr int messages = 8;

    mailserver::options options;
    options.users               = {{"joe", "secret"}};
    options.smtp_login_required = true;
    mail_server server(options);

    std::string const        stored       = encrypted("secret");
    char const* const        mechanisms[] = {"cram-md5", "login", "plain"};
    std::vector<std::thread> senders;
    std::atomic<int>         sent{0};
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&, t] {
            sender s(message_text("x" + std::to_string(t) + "@b.test"),
                     settings_text(server.smtp_port(), server.pop_port(),
                                   {{"pop_before_smtp", t % 2 == 0 ? "yes" : "no"},
                                    {"pop_account", "joe"},
                                    {"pop_passwd", stored},
                                    {"pop_auth_type", "apop"},
                                    {"smtp_auth", "yes"},
                                    {"smtp_auth_type", mechanisms[t % 3]},
                                    {"smtp_passwd", stored},
                                    {"passwd_raw", "no"}}));
            for (int m = 0; m < messages; ++m) {
                sent += s.send() == 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& each : senders) {
        each.join();
    }
    EXPECT_EQ(sent, threads * messages);

    std::vector<int> copies(threads);
    for (mailserver::mail const& m : server.mails()) {
        EXPECT_EQ(m.user, "joe");
        EXPECT_EQ(m.sender, "reply@a.test");
        ASSERT_EQ(m.recipients.size(), 1U);
        ++copies[static_cast<std::size_t>(m.recipients[0][1] - '0')];
    }
    EXPECT_EQ(copies, std::vector<int>(threads, messages));
}

// ---- the sending system as a whole

TEST_F(Delivery, NeedsNoSettingUp)
{
    isendw_sys system;
    isend_sys& as_interface = system;
    EXPECT_EQ(as_interface.init(), 0);
    EXPECT_EQ(as_interface.end(), 0);
    EXPECT_EQ(traces(), strings{});
}

}  // namespace

}  // namespace zelieml::test
