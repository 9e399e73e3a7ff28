// probe_test.cpp - the steps of a probe, and that a send with the same settings ends as it says
//
// The reasons of failed steps have a test of their own, probe_reasons_test.cpp.

#include "libsendw/probe.h"

#include <deque>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "libaccess/libaccess.h"
#include "libsendw/libsendw.h"
#include "tests/libsendw/probe_room.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/failing_new.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

std::string offers(std::string const& extension = "8BITMIME")
{
    return answered("ehlo {host}", "250-mail.test\nS: 250 " + extension);
}

std::string const plain_login = answered("AUTH PLAIN {base64:\\0joe\\0secret}", "235 welcome");
std::string const tried_to    = mail_from() + rcpt_to() + answered("rset", "250 forgotten");

// What a probe says of these steps, step by step.
std::string const connected     = "settings ok\nlook-up ok\nconnect ok\n";
std::string const was_greeted   = connected + "greeting ok: 220 mail.test ready|\n";
std::string const was_helo      = was_greeted + "helo ok: 250 mail.test|\n";
std::string const was_sender    = was_helo + "sender ok: 250 sender ok|\n";
std::string const was_tried     = was_sender + "recipient ok: 250 recipient ok|\n";
std::string const was_reset     = was_tried + "reset ok: 250 forgotten|\n";
std::string const was_offered   = "offer ok: 250-mail.test|250 8BITMIME|\n";
std::string const was_quit      = "quit ok: 221 bye|\n";
std::string const was_found     = "settings ok\npop look-up ok\npop connect ok\n";
std::string const pop_welcomed  = was_found + "pop greeting ok: +OK ready|\n";
std::string const pop_logged_in = pop_welcomed + "pop login ok: +OK|\n";
std::string const pop_done      = pop_logged_in + "pop quit ok: +OK bye|\npop wait ok\n";

std::string ehlo_said(std::string const& extension)
{
    return was_greeted + "ehlo ok: 250-mail.test|250 " + extension + "|\n";
}

// Without the "settings" of a probe that begins with POP3.
std::string after_pop(std::string const& steps)
{
    return pop_done + steps.substr(steps.find('\n') + 1);
}

// A probe with the usual settings, which tries no recipient, unless it says otherwise.
struct probe_case : named_case {
    using named_case::named_case;

    probe_case& with(std::string const& key, std::string const& value)
    {
        room.set(key, value);
        return *this;
    }
    probe_case& without(std::string const& key)
    {
        room.remove(key);
        return *this;
    }
    probe_case& logging_in() { return with("smtp_auth", "yes"); }
    probe_case& trying()
    {
        recipient = "x@b.test";
        return *this;
    }
    probe_case& smtp(std::string const& transcript)
    {
        smtp_transcript = transcript;
        return *this;
    }
    probe_case& pop(std::string const& transcript)
    {
        pop_transcript = transcript;
        return with("pop_before_smtp", "yes");
    }
    // What a mail says and hears, where that is not what the probe does.
    probe_case& mail(std::string const& transcript)
    {
        mail_transcript = transcript;
        return *this;
    }
    probe_case& says(std::string const& lines)
    {
        said = lines;
        return *this;
    }
    // The number of the step that fails, which is also what the send returns.
    probe_case& number(int its_number)
    {
        result = its_number;
        return *this;
    }

    probe_settings             room;
    std::optional<std::string> recipient;
    std::string                smtp_transcript;
    std::optional<std::string> mail_transcript;
    std::string                pop_transcript;
    std::string                said;
    int                        result = 0;
};

class Probing : public on_a_clean_machine_with<probe_case>
{
};

TEST_P(Probing, SaysWhatHappensStepByStep)
{
    probe_case const& c = GetParam();
    local_server      server(c.smtp_transcript);
    local_server      pop_server(c.pop_transcript);
    probe_room const  room(c.room, server.port(), pop_server.port());
    reset_waits_until([&] { return server.fell_silent() || pop_server.fell_silent(); });

    told_steps steps;
    EXPECT_EQ(room.probe(steps, "reply@a.test", c.recipient), c.result == 0 ? 0 : -1);
    EXPECT_EQ(steps.lines(), c.said);
    EXPECT_EQ(steps.number(), c.result);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
}

TEST_P(Probing, GivesTheNumberOfASend)
{
    probe_case const& c = GetParam();
    local_server      server(c.mail_transcript.value_or(c.smtp_transcript));
    local_server      pop_server(c.pop_transcript);
    probe_room const  room(c.room, server.port(), pop_server.port());
    reset_waits_until([&] { return server.fell_silent() || pop_server.fell_silent(); });

    EXPECT_EQ(room.send(), c.result);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
}

