// receive_command_test.cpp - zelieml receive

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sysexits.h>

#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/scripted_server.h"
#include "tests/support/skip.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/terminal_program.h"
#include "tests/tools/zelieml/zelieml_program.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

using nlohmann::json;

char const* const encoded_mail = "From: =?utf-8?Q?J=C3=B6rg?= <joerg@office.test>\r\n"
                                 "Subject: =?utf-8?B?w6RvIOKCrA==?=\r\n =?utf-8?Q?_two?=\r\n"
                                 "Message-ID: <42@office.test>\r\n"
                                 "Date: Sun, 22 Nov 2026 08:00:00 +0000\r\n"
                                 "\r\n"
                                 "text\r\n";

char const* const plain_mail =
    "From: eve@other.test\r\nSubject: clear \033[2J\tscreen\r\n\r\n.\r\n";

mailserver::options options_for(std::string const& user, std::string const& password)
{
    mailserver::options options;
    options.users = {{user, password}};
    return options;
}

class ReceiveCommand : public testing::Test
{
protected:
    ReceiveCommand() : server(options_for("anna", "geheim")) {}

    strings command(strings const& more = {}) const
    {
        strings words = {"receive",   "--delete", "--host",
                         "127.0.0.1", "--port",   std::to_string(server.pop_port()),
                         "--user",    "anna"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    mail_server       server;
    set_for_now const utf8{"LC_ALL", "C.UTF-8"};
};

TEST_F(ReceiveCommand, PrintsSendersAndSubjectsAndEmptiesTheMailbox)
{
    server.put(encoded_mail);
    server.put(plain_mail);
    outcome const run = run_zelieml(command(), "geheim\n");
    EXPECT_EQ(run.status, EX_OK) << run.err;
    EXPECT_EQ(run.out, "J\u00f6rg <joerg@office.test>\t\u00e4o \u20ac two\n"
                       "eve@other.test\tclear  [2J screen\n");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(server.mailbox().empty());

    outcome const empty = run_zelieml(command(), "geheim\n");
    EXPECT_EQ(empty.status, EX_OK) << empty.err;
    EXPECT_EQ(empty.out + empty.err, "");
}

TEST_F(ReceiveCommand, PrintsJson)
{
    server.put(encoded_mail);
    outcome const run = run_zelieml(command({"--json"}), "geheim\n");
    EXPECT_EQ(run.status, EX_OK) << run.err;
    json const all = json::parse(run.out);
    ASSERT_EQ(all["mails"].size(), 1U);
    EXPECT_EQ(all["mails"][0]["sender"], "J\u00f6rg <joerg@office.test>");
    EXPECT_EQ(all["mails"][0]["subject"], "\u00e4o \u20ac two");
    EXPECT_EQ(all["mails"][0]["message_id"], "<42@office.test>");
    EXPECT_EQ(all["mails"][0]["date"], "Sun, 22 Nov 2026 08:00:00 +0000");
    EXPECT_EQ(all["cause"], "none");
    EXPECT_EQ(json::parse(run_zelieml(command({"--json"}), "geheim").out)["mails"], json::array());
}

TEST_F(ReceiveCommand, PrintsMailsOfSomeDomains)
{
    server.put(encoded_mail);
    server.put(plain_mail);
    server.put("From: x@third.test\r\nSubject: third\r\n\r\n");
    outcome const run =
        run_zelieml(command({"--domain", "third.test", "--domain", "other.test"}), "geheim");
    EXPECT_EQ(run.status, EX_OK) << run.err;
    EXPECT_EQ(run.out, "eve@other.test\tclear  [2J screen\nx@third.test\tthird\n");
    EXPECT_TRUE(server.mailbox().empty());
}

TEST_F(ReceiveCommand, LogsInWithApop)
{
    server.put(encoded_mail);
    EXPECT_EQ(run_zelieml(command({"--apop"}), "geheim").status, EX_OK);
    ASSERT_FALSE(server.sessions().empty());
    EXPECT_NE(server.sessions()[0].find("C: apop anna "), std::string::npos);
    EXPECT_TRUE(server.mailbox().empty());
}

TEST_F(ReceiveCommand, AsksForThePassword)
{
    server.put(encoded_mail);
    terminal_program run(zelieml_command(command()));
    ASSERT_TRUE(run.wait_for("Password: "));
    EXPECT_FALSE(run.echoes());
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK) << run.err();
    EXPECT_EQ(run.shown(), "Password: \r\n");
    EXPECT_NE(run.out().find("joerg@office.test"), std::string::npos);
}

TEST_F(ReceiveCommand, DeletesNothingWithoutConsent)
{
    server.put(encoded_mail);
    strings words = command();
    words.erase(words.begin() + 1);
    outcome const run = run_zelieml(words);
    EXPECT_EQ(run.status, EX_USAGE);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("deletes every mail"), std::string::npos) << run.err;
    EXPECT_EQ(server.mailbox().size(), 1U);
    EXPECT_TRUE(server.sessions().empty());
}

