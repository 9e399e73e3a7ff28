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
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "libbase64/libbase64.h"
#include "libcryptw/libcryptw.h"
#include "libsendw/sock.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
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

constexpr char pop_password[] = "pop secret";

// The usual settings: no login to POP3 and no authentication, though the keys of both are set.
changes usual_settings(std::uint16_t smtp_port, std::uint16_t pop_port)
{
    return {
        {"pop_before_smtp", "no"},
        {"pop_server", "127.0.0.1"},
        {"pop_port", std::to_string(pop_port)},
        {"pop_account", "anna"},
        {"pop_passwd", pop_password},
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

// The result text of a send that gets no reply.
constexpr char untouched[] = "what was there before";

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
    std::string result_text = untouched;
};

// ---- conversations

// The usual message with the usual settings, taken by the SMTP server, unless it says otherwise.
struct send_case : named_case {
    using named_case::named_case;

    send_case& with(std::string const& key, std::string const& value)
    {
        settings.push_back({key, value});
        return *this;
    }
    send_case& without(std::string const& key)
    {
        settings.push_back({key, not_there});
        return *this;
    }
    send_case& message(std::string const& file)
    {
        message_file = file;
        return *this;
    }
    send_case& smtp(std::string const& transcript)
    {
        smtp_transcript = transcript;
        return *this;
    }
    // A login to POP3 comes first.
    send_case& pop(std::string const& transcript)
    {
        pop_transcript = transcript;
        return with("pop_before_smtp", "yes");
    }
    send_case& ends(int number, std::string const& text)
    {
        result      = number;
        result_text = text;
        return *this;
    }
    // Ends well, with this result text.
    send_case& says(std::string const& text) { return ends(0, text); }
    send_case& trouble(strings const& traces)
    {
        traced = traces;
        return *this;
    }
    // The sleep after the login to POP3.
    send_case& sleeps(std::int64_t us)
    {
        slept = {us};
        return *this;
    }

    changes                   settings;
    std::string               message_file    = usual_message;
    std::string               smtp_transcript = helo + delivery;
    std::string               pop_transcript;
    int                       result      = 0;
    std::string               result_text = "221 bye\r\n";
    strings                   traced;
    std::vector<std::int64_t> slept;
};

class Sending : public on_a_clean_machine_with<send_case>
{
};

TEST_P(Sending, EndsAsTheTranscriptSays)
{
    send_case const& c = GetParam();
    local_server     server(c.smtp_transcript);
    local_server     pop_server(c.pop_transcript);
    sender           s(c.message_file, settings_text(server.port(), pop_server.port(), c.settings));

    EXPECT_EQ(s.send(), c.result);
    EXPECT_EQ(s.result_text, c.result_text);
    EXPECT_EQ(trouble_traces(), c.traced);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
    EXPECT_EQ(waits().sleeps, c.slept);
    EXPECT_EQ(read_file(s.msg_path), c.message_file) << "the message stays as it was";
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
        send_case("a message is sent"),
        send_case("every reply has several lines")
            .smtp(R"(
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
     )")
            .says("221-good\r\n221 bye\r\n"),
        send_case("every reply is trickled").smtp("S: (trickles 1)\n" + helo + delivery),
        send_case("all replies come at once").smtp(R"(
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
     )"),
        send_case("data answered with 250")
            .smtp(helo + mail_from() + rcpt_to() + answered("data", "250 go on") +
                  "C: (data)\nS: 250 queued\n" + goodbye),
        send_case("an empty reply-to is the null reverse path")
            .message(message_text("x@b.test", "", ""))
            .smtp(helo + answered("mail from: <>", "250 ok") + rcpt_to() + text_sent + goodbye),
        send_case("a message without a reply-to line has the null reverse path")
            .message("from: printer@a.test\nto: x@b.test\nsubject: hello\nbody")
            .smtp(helo + answered("mail from: <>", "250 ok") + rcpt_to() + text_sent + goodbye),
        send_case("the sender is the reply-to address and not from")
            .message(message_text("x@b.test", "", "Anna <anna@a.test>"))
            .smtp(helo + refused_at("mail from: <Anna <anna@a.test>>", "501 syntax"))
            .ends(1005, "501 syntax\r\n")
            .trouble(not_sent("error:smtp mail from")),
        send_case("several recipients")
            .message(message_text("x@b.test, y@c.test", "z@d.test"))
            .smtp(helo + mail_from() + rcpt_to() + rcpt_to("y@c.test") + rcpt_to("z@d.test") +
                  text_sent + goodbye),
        send_case("a recipient in to and in cc gets one copy, in the first place")
            .message(message_text("a@b.test,b@b.test", "a@b.test"))
            .smtp(helo + mail_from() + rcpt_to("a@b.test") + rcpt_to("b@b.test") + text_sent +
                  goodbye),
        send_case("a recipient twice in to, with blanks that differ")
            .message(message_text("x@b.test, y@c.test , x@b.test", "y @ c.test"))
            .smtp(helo + mail_from() + rcpt_to() + rcpt_to("y@c.test") + text_sent + goodbye),
        send_case("recipients that differ in case are two")
            .message(message_text("x@b.test,X@b.test"))
            .smtp(helo + mail_from() + rcpt_to() + rcpt_to("X@b.test") + text_sent + goodbye),
        send_case("empty entries of to are one recipient without a name")
            .message(message_text("x@b.test,,"))
            .smtp(helo + mail_from() + rcpt_to() + refused_at("rcpt to: <>", "501 whom?"))
            .ends(1005, "501 whom?\r\n")
            .trouble({"error:can not find code (%s)", "error:smtp rcpt to", "error:_send_message",
                      "error:send_message"}),
        send_case("no recipient at all")
            .message(message_text(""))
            .smtp(helo + mail_from() + hangs_up)
            .ends(1005, "250 sender ok\r\n")
            .trouble({"error:no address", "error:smtpmsg_split_address", "error:_send_message",
                      "error:send_message"}),
        send_case("no to, but cc: the entry before the comma is empty")
            .message(message_text("", "z@d.test"))
            .smtp(helo + mail_from() + refused_at("rcpt to: <>", "501 whom?"))
            .ends(1005, "501 whom?\r\n")
            .trouble(not_sent("error:smtp rcpt to")),
        send_case("the first of two recipients refused")
            .message(message_text("x@b.test,y@c.test"))
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "550 5.1.1 no such user"))
            .ends(1005, "550 5.1.1 no such user\r\n")
            .trouble(not_sent("error:smtp rcpt to")),
        send_case("the second of two recipients refused")
            .message(message_text("x@b.test", "y@c.test"))
            .smtp(helo + mail_from() + rcpt_to() +
                  refused_at("rcpt to: <y@c.test>", "452 too many"))
            .ends(1005, "452 too many\r\n")
            .trouble(not_sent("error:smtp rcpt to")),
        send_case("a recipient who has moved")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "251 forwarded"))
            .ends(1005, "251 forwarded\r\n")
            .trouble(not_sent("error:smtp rcpt to")),
        send_case("a recipient refused in words that hold the code")
            .smtp(helo + mail_from() +
                  answered("rcpt to: <x@b.test>", "550 5.1.1 user 250 unknown") + text_sent +
                  goodbye),
        send_case("a sender whose line is too long")
            .message(message_text("x@b.test", "", long_address + "xx"))
            .smtp(helo + hangs_up)
            .ends(1005, "250 mail.test\r\n")
            .trouble({"error:smtp mail from", "error:_send_message", "error:send_message"}),
        send_case("a recipient whose line is too long")
            .message(message_text(long_address + "xxxx"))
            .smtp(helo + mail_from() + hangs_up)
            .ends(1005, "250 sender ok\r\n")
            .trouble({"error:smtp rcpt to", "error:_send_message", "error:send_message"}),
        send_case("addresses whose lines are as long as can be")
            .message(message_text(long_address + "xxx", "", long_address + "x"))
            .smtp(helo + mail_from(long_address + "x") + rcpt_to(long_address + "xxx") + text_sent +
                  goodbye),
    };
}

