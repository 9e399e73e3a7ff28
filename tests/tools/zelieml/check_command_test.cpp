// check_command_test.cpp - zelieml check: the steps, the advice, and how it ends

#include <algorithm>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sysexits.h>
#include <unistd.h>
#include <vector>

#include "tests/support/case_name.h"
#include "tests/support/contains.h"
#include "tests/support/files.h"
#include "tests/support/loopback_program.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

outcome check(workplace const& work, strings const& more = {})
{
    strings words = {"check", "-w", work.path()};
    words.insert(words.end(), more.begin(), more.end());
    return run_zelieml(words);
}

// What was printed, with no time for each step.
std::string without_times(std::string const& text)
{
    std::string const people =
        std::regex_replace(text, std::regex("[0-9]+\\.[0-9]{2} s"), "0.00 s");
    return std::regex_replace(people, std::regex("\"seconds\":[-+.e0-9]+"), "\"seconds\":0.0");
}

// The steps in the order of their lines: "settings look-up connect".
std::string steps_of(std::string const& out)
{
    std::string      steps;
    std::regex const line("(^|\n)([a-z][-a-z 0-9]*[a-z]) +(ok|remark|FAILED) +[0-9]+\\.[0-9]{2} s");
    for (std::sregex_iterator at(out.begin(), out.end(), line), end; at != end; ++at) {
        steps += (steps.empty() ? "" : " ") + (*at)[2].str() +
                 ((*at)[3] == "ok" ? "" : ":" + (*at)[3].str());
    }
    return steps;
}

// Standard error is one line, which says why and what to do.
void expect_said(outcome const& run, std::string const& reason, std::string const& advice)
{
    EXPECT_EQ(run.err.rfind("zelieml: " + reason, 0), 0U) << run.err;
    EXPECT_TRUE(contains(run.err, ": " + advice)) << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

// ---- when all is well

TEST(Check, TellsEachStepAndSendsNothing)
{
    mailserver::options options;
    options.smtp_mechanisms = {};
    mail_server     server(options);
    workplace const work(server.smtp_port());
    outcome const   run = check(work);
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.err, "");
    std::string const place = "127.0.0.1:" + std::to_string(server.smtp_port());
    EXPECT_EQ(without_times(run.out),
              "settings     ok        0.00 s\n"
              "look-up      ok        0.00 s  " +
                  place +
                  "\n"
                  "connect      ok        0.00 s\n"
                  "greeting     ok        0.00 s  220 localhost ESMTP loopback mail server ready\n"
                  "helo         ok        0.00 s  250 localhost\n"
                  "offer        ok        0.00 s  250 SIZE 67108864\n"
                  "quit         ok        0.00 s  221 2.0.0 goodbye\n");
    EXPECT_TRUE(server.mails().empty());
    EXPECT_EQ(work.messages(), strings{});
}

TEST(Check, TellsARemark)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = check(work);
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(steps_of(run.out), "settings look-up connect greeting helo offer:remark quit");
    EXPECT_TRUE(contains(run.out,
                         "\n             the server offers AUTH: mails get through without "
                         "a login\n"))
        << run.out;

    loopback_program const old({"--fault", "ehlo=refuse:502 what?"});
    outcome const          told = check(workplace(old.port("smtp")));
    EXPECT_EQ(told.status, EX_OK);
    EXPECT_TRUE(contains(told.out, "\n             EHLO failed, which mails do not need: "))
        << told.out;
}