TEST_F(ReceiveCommand, RefusesWhatIsNotMeant)
{
    server.put(encoded_mail);
    temp_dir const settings;
    for (auto const& [key, value] : {std::pair<char const*, std::string>("pop_server", "127.0.0.1"),
                                     {"pop_port", std::to_string(server.pop_port())},
                                     {"pop_account", "anna"},
                                     {"pop_passwd", "geheim"},
                                     {"passwd_raw", "yes"}}) {
        EXPECT_EQ(eml_cf_set_string(key, value.c_str(), settings.file("zelismes.cf").c_str()), 0);
    }
    strings const wrong[] = {
        command({"--domain", ""}),
        command({"--domain", "a.test,"}),
        command({"--domain", "a.test b.test"}),
        {"receive", "--delete", "--host", "127.0.0.1", "--user", "anna\r\ndele 1"},
        {"receive", "--delete", "--host", "127.0.0.1\r", "--user", "anna"},
        {"receive", "--delete", "--host", "127.0.0.1", "--user", ""},
        {"receive", "--delete", "--host", "127.0.0.1", "--user", "anna", "--port", "0"},
        command({"--password", "geheim"}),
        command({"--password=geheim"}),
        command({"geheim"}),
        {"receive", "--delete"},
        {"receive", "--delete", "--host", "127.0.0.1"},
        {"receive", "--delete", "--user", "anna"},
        {"receive", "--delete", "-w", settings.path(), "--host", ""},
        {"receive", "--delete", "-w", settings.path(), "--user", ""},
        {"receive", "--delete", "-w", settings.path(), "--host", "", "--user", ""},
        {"receive", "--delete", "-w", settings.path(), "--user", "anna"},
        {"receive", "--delete", "-w", settings.path(), "--apop"},
        {"receive", "--delete", "-w", settings.path(), "--port", "110"},
    };
    for (strings const& words : wrong) {
        SCOPED_TRACE(words.back());
        outcome const run = run_zelieml(words);  // which must not come to ask for a password
        EXPECT_EQ(run.status, EX_USAGE) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.find("geheim"), std::string::npos) << run.err;
    }
    EXPECT_EQ(server.mailbox().size(), 1U);
    EXPECT_TRUE(server.sessions().empty());
}

TEST_F(ReceiveCommand, SaysWhatGoesWithAServer)
{
    for (char const* const option : {"--apop", "--port=110", "--user=anna"}) {
        std::string const text(option);
        outcome const     run = run_zelieml({"receive", "--delete", "-w", "/", text});
        EXPECT_EQ(run.status, EX_USAGE);
        EXPECT_NE(run.err.find(text.substr(0, text.find('=')) + " goes with --host only"),
                  std::string::npos)
            << run.err;
    }
}

TEST_F(ReceiveCommand, NeedsNoWorkDirectoryBesideAServer)
{
    set_for_now const environment("ZELIEML_WORKDIR", "/nowhere");
    server.put(encoded_mail);
    EXPECT_EQ(run_zelieml(command(), "geheim").status, EX_OK);
    EXPECT_TRUE(server.mailbox().empty());
    EXPECT_EQ(run_zelieml({"receive", "--delete"}).status, EX_NOINPUT);
}