// A step of the SMTP session that fails in each way in which a server can make it fail.
struct failing_step {
    char const* name;
    std::string before;   // of the conversation
    std::string command;  // empty: the greeting
    std::string said;     // before
    std::string last;     // the step that fails, with its number
    int         number;
    bool        login;
};

std::vector<probe_case> failures_of(failing_step const& step, std::string const& refusal)
{
    std::string const command = step.command.empty() ? "" : "C: " + step.command + "\n";
    struct {
        char const* way;
        std::string server;
        std::string reply;
    } const ends[] = {
        {" refused", "S: " + refusal + "\n" + hangs_up, ": " + refusal + "|"},
        {" closed", "S: (closes)\n", ""},
        {" reset", "S: (resets)\n", ""},
        {" silent", "S: (silent)\n", ""},
        {" cut", "S- 2\nS: (closes)\n", ""},
    };
    static std::deque<std::string> names;  // outlive the rows
    std::vector<probe_case>        cases;
    for (auto const& end : ends) {
        if (step.command.empty() && end.server == "S: (resets)\n") {
            continue;  // the client may meet it while it connects
        }
        names.push_back(std::string(step.name) + end.way);
        probe_case c(names.back().c_str());
        c.trying()
            .smtp(step.before + command + end.server)
            .says(step.said + step.last + end.reply + "\n")
            .number(step.number);
        if (step.login) {
            c.logging_in();
        }
        cases.push_back(c);
    }
    return cases;
}