INSTANTIATE_TEST_SUITE_P(Envelope, Sending, testing::ValuesIn(envelope_cases()),
                         case_name<send_case>);

std::vector<send_case> refusal_cases()
{
    return {
        send_case("there is no service")
            .smtp("S: 554 no service\n" + hangs_up)
            .ends(1001, untouched)
            .trouble({"error:can not find code (%s)", "error:smtp start session",
                      "error:smtp_start_sesion"}),
        send_case("the greeting is lost")
            .smtp("S- 220 mail.te\nS: (closes)\n")
            .ends(1001, untouched)
            .trouble({"error:read_multiline_reply", "error:smtp start session",
                      "error:smtp_start_sesion"}),
        send_case("helo refused")
            .smtp(greeted + "C: helo {host}\nS: 550-you are\nS: 550 on a list\n" + hangs_up)
            .ends(1003, "550-you are\r\n550 on a list\r\n")
            .trouble({"error:can not find code (%s)", "error:smtp helo", "error:smtp_helo"}),
        send_case("ehlo refused")
            .with("smtp_auth", "yes")
            .smtp(greeted + refused_at("ehlo {host}", "502 helo, please"))
            .ends(1004, "502 helo, please\r\n")
            .trouble({"error:not 250", "error:smtp_ehlo"}),
        send_case("the sender refused")
            .smtp(helo + refused_at("mail from: <reply@a.test>", "550 5.7.1 not you"))
            .ends(1005, "550 5.7.1 not you\r\n")
            .trouble(not_sent("error:smtp mail from")),
        send_case("the recipient refused")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "550 5.1.1 no such user"))
            .ends(1005, "550 5.1.1 no such user\r\n")
            .trouble(not_sent("error:smtp rcpt to")),
        send_case("data refused")
            .smtp(helo + mail_from() + rcpt_to() + refused_at("data", "451 later"))
            .ends(1005, "451 later\r\n")
            .trouble(
                {"error:can not find code 354 250", "error:_send_message", "error:send_message"}),
        send_case("the text refused")
            .smtp(helo + mail_from() + rcpt_to() + answered("data", "354 go on") +
                  "C: (data)\nS: 552 too much\n" + hangs_up)
            .ends(1005, "552 too much\r\n")
            .trouble(not_sent("error:smtp end data")),
        send_case("quit refused although the message was accepted")
            .smtp(helo + mail_from() + rcpt_to() + text_sent + refused_at("quit", "250 stay"))
            .ends(1006, "250 stay\r\n")
            .trouble({"error:can not find code (%s)", "error:smtp quit", "error:smtp_quit"}),
        send_case("quit answered by closing")
            .smtp(helo + mail_from() + rcpt_to() + text_sent + lost_at("quit"))
            .ends(1006, "")
            .trouble({"error:read_multiline_reply", "error:smtp quit", "error:smtp_quit"}),
        send_case("a NUL in the last reply cuts the result text")
            .smtp(helo + refused_at("mail from: <reply@a.test>", "550 not\\0 you"))
            .ends(1005, "550 not")
            .trouble(not_sent("error:smtp mail from")),
        send_case("a server that goes on talking is heard to its end")
            .smtp(helo + mail_from() + rcpt_to() + text_sent + goodbye +
                  "S: (delays 10)\nS: 421 oh\n")
            .trouble({"error:unexpected %d bytes received."}),
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
        send_case("cram-md5, the example of RFC 2195")
            .with("smtp_auth", "yes")
            .with("smtp_account", "tim")
            .with("smtp_passwd", "tanstaaftanstaaf")
            .smtp(cram_md5_login + delivery),
        send_case("cram-md5 by setting")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "cram-md5")
            .with("smtp_account", "tim")
            .with("smtp_passwd", "tanstaaftanstaaf")
            .smtp(cram_md5_login + delivery),
        send_case("login by the server's offer")
            .with("smtp_auth", "yes")
            .smtp(ehlo("AUTH PLAIN LOGIN") + login_login + delivery),
        send_case("login by setting, whatever the server offers")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "login")
            .smtp(ehlo("AUTH CRAM-MD5") + login_login + delivery),
        send_case("plain by the server's offer")
            .with("smtp_auth", "yes")
            .smtp(ehlo("AUTH PLAIN") + plain_login + delivery),
        send_case("plain by setting")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "plain")
            .smtp(ehlo("AUTH CRAM-MD5 LOGIN") + plain_login + delivery),
        send_case("plain for want of an offer")
            .with("smtp_auth", "yes")
            .smtp(ehlo("8BITMIME") + plain_login + delivery),
        send_case("plain by a setting in upper case")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "CRAM-MD5")
            .smtp(ehlo("AUTH CRAM-MD5") + plain_login + delivery),
        send_case("plain by an empty setting")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "")
            .smtp(ehlo("AUTH CRAM-MD5") + plain_login + delivery),
        send_case("plain and a caret in the password")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "plain")
            .with("smtp_passwd", "se^cret")
            .smtp(ehlo("AUTH PLAIN") +
                  refused_at("AUTH PLAIN {base64:\\0joe\\0se\\0cret}", "535 wrong"))
            .ends(1004, "535 wrong\r\n")
            .trouble({"error:can not find code (%s)", "error:not 235", "error:smtp_ehlo"}),
        send_case("a password with blanks at its ends keeps the last one")
            .with("smtp_auth", "yes")
            .with("smtp_passwd", "  sec ret ")
            .smtp(ehlo("AUTH PLAIN") +
                  answered("AUTH PLAIN {base64:\\0joe\\0sec ret }", "235 welcome") + delivery),
        send_case("cram-md5 refused, and nothing else is tried")
            .with("smtp_auth", "yes")
            .smtp(ehlo("AUTH CRAM-MD5 LOGIN PLAIN") + refused_at("AUTH CRAM-MD5", "504 not now"))
            .ends(1004, "504 not now\r\n")
            .trouble({"error:not 334", "error:smtp_ehlo"}),
        send_case("login refused")
            .with("smtp_auth", "yes")
            .smtp(ehlo("AUTH LOGIN") + answered("AUTH LOGIN", "334 a") +
                  "C64: joe\nS: 334 b\nC64: secret\nS: 535 wrong\n" + hangs_up)
            .ends(1004, "535 wrong\r\n")
            .trouble({"error:can not find code (%s)", "error:auth_login_data %s for %s",
                      "error:smtp_ehlo"}),
        send_case("credentials whose line is too long")
            .with("smtp_auth", "yes")
            .with("smtp_auth_type", "plain")
            .with("smtp_account", std::string(60, 'u'))
            .with("smtp_passwd", std::string(700, 'p'))
            .smtp(ehlo("AUTH PLAIN") + hangs_up)
            .ends(1004, "250-mail.test\r\n250 AUTH PLAIN\r\n")
            .trouble({"error:not 235", "error:smtp_ehlo"}),
        send_case("smtp_auth in upper case means helo").with("smtp_auth", "YES"),
        send_case("smtp_auth of something else means helo").with("smtp_auth", "yes please"),
    };
}