TEST_F(ReceiveCommand, DeletesNothingThatItCouldNotPrint)
{
    server.put(encoded_mail);
    temp_dir const    dir;
    std::string const gone = "'" + dir.file("gone") + "'";
    for (std::string const& redirection :
         {std::string(">&-"), std::string("1</dev/null"), std::string(">/dev/full"),
          "| { exec <&-; touch " + gone + "; }"}) {
        SCOPED_TRACE(redirection);
        if (redirection == ">/dev/full" && ::access("/dev/full", W_OK) != 0) {
            continue;  // a system without such a device
        }
        bool const        piped = redirection[0] == '|';
        std::string const wait  = piped ? "until test -e " + gone + "; do sleep 0.02; done; " : "";
        strings           words = {"/bin/sh", "-c",
                                   "{ " + wait + "echo geheim; } | { \"$0\" \"$@\"; echo $? >&2; } " +
                                       redirection};
        strings const     ask   = zelieml_command(command());
        words.insert(words.end(), ask.begin(), ask.end());
        program run(words);
        run.wait();
        EXPECT_NE(run.err().find("standard output"), std::string::npos) << run.err();
        EXPECT_NE(run.err().find("\n" + std::to_string(EX_CANTCREAT) + "\n"), std::string::npos)
            << run.err();
    }
    EXPECT_EQ(server.mailbox().size(), 1U);
    EXPECT_TRUE(server.sessions().empty());
}