std::vector<probe_case> failure_cases()
{
    std::string const  plain   = "AUTH PLAIN {base64:\\0joe\\0secret}";
    failing_step const steps[] = {
        {"greeting", "", "", connected, "greeting failed 1001", 1001, false},
        {"helo", greeted, "helo {host}", was_greeted, "helo failed 1003", 1003, false},
        {"ehlo", greeted, "ehlo {host}", was_greeted, "ehlo failed 1004", 1004, true},
        {"login", ehlo("AUTH PLAIN"), plain, ehlo_said("AUTH PLAIN"), "login failed 1004", 1004,
         true},
        {"sender", helo, "mail from: <reply@a.test>", was_helo, "sender failed 1005", 1005, false},
        {"recipient", helo + mail_from(), "rcpt to: <x@b.test>", was_sender,
         "recipient failed 1005", 1005, false},
    };
    std::vector<probe_case> cases;
    for (failing_step const& step : steps) {
        for (probe_case const& c : failures_of(step, "550 not for you")) {
            cases.push_back(c);
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Failures, Probing, testing::ValuesIn(failure_cases()),
                         case_name<probe_case>);

std::vector<probe_case> smtp_cases()
{
    std::string const accepted = mail_from() + rcpt_to() + text_sent;
    return {
        probe_case("no recipient")
            .smtp(helo + offers() + goodbye)
            .mail(helo + delivery)
            .says(was_helo + was_offered + was_quit),
        probe_case("a recipient")
            .trying()
            .smtp(helo + tried_to + offers() + goodbye)
            .mail(helo + delivery)
            .says(was_reset + was_offered + was_quit),
        probe_case("a login and a recipient")
            .logging_in()
            .trying()
            .smtp(ehlo("AUTH PLAIN") + plain_login + tried_to + goodbye)
            .mail(ehlo("AUTH PLAIN") + plain_login + delivery)
            .says(ehlo_said("AUTH PLAIN") + "login ok: 235 welcome|\n" +
                  was_reset.substr(was_helo.size()) + was_quit),
        probe_case("replies of several lines, trickled")
            .smtp("S: (trickles 1)\n" + helo + offers() + goodbye)
            .mail(helo + delivery)
            .says(was_helo + was_offered + was_quit),
        probe_case("quit refused")
            .smtp(helo + offers() + refused_at("quit", "250 stay"))
            .mail(helo + accepted + refused_at("quit", "250 stay"))
            .says(was_helo + was_offered + "quit failed 1006: 250 stay|\n")
            .number(1006),
        probe_case("quit answered by closing")
            .smtp(helo + offers() + lost_at("quit"))
            .mail(helo + accepted + lost_at("quit"))
            .says(was_helo + was_offered + "quit failed 1006\n")
            .number(1006),
        probe_case("quit not answered")
            .smtp(helo + offers() + answered("quit", "(silent)"))
            .mail(helo + accepted + answered("quit", "(silent)"))
            .says(was_helo + was_offered + "quit failed 1006\n")
            .number(1006),
        probe_case("a server that goes on talking is heard to its end")
            .smtp(helo + offers() + goodbye + "S: (delays 10)\nS: 421 oh\n")
            .mail(helo + delivery)
            .says(was_helo + was_offered + was_quit),
        probe_case("a recipient refused in words that hold the code")
            .trying()
            .smtp(helo + mail_from() + answered("rcpt to: <x@b.test>", "550 user 250 unknown") +
                  answered("rset", "250 forgotten") + offers() + goodbye)
            .mail(helo + mail_from() + answered("rcpt to: <x@b.test>", "550 user 250 unknown") +
                  text_sent + goodbye)
            .says(was_sender + "recipient ok: 550 user 250 unknown|\nreset ok: 250 forgotten|\n" +
                  was_offered + was_quit),
        probe_case("an unknown server")
            .with("smtp_server", "no.such.host.test")
            .says("settings ok\nlook-up failed 1001\n")
            .number(1001),
        probe_case("a server without a name")
            .with("smtp_server", "")
            .says("settings ok\nlook-up failed 1001\n")
            .number(1001),
        probe_case("a port that is no number")
            .with("smtp_port", "smtp")
            .says("settings ok\nlook-up ok\nconnect failed 1001\n")
            .number(1001),
    };
}

INSTANTIATE_TEST_SUITE_P(Smtp, Probing, testing::ValuesIn(smtp_cases()), case_name<probe_case>);

std::vector<probe_case> login_cases()
{
    std::string const login_login =
        "C: AUTH LOGIN\nS64: 334 User:\nC64: joe\nS64: 334 Password:\nC64: secret\n";
    std::string const cram_login =
        "C: AUTH CRAM-MD5\n"
        "S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\n"
        "C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\n";
    std::string const taken    = "S: 235 welcome\n";
    std::string const was_in   = "login ok: 235 welcome|\n" + was_quit;
    auto const        remarked = [](std::string const& offer, std::string const& remark) {
        return was_greeted + "ehlo remark: 250-mail.test|250 " + offer + "| (" + remark + ")\n";
    };
    auto const uses = [](char const* mail, char const* test) {
        return std::string("smtp_auth_type makes mails log in with ") + mail +
               ", but test_smtp_auth uses " + test;
    };
    std::string const no_offer =
        "the server offers no AUTH: mails try to log in all the same, but test_smtp_auth fails";
    auto const row = [&](char const* name, std::string const& offer, std::string const& login) {
        return probe_case(name)
            .logging_in()
            .smtp(ehlo(offer) + login + taken + goodbye)
            .mail(ehlo(offer) + login + taken + delivery)
            .says(ehlo_said(offer) + was_in);
    };
    std::string const plain = "C: AUTH PLAIN {base64:\\0joe\\0secret}\n";
    return {
        row("plain by the offer", "AUTH PLAIN", plain),
        row("login by the offer", "AUTH PLAIN LOGIN", login_login),
        row("cram-md5 by the offer", "AUTH LOGIN CRAM-MD5", cram_login)
            .with("smtp_account", "tim")
            .with("smtp_passwd", "tanstaaftanstaaf"),
        row("a mechanism that is also the one of the offer", "AUTH LOGIN", login_login)
            .with("smtp_auth_type", "login"),
        row("cram-md5 by setting", "AUTH LOGIN", cram_login)
            .with("smtp_auth_type", "cram-md5")
            .with("smtp_account", "tim")
            .with("smtp_passwd", "tanstaaftanstaaf")
            .says(remarked("AUTH LOGIN", uses("CRAM-MD5", "LOGIN")) + was_in),
        row("login by setting", "AUTH CRAM-MD5", login_login)
            .with("smtp_auth_type", "login")
            .says(remarked("AUTH CRAM-MD5", uses("LOGIN", "CRAM-MD5")) + was_in),
        row("a setting in upper case is plain", "AUTH CRAM-MD5", plain)
            .with("smtp_auth_type", "CRAM-MD5")
            .says(remarked("AUTH CRAM-MD5", uses("PLAIN", "CRAM-MD5")) + was_in),
        row("no offer, and the login works", "8BITMIME", plain)
            .says(remarked("8BITMIME", no_offer) + was_in),
        probe_case("no offer, and no login")
            .logging_in()
            .smtp(ehlo("8BITMIME") + plain + "S: 502 what?\n" + hangs_up)
            .says(remarked("8BITMIME", no_offer) + "login failed 1004: 502 what?|\n")
            .number(1004),
        probe_case("login: the user refused")
            .logging_in()
            .smtp(ehlo("AUTH LOGIN") + "C: AUTH LOGIN\nS: 334 a\nC64: joe\nS: 535 who?\n" +
                  hangs_up)
            .says(ehlo_said("AUTH LOGIN") + "login failed 1004: 535 who?|\n")
            .number(1004),
        probe_case("login: the password refused")
            .logging_in()
            .smtp(ehlo("AUTH LOGIN") + login_login + "S: 535 wrong\n" + hangs_up)
            .says(ehlo_said("AUTH LOGIN") + "login failed 1004: 535 wrong|\n")
            .number(1004),
        probe_case("cram-md5: a broken challenge")
            .logging_in()
            .smtp(ehlo("AUTH CRAM-MD5") + "C: AUTH CRAM-MD5\nS: 334 AAAAAA\n" + hangs_up)
            .says(ehlo_said("AUTH CRAM-MD5") + "login failed 1004: 334 AAAAAA|\n")
            .number(1004),
        probe_case("credentials whose line is too long")
            .logging_in()
            .with("smtp_passwd", std::string(800, 'p'))
            .smtp(ehlo("AUTH PLAIN") + hangs_up)
            .says(ehlo_said("AUTH PLAIN") + "login failed 1004\n")
            .number(1004),
    };
}

INSTANTIATE_TEST_SUITE_P(Logins, Probing, testing::ValuesIn(login_cases()), case_name<probe_case>);

// Steps that no mail has do not fail, whatever becomes of them.
std::vector<probe_case> extra_cases()
{
    std::string const offered =
        "offer remark: 250-mail.test|250 AUTH PLAIN| (the server offers AUTH: mails get through "
        "without a login, but test_smtp_auth fails with \"off\")\n";
    auto const no_ehlo = [](std::string const& reply, std::string const& reason) {
        return was_helo + "offer remark" + reply +
               " (EHLO failed, which test_smtp_auth needs, but mails do not: " + reason + ")\n";
    };
    auto const no_reset = [](std::string const& reply, std::string const& reason) {
        return was_tried + "reset remark" + reply +
               " (RSET failed, which no mail sends: " + reason + ")\n";
    };
    std::vector<probe_case> cases = {
        probe_case("AUTH is offered and not used")
            .smtp(helo + offers("AUTH PLAIN") + goodbye)
            .says(was_helo + offered + was_quit),
        probe_case("ehlo refused")
            .smtp(helo + refused_at("ehlo {host}", "502 helo, please"))
            .says(no_ehlo(": 502 helo, please|", "the server refused EHLO: 502 helo, please")),
        probe_case("ehlo answered by closing")
            .smtp(helo + lost_at("ehlo {host}"))
            .says(no_ehlo("", "the server closed the connection after EHLO")),
        probe_case("ehlo not answered")
            .smtp(helo + answered("ehlo {host}", "(silent)"))
            .says(no_ehlo("", "no answer to EHLO within 15 s")),
        probe_case("rset refused")
            .trying()
            .smtp(helo + mail_from() + rcpt_to() + refused_at("rset", "500 what?"))
            .says(no_reset(": 500 what?|", "the server refused RSET: 500 what?")),
        probe_case("rset answered by closing")
            .trying()
            .smtp(helo + mail_from() + rcpt_to() + lost_at("rset"))
            .says(no_reset("", "the server closed the connection after RSET")),
        probe_case("rset not answered")
            .trying()
            .smtp(helo + mail_from() + rcpt_to() + answered("rset", "(silent)"))
            .says(no_reset("", "no answer to RSET within 15 s")),
    };
    for (probe_case& c : cases) {
        c.mail(helo + delivery);
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Extras, Probing, testing::ValuesIn(extra_cases()), case_name<probe_case>);

std::vector<probe_case> settings_cases()
{
    auto const missing = [](char const* name, char const* key, int number) {
        return probe_case(name)
            .without(key)
            .says("settings failed " + std::to_string(number) + "\n")
            .number(number);
    };
    return {
        missing("smtp_server missing", "smtp_server", 1000),
        missing("smtp_port missing", "smtp_port", 1000),
        missing("pop_server missing", "pop_server", 100).with("pop_before_smtp", "yes"),
        missing("pop_port missing", "pop_port", 100).with("pop_before_smtp", "yes"),
        missing("pop_account missing", "pop_account", 100).with("pop_before_smtp", "yes"),
        missing("pop_passwd missing", "pop_passwd", 100).with("pop_before_smtp", "yes"),
        missing("smtp_account missing", "smtp_account", 1004).logging_in().mail(greeted + hangs_up),
        missing("smtp_passwd missing", "smtp_passwd", 1004).logging_in().mail(greeted + hangs_up),
        missing("smtp_passwd is not decrypted", "smtp_passwd", 1004)
            .logging_in()
            .with("passwd_raw", "no")
            .with("smtp_passwd", "ABC")
            .mail(greeted + hangs_up),
        probe_case("an account that nobody asks for")
            .without("smtp_account")
            .without("pop_account")
            .smtp(helo + offers() + goodbye)
            .mail(helo + delivery)
            .says(was_helo + was_offered + was_quit),
        probe_case("yes in upper case is no")
            .with("smtp_auth", "YES")
            .with("pop_before_smtp", "YES")
            .smtp(helo + offers() + goodbye)
            .mail(helo + delivery)
            .says(was_helo + was_offered + was_quit),
    };
}

INSTANTIATE_TEST_SUITE_P(Settings, Probing, testing::ValuesIn(settings_cases()),
                         case_name<probe_case>);

std::vector<probe_case> pop_cases()
{
    std::string const pop_session = pop_login() + pop_goodbye;
    std::string const stamped     = "S: +OK <1896.697170952@dbc.mtview.ca.us>\n";
    std::string const was_stamped =
        was_found + "pop greeting ok: +OK <1896.697170952@dbc.mtview.ca.us>|\n";
    auto const fails = [](char const* name, std::string const& transcript, std::string const& said,
                          int number) {
        return probe_case(name).pop(transcript).says(said + "\n").number(number);
    };
    return {
        probe_case("user and pass")
            .pop(pop_session)
            .smtp(helo + offers() + goodbye)
            .mail(helo + delivery)
            .says(after_pop(was_helo + was_offered + was_quit)),
        probe_case("apop")
            .with("pop_auth_type", "apop")
            .with("pop_account", "mrose")
            .with("pop_passwd", "tanstaaf")
            .pop(stamped + answered("apop mrose c4c9334bac560ecc979e58001b3e22fb", "+OK") +
                 pop_goodbye)
            .smtp(greeted + refused_at("helo {host}", "502 no"))
            .says(was_stamped + "pop login ok: +OK|\npop quit ok: +OK bye|\npop wait ok\n" +
                  "look-up ok\nconnect ok\ngreeting ok: 220 mail.test ready|\n"
                  "helo failed 1003: 502 no|\n")
            .number(1003),
        fails("pop closes instead of greeting", "S: (closes)\n",
              was_found + "pop greeting failed 2002", 2002),
        fails("pop says nothing", "S: (silent)\n", was_found + "pop greeting failed 2002", 2002),
        fails("the user refused", pop_greeted + refused_at("user anna", "-ERR who?"),
              pop_welcomed + "pop login failed 2004: -ERR who?|", 2004),
        fails("the user not answered", pop_greeted + answered("user anna", "(silent)"),
              pop_welcomed + "pop login failed 2004", 2004),
        fails("the user answered by closing", pop_greeted + lost_at("user anna"),
              pop_welcomed + "pop login failed 2004", 2004),
        fails("the password refused",
              pop_greeted + answered("user anna", "+OK") + refused_at("pass secret", "-ERR wrong"),
              pop_welcomed + "pop login failed 2005: -ERR wrong|", 2005),
        fails("the password answered by closing",
              pop_greeted + answered("user anna", "+OK") + lost_at("pass secret"),
              pop_welcomed + "pop login failed 2005", 2005),
        fails("apop refused", stamped + refused_at("apop anna {any}", "-ERR wrong"),
              was_stamped + "pop login failed 2006: -ERR wrong|", 2006)
            .with("pop_auth_type", "apop"),
        fails("apop impossible", pop_greeted + hangs_up,
              pop_welcomed + "pop login failed 2006: +OK ready|", 2006)
            .with("pop_auth_type", "apop"),
        fails("pop quit answered by closing", pop_login() + lost_at("quit"),
              pop_logged_in + "pop quit failed 100", 100),
        fails("pop quit not answered", pop_login() + answered("quit", "(silent)"),
              pop_logged_in + "pop quit failed 100", 100),
        fails("an unknown pop server", nobody_comes, "settings ok\npop look-up failed 2002", 2002)
            .with("pop_server", "no.such.host.test"),
        fails("a pop port that is no number", nobody_comes,
              "settings ok\npop look-up ok\npop connect failed 2002", 2002)
            .with("pop_port", "pop3"),
    };
}

INSTANTIATE_TEST_SUITE_P(PopBeforeSmtp, Probing, testing::ValuesIn(pop_cases()),
                         case_name<probe_case>);

class Probe : public on_a_clean_machine
{
};

}  // namespace

TEST_F(Probe, WaitsAfterTheLoginToPop3)
{
    local_server     server(helo + offers() + goodbye);
    local_server     pop_server(pop_login() + pop_goodbye);
    probe_room const room(
        probe_settings().set("pop_before_smtp", "yes").set("pop_wait_time", "1500"), server.port(),
        pop_server.port());
    told_steps steps;
    EXPECT_EQ(room.probe(steps), 0);
    EXPECT_EQ(waits().sleeps, std::vector<std::int64_t>{1500000});
}

TEST_F(Probe, NamesTheServerAndTheTimeOfEachStep)
{
    local_server     server("S: (delays 300)\n" + helo + offers() + goodbye);
    local_server     pop_server(pop_login() + pop_goodbye);
    probe_room const room(probe_settings().set("pop_before_smtp", "yes"), server.port(),
                          pop_server.port());
    told_steps       steps;
    EXPECT_EQ(room.probe(steps), 0);
    std::string const smtp_name = "127.0.0.1:" + std::to_string(server.port());
    std::string const pop_name  = "127.0.0.1:" + std::to_string(pop_server.port());
    for (told_step const& step : steps.all()) {
        bool const pop = step.name.find("pop ") == 0;
        EXPECT_EQ(step.server, step.name == "settings" ? "" : pop ? pop_name : smtp_name);
        // The server begins to wait before the step does.
        EXPECT_GE(step.seconds, step.name == "greeting" ? 0.03 : 0.0) << step.name;
        EXPECT_EQ(step.struct_size, sizeof(eml_probe_step));
        EXPECT_EQ(step.user, &steps);
    }
}

// 65561 is port 25, as in a send.
TEST_F(Probe, NamesThePortThatItConnectsTo)
{
    local_server      server(helo + offers() + goodbye);
    std::string const wrapped = std::to_string(65536 + server.port());
    probe_room const  room(probe_settings().set("smtp_port", wrapped), 0, 0);
    told_steps        steps;
    EXPECT_EQ(room.probe(steps), 0);
    EXPECT_EQ(steps.all().back().server, "127.0.0.1:" + std::to_string(server.port()));
}

TEST_F(Probe, TriesTheNullSender)
{
    local_server     server(helo + answered("mail from: <>", "550 no bounces") + hangs_up);
    probe_room const room(probe_settings(), server.port(), 0);
    told_steps       steps;
    EXPECT_EQ(room.probe(steps, "", "x@b.test"), -1);
    EXPECT_EQ(steps.lines(), was_helo + "sender failed 1005: 550 no bounces|\n");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Probe, IsNotMadeWithWrongArguments)
{
    local_server      server("");
    probe_room const  room(probe_settings(), server.port(), 0);
    std::string const dir = room.workdir();
    told_steps        steps;
    auto const        called = [&](char const* workdir, char const* sender, char const* recipient) {
        return eml_probe(workdir, sender, recipient, told_steps::take, &steps);
    };
    EXPECT_EQ(called(nullptr, "a@a.test", nullptr), -1);
    EXPECT_EQ(called(dir.c_str(), nullptr, "x@b.test"), -1);
    EXPECT_EQ(called(dir.c_str(), "a@a.test", "x@b.test>\r\nDATA"), -1);
    EXPECT_EQ(called(dir.c_str(), "a@a.test\nDATA", "x@b.test"), -1);
    EXPECT_EQ(called(dir.c_str(), "a@a.test", "x@b.test\r"), -1);
    EXPECT_EQ(called(dir.c_str(), "a@a.test\r", nullptr), -1);
    EXPECT_EQ(eml_probe(dir.c_str(), "a@a.test", "x@b.test", nullptr, &steps), -1);
    EXPECT_EQ(steps.lines(), "");
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(Probe, NeedsNoSenderWithoutARecipient)
{
    local_server     server(helo + offers() + goodbye);
    probe_room const room(probe_settings(), server.port(), 0);
    told_steps       steps;
    EXPECT_EQ(eml_probe(room.workdir().c_str(), nullptr, nullptr, told_steps::take, &steps), 0);
    EXPECT_EQ(steps.lines(), was_helo + was_offered + was_quit);
}

TEST_F(Probe, GoesOnAfterAnException)
{
    local_server     server(helo + offers() + goodbye);
    probe_room const room(probe_settings(), server.port(), 0);
    int              calls  = 0;
    auto const       throws = [](eml_probe_step const*, void* user) {
        ++*static_cast<int*>(user);
        throw std::runtime_error("not now");
    };
    EXPECT_EQ(eml_probe(room.workdir().c_str(), "", nullptr, throws, &calls), 0);
    EXPECT_EQ(calls, 7);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Probe, LeavesTheConversationToTheParent)
{
    local_server     server(helo + offers() + goodbye);
    local_server     pop_server(pop_login() + pop_goodbye);
    probe_room const room(probe_settings().set("pop_before_smtp", "yes"), server.port(),
                          pop_server.port());
    struct forking {
        pid_t parent   = ::getpid();
        int   children = 0;
        int   wrong    = 0;
    } at;
    // Not where the greeting may be unread: a child that closes takes that in the fake of macOS.
    auto const forks = [](eml_probe_step const* step, void* user) {
        auto&      f = *static_cast<forking*>(user);
        bool const may_fork =
            ::getpid() == f.parent && std::string(step->name).find("connect") == std::string::npos;
        pid_t const child = may_fork ? ::fork() : -1;
        if (child > 0) {
            int status = 0;
            ::waitpid(child, &status, 0);
            ++f.children;
            f.wrong += status == 0 ? 0 : 1;
        }
    };
    int const result = eml_probe(room.workdir().c_str(), "", nullptr, forks, &at);
    if (::getpid() != at.parent) {
        ::_exit(result == -1 ? 0 : 1);  // told nothing more: wrong otherwise
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(at.children, 11);
    EXPECT_EQ(at.wrong, 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
}

// The one case in which a mail gets through, for it takes any greeting.
TEST_F(Probe, SaysNothingToAServerThatIsNoneOfPop3)
{
    std::string const    foreign  = "S: 220 mail.test\n";
    probe_settings const settings = probe_settings().set("pop_before_smtp", "yes");
    local_server         pop_server(foreign + hangs_up);
    local_server         nobody(nobody_comes);
    probe_room const     room(settings, nobody.port(), pop_server.port());
    told_steps           steps;
    EXPECT_EQ(room.probe(steps), -1);
    EXPECT_EQ(steps.lines(), was_found + "pop greeting failed 2002: 220 mail.test|\n");
    EXPECT_EQ(steps.all().back().cause, eml_cause_protocol);
    EXPECT_EQ(steps.all().back().reason, "the POP3 server does not greet as one: 220 mail.test");
    EXPECT_EQ(pop_server.heard(), pop_server.expected()) << pop_server.problem();
    EXPECT_EQ(nobody.connections(), 0);

    local_server     server(helo + delivery);
    local_server     any(foreign + answered("user anna", "500 what?") +
                         answered("pass secret", "500 what?") + answered("quit", "221 bye"));
    probe_room const of_mail(settings, server.port(), any.port());
    EXPECT_EQ(of_mail.send(), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(any.heard(), any.expected()) << any.problem();
}

// ---- passwords

TEST_F(Probe, ShowsNoPasswordThatAServerRepeats)
{
    struct {
        char const* reason;
        char const* password;
        char const* mechanism;
        char const* reply;
        char const* shown;
    } const cases[] = {
        {"as it is", "s3cret", "PLAIN", "535 no s3cret, s3cret!", "535 no ***, ***!"},
        {"the response of PLAIN", "s3cret", "PLAIN", "535 {base64:\\0joe\\0s3cret}", "535 ***"},
        {"the response of LOGIN", "s3cret", "LOGIN", "535 {base64:s3cret}", "535 ***"},
        {"a part of its own Base64", "c3", "LOGIN", "535 {base64:c3}", "535 ***"},
        {"a password that is a code", "535", "PLAIN", "535 no", "*** no"},
        {"with a byte that is no UTF-8", "s\xe9t", "PLAIN", "535 s\xe9t", "535 ***"},
        {"none to hide", "", "PLAIN", "535 no", "535 no"},
    };
    for (auto const& c : cases) {
        std::string const prompts =
            c.mechanism == std::string("LOGIN") ? "C: (any)\nS: 334 a\nC: (any)\nS: 334 b\n" : "";
        local_server     server(ehlo(std::string("AUTH ") + c.mechanism) + prompts +
                                "C: (any)\nS: " + c.reply + "\n" + hangs_up);
        probe_room const room(
            probe_settings().set("smtp_auth", "yes").set("smtp_passwd", c.password), server.port(),
            0);
        told_steps steps;
        EXPECT_EQ(room.probe(steps), -1) << c.reason;
        EXPECT_EQ(steps.all().back().reply, std::string(c.shown) + "\r\n") << c.reason;
        EXPECT_EQ(steps.all().back().reason,
                  std::string("the server refused the login of joe: ") + c.shown)
            << c.reason;
    }
}

TEST_F(Probe, ShowsNoPop3PasswordEither)
{
    local_server pop_server(pop_login("anna", "pop secret") + refused_at("quit", "+OK pop secret"));
    probe_room const room(probe_settings()
                              .set("pop_before_smtp", "yes")
                              .set("pop_passwd", "pop secret")
                              .set("smtp_server", "no.such.host.test"),
                          0, pop_server.port());
    told_steps       steps;
    EXPECT_EQ(room.probe(steps), -1);
    EXPECT_EQ(steps.lines(),
              pop_logged_in + "pop quit ok: +OK ***|\npop wait ok\n" + "look-up failed 1001\n");
}

// ---- what remarks say of the login test

TEST_F(Probe, RemarksWhereTheLoginTestFails)
{
    struct {
        char const* reason;
        char const* auth;  // the setting
        char const* offer;
        std::string login;  // of the probe
        char const* test_switch;
        std::string test_login;
        bool        remarked;
    } const cases[] = {
        {"no login, none offered", "no", "8BITMIME", "", "off", "", false},
        {"no login, and AUTH is offered", "no", "AUTH PLAIN", "", "off", "", true},
        {"a login that is offered", "yes", "AUTH PLAIN", plain_login, "on", plain_login, false},
        {"a login that is not offered", "yes", "8BITMIME", plain_login, "on", "", true},
    };
    for (auto const& c : cases) {
        bool const logs_in = std::string(c.auth) == "yes";
        {
            local_server     server((logs_in ? ehlo(c.offer) + c.login : helo + offers(c.offer)) +
                                    goodbye);
            probe_room const room(probe_settings().set("smtp_auth", c.auth), server.port(), 0);
            told_steps       steps;
            EXPECT_EQ(room.probe(steps), 0) << c.reason;
            EXPECT_EQ(steps.lines().find("remark") != std::string::npos, c.remarked) << c.reason;
        }
        local_server  server(ehlo(c.offer) + (c.remarked ? hangs_up : c.test_login + goodbye));
        _s_mailserver record;
        std::string   reply;
        set_smtp(&record, "127.0.0.1", "joe", "secret", c.test_switch, server.port());
        EXPECT_EQ(access_send(&record, "off", reply), c.remarked ? 1004 : 0) << c.reason;
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    }
}

// ---- lack of memory

TEST_F(Probe, EndsWithoutMemory)
{
    mailserver::options options;
    options.users = {{"an account with a name of some length", "and a password of some length"}};
    options.smtp_login_required = true;
    mail_server       server(options);
    probe_room const  room(probe_settings()
                               .set("pop_before_smtp", "yes")
                               .set("pop_account", options.users[0].user)
                               .set("pop_passwd", options.users[0].password)
                               .set("smtp_auth", "yes")
                               .set("smtp_account", options.users[0].user)
                               .set("smtp_passwd", options.users[0].password),
                           server.smtp_port(), server.pop_port());
    std::string const dir = room.workdir();

    auto const probe_quietly = [&](int& failed) {
        auto const count = [](eml_probe_step const* step, void* user) {
            *static_cast<int*>(user) += step->outcome == eml_probe_failed ? 1 : 0;
        };
        return eml_probe(dir.c_str(), "a@a.test", "x@b.test", count, &failed);
    };
    int const descriptors = open_descriptors();
    for (int bad : {1, std::numeric_limits<int>::max()}) {
        bool refused = true;
        int  good    = 0;
        for (; refused && !HasFailure(); ++good) {
            int failed = 0;
            int result = 1;
            {
                failing_new const limit(good, bad);
                result = probe_quietly(failed);
            }
            refused = failing_new::refused();
            EXPECT_TRUE(result == 0 ? failed == 0 : result == -1) << "at request " << good;
            EXPECT_TRUE(result == -1 || !refused) << "at request " << good;
        }
        EXPECT_GT(good, 50);
    }
    int good = 0;
    for (bool refused = true; refused && !HasFailure(); ++good) {
        int failed = 0;
        fail_heap_after(good);
        int const result = probe_quietly(failed);
        refused          = heap_has_failed();
        fail_heap_after(-1);
        EXPECT_EQ(result, refused ? -1 : 0) << "at buffer " << good;
    }
    EXPECT_GT(good, 3);
    server.sessions();
    EXPECT_TRUE(server.mails().empty());
    EXPECT_EQ(open_descriptors(), descriptors);
}

}  // namespace zelieml::test