INSTANTIATE_TEST_SUITE_P(Authentication, Sending, testing::ValuesIn(auth_cases()),
                         case_name<send_case>);

// ---- missing settings

char const* const missing = "error:conf_get_string %s";

std::vector<send_case> missing_cases()
{
    return {
        send_case("pop_before_smtp missing is no").without("pop_before_smtp").trouble({missing}),
        send_case("smtp_server missing")
            .without("smtp_server")
            .smtp(nobody_comes)
            .ends(1000, untouched)
            .trouble({missing, "error:get_smtp_server_addr"}),
        send_case("smtp_port missing")
            .without("smtp_port")
            .smtp(nobody_comes)
            .ends(1000, untouched)
            .trouble({missing, "error:get_smtp_server_addr"}),
        send_case("smtp_auth missing: the line of smtp_auth_type is found in its place")
            .without("smtp_auth"),
        send_case("smtp_auth and smtp_auth_type missing is no")
            .without("smtp_auth")
            .without("smtp_auth_type")
            .trouble({missing}),
        send_case("smtp_auth missing, and smtp_auth_type says yes")
            .without("smtp_auth")
            .with("smtp_auth_type", "yes")
            .smtp(ehlo("AUTH LOGIN") + plain_login + delivery),
        send_case("smtp_auth_type missing is auto")
            .with("smtp_auth", "yes")
            .without("smtp_auth_type")
            .smtp(ehlo("AUTH LOGIN") + login_login + delivery)
            .trouble({missing}),
        send_case("smtp_account missing")
            .with("smtp_auth", "yes")
            .without("smtp_account")
            .smtp(greeted + hangs_up)
            .ends(1004, "220 mail.test ready\r\n")
            .trouble({missing, "error:get_smtp_userinfo", "error:smtp_ehlo"}),
        send_case("smtp_passwd missing")
            .with("smtp_auth", "yes")
            .without("smtp_passwd")
            .smtp(greeted + hangs_up)
            .ends(1004, "220 mail.test ready\r\n")
            .trouble({missing, "error:get_smtp_userinfo", "error:smtp_ehlo"}),
        send_case("smtp_account missing where nobody asks for it")
            .without("smtp_account")
            .without("smtp_passwd")
            .without("passwd_raw"),
        send_case("subject_use_encoding missing is yes")
            .without("subject_use_encoding")
            .trouble({missing}),
    };
}