TEST_F(ReceiveCommand, SaysThatTheLoginWasRefused)
{
    server.put(encoded_mail);
    outcome const run = run_zelieml(command({"--json"}), "falsch");
    EXPECT_EQ(run.status, EX_NOPERM);
    EXPECT_NE(run.err.find("the password of anna"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("falsch"), std::string::npos) << run.err;
    json const all = json::parse(run.out);
    EXPECT_EQ(all["mails"], json::array());
    EXPECT_EQ(all["cause"], "refused");
    EXPECT_EQ(all["step"], "pop login");
    EXPECT_EQ(all["number"], 2005);
    EXPECT_EQ(server.mailbox().size(), 1U);
}

TEST_F(ReceiveCommand, TakesTheMailboxFromTheSettings)
{
    for (bool const clear : {false, true}) {
        temp_dir const    dir;
        std::string const path = dir.file("zelismes.cf");
        auto const        set  = [&](char const* key, std::string const& value) {
            EXPECT_EQ(eml_cf_set_string(key, value.c_str(), path.c_str()), 0);
        };
        outcome const missing = run_zelieml({"receive", "--delete", "-w", dir.path()});
        EXPECT_EQ(missing.status, EX_CONFIG);
        set("pop_server", "127.0.0.1");
        set("pop_account", "anna");
        set("pop_auth_type", clear ? "apop" : "pop");
        set("passwd_raw", clear ? "yes" : "no");
        outcome const no_port = run_zelieml({"receive", "--delete", "-w", dir.path()});
        EXPECT_EQ(no_port.status, EX_CONFIG);
        EXPECT_NE(no_port.err.find("pop_port is missing"), std::string::npos) << no_port.err;
        set("pop_port", "25x");
        EXPECT_EQ(run_zelieml({"receive", "--delete", "-w", dir.path()}).status, EX_CONFIG);
        set("pop_port", std::to_string(server.pop_port()));
        outcome const no_password = run_zelieml({"receive", "--delete", "-w", dir.path()});
        EXPECT_EQ(no_password.status, EX_CONFIG);
        EXPECT_NE(no_password.err.find("pop_passwd"), std::string::npos) << no_password.err;

        EXPECT_EQ(run_zelieml({"settings", "set", "pop_passwd", "-w", dir.path()}, "geheim").status,
                  EX_OK);
        server.put(encoded_mail);
        outcome const run = run_zelieml({"receive", "--delete", "-w", dir.path()});
        EXPECT_EQ(run.status, EX_OK) << run.err;
        EXPECT_NE(run.out.find("joerg@office.test"), std::string::npos);
        EXPECT_TRUE(server.mailbox().empty());
        EXPECT_EQ(
            run_zelieml({"receive", "--delete", "-w", dir.path(), "--password-fd", "0"}, "falsch")
                .status,
            EX_NOPERM);

        set("pop_passwd", "");
        EXPECT_EQ(run_zelieml({"receive", "--delete", "-w", dir.path()}).status, EX_CONFIG);
    }
}

TEST_F(ReceiveCommand, NeedsTheAuthoritiesThatItIsGiven)
{
    outcome const run = run_zelieml(command({"--tls", "tls", "--ca-file", "no/such"}), "geheim");
    EXPECT_EQ(run.status, EX_NOINPUT);
    EXPECT_NE(run.err.find("--ca-file no/such: No such file"), std::string::npos) << run.err;
    EXPECT_TRUE(server.sessions().empty());
}

class ReceiveWithSettings : public ReceiveCommand
{
protected:
    outcome run_with(std::string const& lines) const
    {
        temp_dir const dir;
        write_file(dir.file("zelismes.cf"),
                   "pop_server = 127.0.0.1\r\npop_port = " + std::to_string(server.pop_port()) +
                       "\r\npop_account = anna\r\npop_passwd = geheim\r\npasswd_raw = yes\r\n" +
                       lines);
        return run_zelieml({"receive", "--delete", "-w", dir.path()});
    }
};

TEST_F(ReceiveWithSettings, SaysNothingInClearWhereTlsIsAskedFor)
{
    SKIP_UNLESS(ZELIEML_HAS_TLS, "built without the plug-in for TLS");
    for (std::string const way : {"tls", "starttls"}) {
        for (outcome const& run : {run_zelieml(command({"--tls", way}), "geheim"),
                                   run_with("pop_tls = " + way + "\r\n")}) {
            EXPECT_EQ(run.status, EX_UNAVAILABLE) << run.err;
            EXPECT_NE(run.err.find("TLS: "), std::string::npos) << run.err;
        }
    }
    strings const sessions = server.sessions();
    EXPECT_EQ(sessions.size(), 4U);
    for (std::string const& session : sessions) {
        EXPECT_EQ(session.find("anna"), std::string::npos) << session;
    }
}

struct tls_lines {
    char const* name;
    std::string lines;  // of the settings
    bool        is_clear;
};

TEST_F(ReceiveWithSettings, LogsInInClearOnlyIfNoLineMayMeanTls)
{
    std::string const overlong = std::string(1200, 'x') + "\r\n";
    std::string const nul(1, '\0');
    tls_lines const   cases[] = {
          {"no setting", "", true},
          {"no", "pop_tls = no\r\n", true},
          {"written twice", "pop_tls\t=no\r\npop_tls\t=no\r\n", true},
          {"a comment", "#pop_tls = tls\r\npop_tls = no\r\n", true},
          {"above another", "pop_tls = no\r\npop_tls = tls\r\n", false},
          {"behind a blank", " pop_tls = no\r\n", false},
          {"behind a blank, above another", " pop_tls = no\r\npop_tls = tls\r\n", false},
          {"above a hidden one", "pop_tls = no\r\n" + overlong + "pop_tls = tls\r\n", false},
          {"hidden", overlong + "pop_tls = no\r\n", false},
          {"in front of a NUL", "pop_tls = no\r" + nul + "\r\n", false},
          {"behind a NUL", "pop_tls = no\r\nx" + nul + "pop_tls = no\r\n", false},
          {"in a value", "pop_tls = no\r\nx = pop_tls\r\n", false},
          {"without a sign", "pop_tls\r\n", false},
          {"without CR", "pop_tls = no", false},
          {"authorities twice", "tls_ca_file = /a\r\ntls_ca_file = /b\r\n", false},
    };
    for (auto const& [name, lines, is_clear] : cases) {
        SCOPED_TRACE(name);
        std::size_t const before = server.sessions().size();
        outcome const     run    = run_with(lines);
        EXPECT_EQ(run.status, is_clear ? EX_OK : EX_CONFIG) << run.err;
        EXPECT_EQ(server.sessions().size(), before + (is_clear ? 1 : 0));
    }
}

TEST_F(ReceiveCommand, PrintsJsonWhenItCouldNotBegin)
{
    outcome const lost = run_zelieml({"receive", "--delete", "-w", "/no/such", "--json"});
    EXPECT_EQ(lost.status, EX_NOINPUT);
    json const all = json::parse(lost.out);
    EXPECT_EQ(all["mails"], json::array());
    EXPECT_EQ(all["number"], 100);
    EXPECT_EQ(all["cause"], "file");
    EXPECT_EQ(all["step"], "");
    EXPECT_EQ("zelieml: " + all["reason"].get<std::string>() + "\n", lost.err);

    temp_dir const dir;
    outcome const  unset = run_zelieml({"receive", "--delete", "-w", dir.path(), "--json"});
    EXPECT_EQ(unset.status, EX_CONFIG);
    EXPECT_EQ(json::parse(unset.out)["cause"], "settings");
    EXPECT_EQ(json::parse(unset.out)["step"], "settings");

    EXPECT_EQ(run_zelieml({"receive", "-w", dir.path(), "--json"}).out, "") << "wrong usage";
}

// A conversation for which there is no server.
outcome receive_from(scripted_server const& server, strings const& more = {})
{
    strings words = {"receive",   "--delete", "--host",
                     "127.0.0.1", "--port",   std::to_string(server.port()),
                     "--user",    "anna"};
    words.insert(words.end(), more.begin(), more.end());
    return run_zelieml(words, "geheim");
}

char const* const logged_in = "S: +OK ready\nC: user anna\nS: +OK\nC: pass geheim\nS: +OK\n";

TEST(ReceiveFailure, PrintsWhatCameBefore)
{
    scripted_server server(std::string(logged_in) +
                           "C: stat\nS: +OK 2 200\nC: retr 1\nS: +OK\nS: From: a@b.test\n"
                           "S: Subject: first\nS:\nS: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK\n"
                           "C: (closes)\nC: (connects)\nS: (closes)\n");
    outcome const   run = receive_from(server);
    EXPECT_EQ(run.status, EX_UNAVAILABLE) << run.err;
    EXPECT_EQ(run.out, "a@b.test\tfirst\n");
    EXPECT_NE(run.err.find("closed the connection"), std::string::npos) << run.err;
    EXPECT_TRUE(server.ok()) << server.problem();
}

TEST(ReceiveFailure, HasAStatusForEachCause)
{
    struct {
        std::string talk;
        int         status;
    } const cases[] = {
        {"S: +OK\nC: user anna\nS: -ERR [IN-USE] later\n", EX_TEMPFAIL},
        {"S: +OK\nC: user anna\nS: -ERR no\n", EX_NOPERM},
        {std::string(logged_in) + "C: stat\nS: -ERR no\n", EX_PROTOCOL},
        {"S: (closes)\n", EX_UNAVAILABLE},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.talk);
        scripted_server server(c.talk);
        outcome const   run = receive_from(server);
        EXPECT_EQ(run.status, c.status) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.substr(0, 9), "zelieml: ");
    }
}

