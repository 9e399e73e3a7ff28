// probe_reasons_test.cpp - what a probe says of a step that fails

#include <string>

#include "tests/libsendw/probe_room.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

// A probe with the usual settings and a recipient, unless it says otherwise. It fails.
struct reason_case : named_case {
    using named_case::named_case;

    reason_case& with(std::string const& key, std::string const& value)
    {
        settings.set(key, value);
        return *this;
    }
    reason_case& without(std::string const& key)
    {
        settings.remove(key);
        return *this;
    }
    reason_case& smtp(std::string const& transcript)
    {
        smtp_transcript = transcript;
        return *this;
    }
    reason_case& pop(std::string const& transcript)
    {
        pop_transcript = transcript;
        return with("pop_before_smtp", "yes");
    }
    // {file} is the settings file.
    reason_case& because(std::string const& its_reason)
    {
        reason = its_reason;
        return *this;
    }

    // The cause, and the step that fails.
    reason_case& by(eml_cause its_cause, std::string const& its_step)
    {
        cause = its_cause;
        step  = its_step;
        return *this;
    }

    probe_settings settings;
    std::string    smtp_transcript;
    std::string    pop_transcript;
    std::string    reason;
    eml_cause      cause = eml_cause_none;
    std::string    step;
};

class ProbeReason : public on_a_clean_machine_with<reason_case>
{
};

TEST_P(ProbeReason, IsThatOfTheStepThatFails)
{
    reason_case const& c = GetParam();
    local_server       server(c.smtp_transcript);
    local_server       pop_server(c.pop_transcript);
    probe_room const   room(c.settings, server.port(), pop_server.port());
    reset_waits_until([&] { return server.fell_silent() || pop_server.fell_silent(); });

    std::string       reason = c.reason;
    std::size_t const file   = reason.find("{file}");
    if (file != std::string::npos) {
        reason.replace(file, 6, room.workdir() + "/zelismes.cf");
    }
    told_steps steps;
    EXPECT_EQ(room.probe(steps, "reply@a.test", "x@b.test"), -1);
    for (told_step const& step : steps.all()) {
        bool const failed = step.outcome == eml_probe_failed;
        EXPECT_EQ(step.reason, failed ? reason : "") << step.name;
        EXPECT_EQ(step.cause, failed ? c.cause : eml_cause_none) << step.name;
    }
    EXPECT_EQ(steps.all().back().name, c.step);
}

std::vector<reason_case> reason_cases()
{
    std::string const refusal = "550 not for you";
    std::string const stamp   = "S: +OK <1.2@a.test>\n";
    return {
        reason_case("smtp_port missing")
            .without("smtp_port")
            .because("settings: smtp_port is missing in {file}")
            .by(eml_cause_settings, "settings"),
        reason_case("pop_passwd missing")
            .with("pop_before_smtp", "yes")
            .without("pop_passwd")
            .because("settings: pop_passwd is missing in {file}")
            .by(eml_cause_settings, "settings"),
        reason_case("a password that cannot be decrypted")
            .with("smtp_auth", "yes")
            .with("passwd_raw", "no")
            .with("smtp_passwd", "ABC")
            .because("settings: smtp_passwd in {file} cannot be decrypted")
            .by(eml_cause_settings, "settings"),
        reason_case("an unknown host")
            .with("smtp_server", "no.such.host.test")
            .because("the host no.such.host.test was not found")
            .by(eml_cause_unreachable, "look-up"),
        reason_case("no service")
            .smtp("S: 554 no service\n" + hangs_up)
            .because("the server refused the connection: 554 no service")
            .by(eml_cause_refused, "greeting"),
        reason_case("no greeting")
            .smtp("S: (silent)\n")
            .because("no greeting from the server within 15 s")
            .by(eml_cause_lost, "greeting"),
        reason_case("helo refused")
            .smtp(greeted + refused_at("helo {host}", refusal))
            .because("the server refused HELO: 550 not for you")
            .by(eml_cause_refused, "helo"),
        reason_case("ehlo not answered")
            .with("smtp_auth", "yes")
            .smtp(greeted + answered("ehlo {host}", "(silent)"))
            .because("no answer to EHLO within 15 s")
            .by(eml_cause_lost, "ehlo"),
        reason_case("login refused, with the password in the reply")
            .with("smtp_auth", "yes")
            .smtp(ehlo("AUTH PLAIN") +
                  refused_at("AUTH PLAIN {base64:\\0joe\\0secret}", "535 not secret"))
            .because("the server refused the login of joe: 535 not ***")
            .by(eml_cause_refused, "login"),
        reason_case("the sender refused")
            .smtp(helo + refused_at("mail from: <reply@a.test>", refusal))
            .because("the server refused the sender reply@a.test: 550 not for you")
            .by(eml_cause_refused, "sender"),
        reason_case("the recipient refused")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", refusal))
            .because("the server refused the recipient x@b.test: 550 not for you")
            .by(eml_cause_refused, "recipient"),
        reason_case("the recipient refused for now")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "451 later"))
            .because("the server refused the recipient x@b.test: 451 later")
            .by(eml_cause_refused_now, "recipient"),
        reason_case("an unknown POP3 host")
            .with("pop_before_smtp", "yes")
            .with("pop_server", "no.such.host.test")
            .because("the host no.such.host.test was not found")
            .by(eml_cause_unreachable, "pop look-up"),
        reason_case("a POP3 user refused")
            .pop(pop_greeted + refused_at("user anna", "-ERR who?"))
            .because("the POP3 server refused the user anna: -ERR who?")
            .by(eml_cause_refused, "pop login"),
        reason_case("a POP3 password refused")
            .pop(pop_greeted + answered("user anna", "+OK") +
                 refused_at("pass secret", "-ERR no secret"))
            .because("the POP3 server refused the password of anna: -ERR no ***")
            .by(eml_cause_refused, "pop login"),
        reason_case("APOP refused")
            .with("pop_auth_type", "apop")
            .pop(stamp + refused_at("apop anna {any}", "-ERR no"))
            .because("the POP3 server refused APOP for anna: -ERR no")
            .by(eml_cause_refused, "pop login"),
        reason_case("POP3 QUIT answered by closing")
            .pop(pop_login() + lost_at("quit"))
            .because("the POP3 server closed the connection after POP3 QUIT")
            .by(eml_cause_lost, "pop quit"),
    };
}

INSTANTIATE_TEST_SUITE_P(Cases, ProbeReason, testing::ValuesIn(reason_cases()),
                         case_name<reason_case>);

class ProbeReasons : public on_a_clean_machine
{
};

}  // namespace

TEST_F(ProbeReasons, NameTheServerThatIsNotReached)
{
    closed_port const port;
    probe_room const  room(probe_settings(), port.number(), 0);
    told_steps        steps;
    EXPECT_EQ(room.probe(steps), -1);
    EXPECT_EQ(steps.lines(), "settings ok\nlook-up ok\nconnect failed 1001\n");
    EXPECT_EQ(steps.all().back().reason,
              "connect to 127.0.0.1:" + std::to_string(port.number()) + ": Connection refused");
    EXPECT_EQ(steps.all().back().cause, eml_cause_unreachable);
}

}  // namespace zelieml::test