INSTANTIATE_TEST_SUITE_P(Missing, Sending, testing::ValuesIn(missing_cases()),
                         case_name<send_case>);

// ---- POP before SMTP

std::string const pop_session = pop_login("anna", pop_password) + pop_goodbye;

std::vector<send_case> pop_cases()
{
    return {
        send_case("user and pass").pop(pop_session).sleeps(0),
        send_case("apop, the example of RFC 1939")
            .with("pop_auth_type", "apop")
            .with("pop_account", "mrose")
            .with("pop_passwd", "tanstaaf")
            .pop("S: +OK POP3 server ready <1896.697170952@dbc.mtview.ca.us>\n" +
                 answered("apop mrose c4c9334bac560ecc979e58001b3e22fb", "+OK in") + pop_goodbye)
            .sleeps(0),
        send_case("apop in upper case means user and pass")
            .with("pop_auth_type", "APOP")
            .pop(pop_session)
            .sleeps(0),
        send_case("the wait is handed on in milliseconds")
            .with("pop_wait_time", "1500")
            .pop(pop_session)
            .sleeps(1500000),
        send_case("a wait that is no number is none")
            .with("pop_wait_time", "a while")
            .pop(pop_session)
            .sleeps(0),
        send_case("a wait beyond all numbers is the longest")
            .with("pop_wait_time", "99999999999")
            .pop(pop_session)
            .sleeps(std::int64_t{2147483647} * 1000),
        send_case("a result of SMTP covers that of POP3")
            .pop(pop_session)
            .smtp(greeted + refused_at("helo {host}", "502 no"))
            .ends(1003, "502 no\r\n")
            .trouble({"error:can not find code (%s)", "error:smtp helo", "error:smtp_helo"})
            .sleeps(0),
        send_case("without a session of SMTP the result text is that of POP3")
            .pop(pop_session)
            .smtp("S: 554 no service\n" + hangs_up)
            .ends(1001, "+OK bye\r\n")
            .trouble({"error:can not find code (%s)", "error:smtp start session",
                      "error:smtp_start_sesion"})
            .sleeps(0),
        send_case("without an SMTP server too")
            .without("smtp_server")
            .pop(pop_session)
            .smtp(nobody_comes)
            .ends(1000, "+OK bye\r\n")
            .trouble({missing, "error:get_smtp_server_addr"})
            .sleeps(0),
        send_case("yes in upper case is no").with("pop_before_smtp", "YES"),

        send_case("the POP3 server closes instead of greeting")
            .pop("S: (closes)\n")
            .smtp(nobody_comes)
            .ends(2002, "")
            .trouble({"error:sock_readline"}),
        send_case("the user refused")
            .pop("S: +OK\n" + refused_at("user anna", "-ERR who?"))
            .smtp(nobody_comes)
            .ends(2004, "-ERR who?\r\n")
            .trouble({"error:-ERR"}),
        send_case("the password refused")
            .pop("S: +OK\n" + answered("user anna", "+OK") +
                 refused_at("pass pop secret", "-ERR wrong"))
            .smtp(nobody_comes)
            .ends(2005, "-ERR wrong\r\n")
            .trouble({"error:-ERR"}),
        send_case("apop refused")
            .with("pop_auth_type", "apop")
            .pop("S: +OK <1896.697170952@dbc.mtview.ca.us>\n" +
                 refused_at("apop anna {any}", "-ERR wrong"))
            .smtp(nobody_comes)
            .ends(2006, "-ERR wrong\r\n")
            .trouble({"error:-ERR"}),
        send_case("apop impossible")
            .with("pop_auth_type", "apop")
            .pop(pop_greeted + hangs_up)
            .smtp(nobody_comes)
            .ends(2006, "+OK ready\r\n")
            .trouble({"error:challenge spos %s"}),
        send_case("quit of POP3 unanswered")
            .pop(pop_login("anna", pop_password) + lost_at("quit"))
            .smtp(nobody_comes)
            .ends(100, "")
            .trouble({"error:sock_readline", "error: pop_quit"}),

        send_case("pop_server missing")
            .without("pop_server")
            .pop(nobody_comes)
            .smtp(nobody_comes)
            .ends(100, untouched)
            .trouble({missing, "error:get_pop_server_addr"}),
        send_case("pop_port missing")
            .without("pop_port")
            .pop(nobody_comes)
            .smtp(nobody_comes)
            .ends(100, untouched)
            .trouble({missing, "error:get_pop_server_addr"}),
        send_case("pop_account missing")
            .without("pop_account")
            .pop(nobody_comes)
            .smtp(nobody_comes)
            .ends(100, untouched)
            .trouble({missing, "error:get_smtp_userinfo"}),
        send_case("pop_passwd missing")
            .without("pop_passwd")
            .pop(nobody_comes)
            .smtp(nobody_comes)
            .ends(100, untouched)
            .trouble({missing, "error:get_smtp_userinfo"}),
        send_case("pop_passwd not decrypted")
            .with("passwd_raw", "no")
            .with("pop_passwd", "ABC")
            .pop(nobody_comes)
            .smtp(nobody_comes)
            .ends(100, untouched)
            .trouble(
                {"error:etc_hexstr2bin", "error:crypt::decrypt_passwd", "error:get_smtp_userinfo"}),
        send_case("pop_auth_type missing is user and pass")
            .without("pop_auth_type")
            .pop(pop_session)
            .trouble({missing})
            .sleeps(0),
        send_case("pop_wait_time missing is no wait")
            .without("pop_wait_time")
            .pop(pop_session)
            .trouble({missing})
            .sleeps(0),
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
    sender            s(usual_message,
                        settings_text(server.port(), pop_port.number(), {{"pop_before_smtp", "yes"}}));
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
    struct passwd_case : named_case {
        using named_case::named_case;

        passwd_case& raw(std::optional<std::string> const& value)
        {
            passwd_raw = value;
            return *this;
        }
        passwd_case& setting(std::string const& value)
        {
            passwd = value;
            return *this;
        }
        passwd_case& sent(std::string const& in_escapes)
        {
            password = in_escapes;
            return *this;
        }
        passwd_case& trouble(strings const& traces)
        {
            traced = traces;
            return *this;
        }

        std::optional<std::string> passwd_raw;
        std::string                passwd   = "secret";
        std::string                password = "secret";
        strings                    traced;
    };
    passwd_case const cases[] = {
        passwd_case("plain").raw("yes"),
        passwd_case("as written, even if it looks encrypted")
            .raw("yes")
            .setting(stored)
            .sent(stored),
        passwd_case("encrypted").raw("no").setting(stored),
        passwd_case("digits may be lower case").raw("no").setting(stored_lower),
        passwd_case("no key: encrypted")
            .raw(not_there)
            .setting(stored)
            .trouble({"warning:conf_get_string %s"}),
        passwd_case("anything but no").raw("NO"),
        passwd_case("anything but no, a blank behind it included").raw("no "),
        passwd_case("anything but no, nothing included").raw(""),
        passwd_case("anything but no, a number included").raw("0"),
    };
    for (auto const& c : cases) {
        local_server server(ehlo("AUTH PLAIN") +
                            answered("AUTH PLAIN {base64:\\0joe\\0" + c.password + "}", "235 ok") +
                            delivery);
        sender       s(usual_message, settings_text(server.port(), 0,
                                                    {{"smtp_auth", "yes"},
                                                     {"passwd_raw", c.passwd_raw},
                                                     {"smtp_passwd", c.passwd}}));
        clear_traces();
        EXPECT_EQ(s.send(), 0) << c.name;
        EXPECT_EQ(trouble_traces(), c.traced) << c.name;
        EXPECT_EQ(server.heard(), server.expected()) << c.name << ": " << server.problem();
    }
}

TEST_F(Delivery, DecryptsThePop3PasswordToo)
{
    local_server      pop_server(pop_session);
    local_server      server(helo + delivery);
    std::string const stored = encrypted(pop_password);
    sender            s(
                   usual_message,
                   settings_text(server.port(), pop_server.port(),
                                 {{"pop_before_smtp", "yes"}, {"passwd_raw", "no"}, {"pop_passwd", stored}}));
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
        EXPECT_EQ(s.result_text, untouched) << c.reason;
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
    EXPECT_EQ(s.result_text, untouched);
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

// The one test of all that a delivery traces; the others look at its failures only.
TEST_F(Delivery, TracesItsWay)
{
    auto const traced = [](std::string const& pop, std::string const& smtp,
                           changes const& settings) {
        local_server pop_server(pop);
        local_server server(smtp);
        sender       s(usual_message, settings_text(server.port(), pop_server.port(), settings));
        clear_traces();
        s.send();
        EXPECT_TRUE(server.ok()) << server.problem();
        strings all = traces_above_sockets();
        all.erase(std::remove(all.begin(), all.end(), "conf_get_string key=%s"), all.end());
        return all;
    };
    EXPECT_EQ(traced(pop_session, ehlo("AUTH PLAIN") + plain_login + delivery,
                     {{"pop_before_smtp", "yes"}, {"smtp_auth", "yes"}}),
              (strings{"msg_fullpath = %s", "conf_fullpath = %s",
                       "pop_before_smtp user:%s passwd:%s", "pop_before_smtp in", "IP:%s Port:%d",
                       "sleep start %d", "sleep end", "pop_before_smtp out %d",
                       "connect IP:%s Port:%d", "connect done.", "smtp_ehlo user:%s passwd:%s",
                       "auth_plain in", "auth_plain out", "encoding: UTF-8"}));
    EXPECT_EQ(
        traced(nobody_comes, helo + mail_from() + refused_at("rcpt to: <x@b.test>", "550 no"), {}),
        (strings{"msg_fullpath = %s", "conf_fullpath = %s", "connect IP:%s Port:%d",
                 "connect done.", "error:can not find code (%s)", "error:smtp rcpt to",
                 "smtp_rcptto", "error:_send_message", "error:send_message"}));
    EXPECT_EQ(traced(nobody_comes, "S: 554 no service\n" + hangs_up, {}),
              (strings{"msg_fullpath = %s", "conf_fullpath = %s", "connect IP:%s Port:%d",
                       "connect done.", "error:can not find code (%s)", "error:smtp start session",
                       "error:smtp_start_sesion"}));
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

TEST_F(Delivery, KeepsItsSettingsDuringAMessage)
{
    listening_socket pop_door;
    local_server     server(helo + delivery);
    sender           s(usual_message,
                       settings_text(server.port(), pop_door.port(), {{"pop_before_smtp", "yes"}}));
    std::thread      pop_server([&] {
        unique_fd client = pop_door.accept();
        write_file(s.conf_path, "smtp_server = 127.0.0.1\r\nsmtp_port = 1\r\nsmtp_auth = yes\r\n");
        send_all(client.get(), "+OK a\r\n+OK b\r\n+OK c\r\n+OK d\r\n");
        char rest[100];
        while (::recv(client.get(), rest, sizeof rest, 0) > 0) {
        }
    });
    EXPECT_EQ(s.send(), 0);
    pop_server.join();
    EXPECT_TRUE(server.ok()) << server.problem();
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
                    EXPECT_EQ(s.result_text, i == 0 ? untouched : c.kept);
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
                    EXPECT_EQ(s.result_text, i == 0 ? std::string(untouched)
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
                EXPECT_EQ(s.result_text, i == 0 ? untouched : "");
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
    // becomes empty, and the message is sent nevertheless.
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

// ---- the bytes that are sent

TEST_F(Delivery, SendsAnIso2022JpBodyWithItsDotsDoubled)
{
    local_server server(helo + mail_from() + rcpt_to() + R"(
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
    local_server server(helo + delivery);
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
    // This server closes only after the client has; if the client never did, bytes() would end with
    // "(left open)".
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

TEST_F(Delivery, CarriesABigIso2022JpMessageUnharmed)
{
    std::string body;
    std::string wanted;
    for (int i = 0; i < 100000; ++i) {
        std::string const line = (i % 10 == 0 ? "." : "line ") + std::to_string(i);
        body += line + "\n";
        wanted += line + "\r\n";
    }
    mail_server server;
    sender      s("encoding: ISO-2022-JP\nto: x@b.test\nreplyto: r@a.test\n" + body + "end",
                  settings_text(server.smtp_port(), 0));
    ASSERT_EQ(s.send(), 0);
    ASSERT_EQ(server.mails().size(), 1U);
    std::string const text = server.mails()[0].text;
    EXPECT_TRUE(text.substr(text.find("\r\n\r\n") + 4) == wanted + "end\r\n");
}

TEST_F(Delivery, SurvivesAServerThatBreaksTheConnectionWithinABigText)
{
    listening_socket door;
    std::thread      server([&] {
        unique_fd client = door.accept();
        send_all(client.get(), "220 a\r\n250 b\r\n250 c\r\n250 d\r\n354 e\r\n");
        // When the data has begun: it is too big for the buffers of both systems.
        std::vector<char> heard(100001);
        EXPECT_EQ(sock_read(client.get(), heard.data(), 100000), 100000);
        break_connection(client);
    });
    sender           s("to: x@b.test\nreplyto: r@a.test\n" + std::string(24000000, 'x'),
                       settings_text(door.port(), 0));
    EXPECT_EQ(s.send(), 1005);
    EXPECT_EQ(s.result_text, "354 e\r\n") << "the last reply: there is none to the data";
    server.join();
    strings const trouble = trouble_traces();
    ASSERT_GE(trouble.size(), 3U);
    EXPECT_EQ(strings(trouble.begin(), trouble.begin() + 3),
              (strings{"error:_smtp_write_data", "error:_send_message", "error:send_message"}));
}

// ---- several sends at the same time

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
    EXPECT_EQ(trouble_traces(), strings{});
}

}  // namespace

}  // namespace zelieml::test