// One session, in which no password is sent.
TEST(ReceiveFailure, EndsAtAServerThatIsNoneOfPop3)
{
    std::string const greeting = "S: 220 mail.test ESMTP\nC: (closes)\n";
    scripted_server   server(greeting);
    outcome const     run = receive_from(server);
    EXPECT_EQ(run.status, EX_PROTOCOL);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "zelieml: the POP3 server does not greet as one: 220 mail.test ESMTP: this "
                       "is no POP3 server, compare host and port (--host, --port; pop_server, "
                       "pop_port) with what its administrator says\n");
    EXPECT_TRUE(server.ok()) << server.problem();
    EXPECT_EQ(server.connections(), 1);

    scripted_server again(greeting);
    outcome const   as_json = receive_from(again, {"--json"});
    EXPECT_EQ(as_json.status, EX_PROTOCOL);
    EXPECT_EQ(as_json.err, run.err);
    json const all = json::parse(as_json.out);
    EXPECT_EQ(all["mails"], json::array());
    EXPECT_EQ(all["cause"], "protocol");
    EXPECT_EQ(all["step"], "pop greeting");
    EXPECT_EQ(all["number"], 2002);
    EXPECT_EQ(all["reply"], "220 mail.test ESMTP");
}

TEST(ReceiveFailure, RepeatsNoPassword)
{
    scripted_server server(
        "S: +OK\nC: user anna\nS: +OK\nC: pass geheim\nS: -ERR geheim is wrong\n");
    outcome const run = receive_from(server, {"--json"});
    EXPECT_EQ(run.status, EX_NOPERM);
    EXPECT_EQ((run.out + run.err).find("geheim"), std::string::npos) << run.out << run.err;
    EXPECT_EQ(json::parse(run.out)["reply"], "-ERR *** is wrong");
}

TEST(ReceiveFailure, NeedsAServer)
{
    // Bound, and nobody listens.
    unique_fd const     nobody(::socket(AF_INET, SOCK_STREAM, 0));
    std::uint16_t const port = bind_somewhere(nobody.get());
    outcome const       run  = run_zelieml({"receive", "--delete", "--host", "127.0.0.1", "--port",
                                            std::to_string(port), "--user", "anna"},
                                           "geheim");
    EXPECT_EQ(run.status, EX_UNAVAILABLE);
    EXPECT_NE(run.err.find("connect to 127.0.0.1"), std::string::npos) << run.err;
}

}  // namespace

}  // namespace zelieml::test