TEST(Check, SendsATestMailWhenAsked)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = check(work, {"--to", "anna@b.test"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(steps_of(run.out), "settings look-up connect greeting helo sender recipient reset "
                                 "offer:remark quit mail");
    EXPECT_EQ(work.messages(), strings{});
    ASSERT_EQ(server.mails().size(), 1U);
    mailserver::mail const mail = server.mails()[0];
    EXPECT_EQ(mail.sender, "anna@b.test");
    EXPECT_EQ(mail.recipients, strings{"anna@b.test"});
    for (char const* const part : {"\r\nFrom: anna@b.test\r\n", "\r\nTo: anna@b.test\r\n",
                                   "\r\nSubject: Test mail\r\n", "\r\nMessage-Id: <"}) {
        EXPECT_TRUE(contains(mail.text, part)) << part << " in " << mail.text;
    }
}

TEST(Check, GoesThroughBothLogins)
{
    mailserver::options options;
    options.smtp_login_required = true;
    mail_server     server(options);
    workplace const work(server.smtp_port(),
                         "smtp_auth = yes\r\nsmtp_account = user\r\nsmtp_passwd = password\r\n"
                         "passwd_raw = yes\r\npop_before_smtp = yes\r\npop_server = 127.0.0.1\r\n"
                         "pop_port = " +
                             std::to_string(server.pop_port()) +
                             "\r\npop_account = user\r\npop_passwd = password\r\n");
    outcome const   run = check(work);
    EXPECT_EQ(run.status, EX_OK) << run.err;
    EXPECT_EQ(steps_of(run.out),
              "settings pop look-up pop connect pop greeting pop login pop quit pop wait "
              "look-up connect greeting ehlo login quit");
}

TEST(Check, IsOneObjectInJson)
{
    mailserver::options options;
    options.smtp_mechanisms = {};
    mail_server     server(options);
    workplace const work(server.smtp_port(), "unknown = 1\r\n");
    outcome const   run = check(work, {"--json", "--to", "anna@b.test"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(count_of(run.out, "\n"), 1) << run.out;
    std::string const out = without_times(run.out);
    EXPECT_EQ(
        out.rfind("{\"ok\":true,\"steps\":[{\"name\":\"settings\",\"server\":\"\","
                  "\"outcome\":\"ok\",\"number\":0,\"cause\":\"none\",\"seconds\":0.0,"
                  "\"reply\":\"\",\"reason\":\"\"},{\"name\":\"look-up\",\"server\":\"127.0.0.1:",
                  0),
        0U)
        << out;
    EXPECT_TRUE(contains(out, "\"reply\":\"250-localhost\\r\\n250-PIPELINING\\r\\n")) << out;
    EXPECT_TRUE(contains(out, "],\"advice\":\"\",\"findings\":[{\"line\":4,\"key\":\"\","
                              "\"severity\":\"warning\",\"text\":\""))
        << out;
    EXPECT_TRUE(contains(out, "}],\"sent\":{\"code\":0,\"number\":0,\"cause\":\"none\"")) << out;
    EXPECT_EQ(server.mails().size(), 1U);
}

// ---- when something fails

// A check of the loopback server, without a login.
struct check_case : named_case {
    using named_case::named_case;

    check_case& server(strings const& its_arguments)
    {
        arguments = its_arguments;
        return *this;
    }
    check_case& fault(std::string const& its_fault) { return server({"--fault", its_fault}); }
    // {pop} is the port of POP3.
    check_case& settings(std::string const& its_settings)
    {
        more_settings = its_settings;
        return *this;
    }
    check_case& to(std::string const& address)
    {
        words = {"--to", address};
        return *this;
    }
    // The last step, and what it is about in JSON.
    check_case& fails_at(std::string const& its_step, std::string const& its_cause)
    {
        step  = its_step;
        cause = its_cause;
        return *this;
    }
    check_case& ends(int its_status, std::string const& its_reason, std::string const& its_advice)
    {
        status = its_status;
        reason = its_reason;
        advice = its_advice;
        return *this;
    }

    strings     arguments;
    std::string more_settings;
    strings     words;
    std::string step;
    std::string cause;
    int         status = EX_OK;
    std::string reason;
    std::string advice;
};

class FailedCheck : public testing::TestWithParam<check_case>
{
};

TEST_P(FailedCheck, SaysWhereAndWhatToDo)
{
    check_case const& c = GetParam();
    SKIP_UNLESS(ZELIEML_HAS_TLS || c.step.find("tls") == c.step.npos,
                "built without the plug-in for TLS");
    loopback_program const server(c.arguments);
    std::string            settings = c.more_settings;
    std::size_t const      port     = settings.find("{pop}");
    if (port != settings.npos) {
        settings.replace(port, 5, std::to_string(server.port("pop3")));
    }
    workplace const work(server.port("smtp"), settings);

    outcome const run = check(work, c.words);
    EXPECT_EQ(run.status, c.status);
    std::string const steps = steps_of(run.out);
    std::string const last  = c.step + ":FAILED";
    EXPECT_EQ(steps.substr(steps.size() - std::min(steps.size(), last.size())), last) << run.out;
    EXPECT_EQ(count_of(run.out, "FAILED"), 1);
    expect_said(run, c.reason, c.advice);
    EXPECT_EQ(work.messages(), strings{});

    strings words = c.words;
    words.emplace_back("--json");
    outcome const as_json = check(work, words);
    EXPECT_EQ(as_json.status, c.status);
    EXPECT_EQ(as_json.err, run.err);
    EXPECT_EQ(as_json.out.rfind("{\"ok\":false,\"steps\":[{\"name\":\"settings\"", 0), 0U);
    EXPECT_TRUE(contains(as_json.out, "\"cause\":\"" + c.cause + "\"")) << as_json.out;
    EXPECT_TRUE(contains(as_json.out, "\"advice\":\"" + c.advice)) << as_json.out;
    EXPECT_EQ(contains(as_json.out, "\"sent\":{"), c.step == "mail") << as_json.out;
}

std::string const login_settings =
    "smtp_auth = yes\r\nsmtp_account = user\r\nsmtp_passwd = secret7\r\npasswd_raw = yes\r\n";
std::string const pop_settings = "pop_before_smtp = yes\r\npop_server = 127.0.0.1\r\npop_port = "
                                 "{pop}\r\npop_account = user\r\npop_passwd = secret7\r\n"
                                 "passwd_raw = yes\r\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, FailedCheck,
    testing::Values(
        check_case("no account")
            .settings("smtp_auth = yes\r\n")
            .fails_at("settings", "settings")
            .ends(EX_CONFIG, "settings: smtp_account is missing in ",
                  "set it with 'zelieml settings"),
        check_case("no POP3 server")
            .settings("pop_before_smtp = yes\r\n")
            .fails_at("settings", "settings")
            .ends(EX_CONFIG, "settings: pop_server is missing in ",
                  "set it with 'zelieml settings"),
        check_case("TLS in other words")
            .settings("smtp_tls = Yes\r\n")
            .fails_at("settings", "settings")
            .ends(EX_CONFIG, "TLS: smtp_tls in ", "set it with 'zelieml settings"),
        check_case("no authorities")
            .settings("smtp_tls = tls\r\ntls_ca_file = /no/such\r\n")
            .fails_at("tls", "settings")
            .ends(EX_CONFIG, "TLS: the authorities in /no/such cannot be read",
                  "tls_ca_file has to be a file of certificates in PEM"),
        check_case("no STARTTLS")
            .settings("smtp_tls = starttls\r\n")
            .fails_at("tls", "tls")
            .ends(EX_UNAVAILABLE, "TLS: the server does not offer STARTTLS",
                  "nothing but EHLO and STARTTLS was said in clear"),
        check_case("no TLS from the first byte")
            .settings("smtp_tls = tls\r\n")
            .fails_at("tls", "tls")
            .ends(EX_UNAVAILABLE, "TLS: the server speaks no TLS here",
                  "nothing but EHLO and STARTTLS was said in clear"),
        check_case("no STLS")
            .settings(pop_settings + "pop_tls = starttls\r\n")
            .fails_at("pop tls", "tls")
            .ends(EX_UNAVAILABLE, "TLS: the server does not offer STLS",
                  "nothing but CAPA and STLS was said in clear"),
        check_case("the greeting is a refusal")
            .fault("smtp.greeting=refuse:554 no service")
            .fails_at("greeting", "refused")
            .ends(EX_PROTOCOL, "the server refused the connection: 554 no service",
                  "the server does not serve this machine"),
        check_case("the server is busy")
            .fault("smtp.greeting=refuse:421 too many")
            .fails_at("greeting", "refused_now")
            .ends(EX_TEMPFAIL, "the server refused the connection: 421 too many",
                  "the server is busy"),
        check_case("the server closes")
            .fault("smtp.greeting=close")
            .fails_at("greeting", "lost")
            .ends(EX_UNAVAILABLE, "the server closed the connection without a greeting",
                  "is this an SMTP server, and without TLS?"),
        check_case("the greeting is no reply")
            .fault("smtp.greeting=refuse:+OK POP3")
            .fails_at("greeting", "protocol")
            .ends(EX_PROTOCOL, "the server refused the connection: +OK POP3",
                  "this is no SMTP server"),
        check_case("helo is refused")
            .fault("helo=refuse:550 who?")
            .fails_at("helo", "refused")
            .ends(EX_PROTOCOL, "the server refused HELO: 550 who?",
                  "the server does not like this machine's name"),
        check_case("ehlo is refused")
            .fault("ehlo=refuse:502 what?")
            .settings(login_settings)
            .fails_at("ehlo", "refused")
            .ends(EX_NOPERM, "the server refused EHLO: 502 what?", "the server offers no login"),
        check_case("the login is refused")
            .settings(login_settings)
            .fails_at("login", "refused")
            .ends(EX_NOPERM, "the server refused the login of user: 535 ",
                  "compare smtp_account with"),
        check_case("the POP3 login is refused")
            .settings(pop_settings)
            .fails_at("pop login", "refused")
            .ends(EX_NOPERM, "the POP3 server refused the ", "compare pop_account with"),
        check_case("the mailbox is in use")
            .fault("pass=refuse:-ERR [IN-USE] wait")
            .settings(pop_settings)
            .fails_at("pop login", "refused_now")
            .ends(EX_TEMPFAIL, "the POP3 server refused the password of user: -ERR [IN-USE] wait",
                  "another program may be reading the mailbox"),
        check_case("the POP3 server is none")
            .fault("pop.greeting=refuse:220 mail.test ESMTP")
            .settings(pop_settings)
            .fails_at("pop greeting", "protocol")
            .ends(EX_PROTOCOL, "the POP3 server does not greet as one: 220 mail.test ESMTP",
                  "this is no POP3 server: compare pop_server and pop_port with"),
        check_case("the sender is refused")
            .fault("mail=refuse:550 not \\x1b[1myou")
            .to("anna@b.test")
            .fails_at("sender", "refused")
            .ends(EX_PROTOCOL, "the server refused the sender anna@b.test: 550 not ",
                  "the server takes no mails from this address"),
        check_case("the recipient is refused")
            .server({"--reject-recipient", "nobody@b.test"})
            .to("nobody@b.test")
            .fails_at("recipient", "refused")
            .ends(EX_NOUSER, "the server refused the recipient nobody@b.test: 550 5.1.1 ",
                  "nobody gets a mail with a recipient that is refused"),
        check_case("the recipient is refused for now")
            .fault("rcpt=refuse:450 4.2.0 later")
            .to("anna@b.test")
            .fails_at("recipient", "refused_now")
            .ends(EX_TEMPFAIL, "the server refused the recipient anna@b.test: 450 4.2.0 later",
                  "the mailbox is full, or"),
        check_case("quit is refused")
            .fault("smtp.quit=refuse:500 stay")
            .fails_at("quit", "refused")
            .ends(EX_PROTOCOL, "the server refused QUIT: 500 stay",
                  "at this step the server has taken the mail: do not send it again"),
        check_case("quit is refused for now")
            .fault("smtp.quit=refuse:421 busy")
            .fails_at("quit", "refused_now")
            .ends(EX_PROTOCOL, "the server refused QUIT: 421 busy",
                  "at this step the server has taken the mail: do not send it again"),
        check_case("quit is answered by what is no refusal")
            .fault("smtp.quit=refuse:250 ok")
            .fails_at("quit", "protocol")
            .ends(EX_PROTOCOL, "the server refused QUIT: 250 ok",
                  "at this step the server has taken the mail: do not send it again"),
        check_case("quit is not answered")
            .fault("smtp.quit=close")
            .fails_at("quit", "lost")
            .ends(EX_UNAVAILABLE, "the server closed the connection after QUIT",
                  "at this step the server has taken the mail: do not send it again"),
        check_case("the mail is refused for now")
            .fault("data=refuse:451 later")
            .to("anna@b.test")
            .fails_at("mail", "refused_now")
            .ends(EX_TEMPFAIL, "the server refused DATA: 451 later", "the server is busy"),
        check_case("the text is refused")
            .fault("text=refuse:554 spam")
            .to("anna@b.test")
            .fails_at("mail", "refused")
            .ends(EX_PROTOCOL, "the server refused the text: 554 spam", "do as the reply says"),
        check_case("the connection ends after the text")
            .fault("text=close")
            .to("anna@b.test")
            .fails_at("mail", "lost")
            .ends(EX_UNAVAILABLE, "the server closed the connection after the text",
                  "the server may have taken the mail")),
    case_name<check_case>);

TEST(Check, HasAdviceForAServerThatIsNotReached)
{
    closed_port const port;
    workplace const   work(port.number());
    outcome const     run = check(work);
    EXPECT_EQ(run.status, EX_UNAVAILABLE);
    EXPECT_EQ(steps_of(run.out), "settings look-up connect:FAILED");
    EXPECT_TRUE(contains(run.out, "the server was not found, or not reached\n")) << run.out;
    expect_said(run,
                "connect to 127.0.0.1:" + std::to_string(port.number()) + ": Connection refused",
                "if the connection is refused, no server listens there");
    EXPECT_TRUE(contains(run.err, "If it is reset, a firewall or the server ends it")) << run.err;
}

TEST(Check, HasAdviceForAServerThatIsNotFound)
{
    workplace const work(25);
    write_file(work.file("zelismes.cf"), "smtp_server = no name at all\r\nsmtp_port = 25\r\n");
    outcome const run = check(work);
    EXPECT_EQ(run.status, EX_UNAVAILABLE);
    EXPECT_EQ(steps_of(run.out), "settings look-up:FAILED");
    EXPECT_EQ(run.out.rfind("zelismes.cf, line 1, smtp_server: error: ", 0), 0U) << run.out;
    expect_said(run, "the host no name at all was not found", "is smtp_server spelled right?");
}

TEST(Check, HasAdviceForAServerThatIsSilent)
{
    loopback_program const server({"--fault", "smtp.greeting=silent"});
    workplace const        work(server.port("smtp"));
    outcome const          run = check(work);
    EXPECT_EQ(run.status, EX_UNAVAILABLE);
    EXPECT_EQ(steps_of(run.out), "settings look-up connect greeting:FAILED");
    expect_said(run, "no greeting from the server within 15 s", "is this an SMTP server");
}

TEST(Check, HasAdviceWithoutSettings)
{
    workplace const work(25);
    ::unlink(work.file("zelismes.cf").c_str());
    outcome const run = check(work);
    EXPECT_EQ(run.status, EX_CONFIG);
    EXPECT_EQ(steps_of(run.out), "settings:FAILED");
    EXPECT_EQ(run.out.rfind("zelismes.cf, error: ", 0), 0U) << run.out;
    expect_said(run, "settings: " + work.file("zelismes.cf") + " cannot be read: ",
                "set it with 'zelieml settings set'");
}

TEST(Check, HasAdviceForSettingsThatCannotBeRead)
{
    workplace const work(25);
    ::unlink(work.file("zelismes.cf").c_str());
    ASSERT_EQ(::mkfifo(work.file("zelismes.cf").c_str(), 0600), 0);
    outcome const run = check(work);
    EXPECT_EQ(run.status, EX_CONFIG);
    EXPECT_EQ(steps_of(run.out), "settings:FAILED");
    expect_said(run, "settings: " + work.file("zelismes.cf") + " is not a regular file",
                "the settings file has to be a regular file that this user may read");
}

TEST(Check, SaysThatThePathIsTooLong)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    std::string     path = work.path();
    while (path.size() < 230) {
        path += "/" + std::string(60, 'd');
        ASSERT_EQ(::mkdir(path.c_str(), 0777), 0);
    }
    write_file(path + "/zelismes.cf", read_file(work.file("zelismes.cf")));
    outcome const run = run_zelieml({"check", "-w", path});
    EXPECT_EQ(run.status, EX_CANTCREAT);
    expect_said(run, "the message cannot be saved in " + path + ": the path is too long",
                "use a shorter path");
}

TEST(Check, SaysThatTheMailCannotBeSaved)
{
    SKIP_UNLESS(all_may_start(ZELIEML_PROGRAM), "another user cannot start the program");
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run =
        run_without_rights(work, {"check", "-w", work.path(), "--to", "anna@b.test"}, "");
    EXPECT_EQ(run.status, EX_CANTCREAT);
    std::string const steps = "settings message:FAILED look-up connect greeting helo";
    EXPECT_EQ(steps_of(run.out), steps + " sender recipient reset offer:remark quit");
    std::string const reason = std::string("the message cannot be saved in ") + work.path();
    expect_said(run, reason + ": Permission denied", "make room on the disk");
    EXPECT_TRUE(server.mails().empty());

    outcome const as_json = run_without_rights(work, {"check", "-w", work.path(), "--json"}, "");
    EXPECT_EQ(as_json.status, EX_CANTCREAT);
    EXPECT_EQ(as_json.err, run.err);
    EXPECT_EQ(as_json.out.rfind("{\"ok\":false,", 0), 0U) << as_json.out;
    EXPECT_TRUE(contains(without_times(as_json.out),
                         "{\"name\":\"message\",\"server\":\"\",\"outcome\":\"failed\",\"number\":"
                         "100,\"cause\":\"file\",\"seconds\":0.0,\"reply\":\"\",\"reason\":\"" +
                             reason))
        << as_json.out;
}

TEST(Check, PrintsJsonWhenItCouldNotBegin)
{
    outcome const run = run_zelieml({"check", "-w", "/no/such", "--json"});
    EXPECT_EQ(run.status, EX_NOINPUT);
    std::string const reason =
        "the work directory /no/such: No such file or directory: make it, or "
        "name another one with -w";
    EXPECT_EQ(run.err, "zelieml: " + reason + "\n");
    EXPECT_EQ(without_times(run.out),
              "{\"ok\":false,\"steps\":[{\"name\":\"message\",\"server\":\"\",\"outcome\":"
              "\"failed\",\"number\":100,\"cause\":\"file\",\"seconds\":0.0,\"reply\":\"\","
              "\"reason\":\"" +
                  reason + "\"}],\"advice\":\"do as the reason says\",\"findings\":[]}\n");

    workplace const work(25);
    outcome const   wrong = check(work, {"--to", "Anna <anna@b.test>", "--json"});
    EXPECT_EQ(wrong.status, EX_DATAERR);
    EXPECT_EQ(wrong.out.rfind("{\"ok\":false,\"steps\":[{\"name\":\"message\"", 0), 0U)
        << wrong.out;
    EXPECT_TRUE(contains(wrong.out, "\"cause\":\"message\"")) << wrong.out;
}

TEST(Check, ShowsNoControlCharacters)
{
    loopback_program const server({"--fault", "helo=refuse:550 \x1b[1mno"});
    workplace const        work(server.port("smtp"));
    outcome const          run = check(work);
    EXPECT_TRUE(contains(run.out, "  550 ?[1mno\n")) << run.out;
    expect_said(run, "the server refused HELO: 550 ?[1mno", "the server does not like");
}

TEST(Check, ShowsNothingThatTurnsTheTextRound)
{
    loopback_program const server({"--fault", "helo=refuse:550 \u200ea\u200fb\u202ac\u202ed\u2066e"
                                              "\u2069f\u2065\u200d\u2010"});
    workplace const        work(server.port("smtp"));
    outcome const          run = check(work);
    EXPECT_TRUE(contains(run.out, "  550 ?a?b?c?d?e?f\u2065\u200d\u2010\n")) << run.out;
}

TEST(Check, RefusesWhatIsNoAddress)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    for (char const* const address :
         {"", "anna@b.test, ben@b.test", "Anna <anna@b.test>", "a\nb"}) {
        outcome const run = check(work, {"--to", address});
        EXPECT_EQ(run.status, EX_DATAERR) << address;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.rfind("zelieml: --to: ", 0), 0U) << run.err;
    }
    EXPECT_TRUE(server.sessions().empty());
}

}  // namespace

}  // namespace zelieml::test
