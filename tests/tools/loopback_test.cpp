// The loopback mail server as a developer starts it.

#include <chrono>
#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/dialogues.h"
#include "tests/support/files.h"
#include "tests/support/loopback_program.h"
#include "tests/support/scripted_client.h"

namespace zelieml::test
{

namespace
{

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

using loopback = loopback_program;

std::string const one_mail = smtp_opened + mail_begun({"b@b.test", "c@b.test"}) + R"(
    C: Subject: hello
    C:
    C: body
    C: .
    S: 250 {any}
    C: QUIT
    S: 221 {any}
    S: (closes)
)";

void expect_talk(std::uint16_t port, std::string const& transcript)
{
    dialogue const d = talk(port, transcript);
    EXPECT_EQ(d.came, d.wanted);
}

}  // namespace

TEST(Loopback, PrintsItsPortsServesAndEndsBySignal)
{
    for (int const number : {SIGTERM, SIGINT}) {
        loopback server({"--port", "0"});
        expect_talk(server.port("smtp"), one_mail);
        expect_talk(server.port("pop3"), R"(
            S: +OK {any}
            C: USER user
            S: +OK {any}
            C: PASS password
            S: +OK welcome, 1 24
            C: QUIT
            S: +OK {any}
            S: (closes)
        )");
        std::string const expected = "smtp 127.0.0.1:" + std::to_string(server.port("smtp")) +
                                     "\npop3 127.0.0.1:" + std::to_string(server.port("pop3")) +
                                     "\n";
        server.signal(number);
        EXPECT_EQ(server.wait(), 0);
        EXPECT_EQ(server.out(), expected);
        EXPECT_EQ(server.err(), "");
    }
}

TEST(Loopback, EndsBySignalWhileClientsAreThere)
{
    loopback           server({"--fault", "noop=delay:60000"});
    mailserver::stream idle = connect_to(server.port("smtp"));
    mailserver::stream held = connect_to(server.port("pop3"));
    hear_line(idle);
    hear_line(held);
    idle.write("NOOP\r\n");
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(hear_line(held), "(closed)");
}

TEST(Loopback, TakesThePortsItIsGiven)
{
    std::uint16_t smtp = 0;
    std::uint16_t pop  = 0;
    {
        mailserver::listener one(0);
        mailserver::listener two(0);
        smtp = one.port();
        pop  = two.port();
    }
    loopback server({"--smtp-port", std::to_string(smtp), "--pop-port=" + std::to_string(pop)});
    EXPECT_EQ(server.port("smtp"), smtp);
    EXPECT_EQ(server.port("pop3"), pop);
}

TEST(Loopback, WritesTheReadyFile)
{
    temp_dir dir;
    loopback server({"--ready-file", dir.file("ready")});
    server.port("smtp");
    EXPECT_TRUE(wait_until([&] { return file_exists(dir.file("ready")); }));
    EXPECT_EQ(read_file(dir.file("ready")), server.out());
    EXPECT_EQ(list_directory(dir.path()), std::vector<std::string>{"ready"});
}

TEST(Loopback, KeepsMailsInAMaildir)
{
    temp_dir dir;
    loopback server({"--maildir", dir.file("box")});
    expect_talk(server.port("smtp"), one_mail);
    auto const names = list_directory(dir.file("box/new"));
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(read_file(dir.file("box/new/" + names[0])), "Subject: hello\r\n\r\nbody\r\n");
}

TEST(Loopback, KnowsItsUsersAndWhatTheyMayUse)
{
    loopback server({"--user", "tim", "--password", "tanstaaftanstaaf", "--user", "ann",
                     "--password", "-x,y [z]", "--auth", "login,plain", "--require-auth",
                     "--pop-auth", "user"});
    expect_talk(server.port("smtp"), R"(
        S: 220 {any}
        C: EHLO c
        S: 250-localhost
        S: 250-PIPELINING
        S: 250-8BITMIME
        S: 250-AUTH LOGIN PLAIN
        S: 250-{any}
        S: 250 {any}
        C: MAIL FROM:<a@a.test>
        S: 530 {any}
        C: AUTH PLAIN {base64:\0user\0password}
        S: 535 {any}
        C: AUTH PLAIN {base64:\0ann\0-x,y [z]}
        S: 235 {any}
    )");
    expect_talk(server.port("pop3"), R"(
        S: +OK loopback mail server ready
        C: USER tim
        S: +OK {any}
        C: PASS tanstaaftanstaaf
        S: +OK {any}
    )");
}

TEST(Loopback, OffersNoAuthenticationWhenToldSo)
{
    loopback server({"--auth", "none"});
    expect_talk(server.port("smtp"), R"(
        S: 220 {any}
        C: EHLO c
        S: 250-localhost
        S: 250-PIPELINING
        S: 250-8BITMIME
        S: 250-ENHANCEDSTATUSCODES
        S: 250 {any}
    )");
}

TEST(Loopback, ShowsConversationsAndEnvelopes)
{
    loopback server({"--show", "--show-lines", "1", "--envelope"});
    expect_talk(server.port("smtp"), one_mail);
    server.wait_for("S: (closes)\n");
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    std::string const all = server.out();
    EXPECT_EQ(all.substr(all.find("[1 smtp]")), R"([1 smtp] C: (connects)
[1 smtp] S: 220 localhost ESMTP loopback mail server ready
[1 smtp] C: HELO c
[1 smtp] S: 250 localhost
[1 smtp] C: MAIL FROM:<a@a.test>
[1 smtp] S: 250 2.1.0 sender ok
[1 smtp] C: RCPT TO:<b@b.test>
[1 smtp] S: 250 2.1.5 recipient ok
[1 smtp] C: RCPT TO:<c@b.test>
[1 smtp] S: 250 2.1.5 recipient ok
[1 smtp] C: DATA
[1 smtp] S: 354 end the text with a line that is a single dot
[1 smtp] C: Subject: hello
[1 smtp] # 2 more lines
[1 smtp] C: .
mail from:<a@a.test> to:<b@b.test> to:<c@b.test> bytes:24
[1 smtp] S: 250 2.0.0 mail kept
[1 smtp] C: QUIT
[1 smtp] S: 221 2.0.0 goodbye
[1 smtp] S: (closes)
)");
}

TEST(Loopback, MisbehavesAsToldAndAsOften)
{
    loopback server({"--fault", "rcpt=refuse:550 5.1.1 no such user", "--fault", "quit=close",
                     "--fault-count", "1", "--reject-recipient", "x@b.test"});
    expect_talk(server.port("smtp"), smtp_opened + R"(
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: RCPT TO:<b@b.test>
        S: 550 5.1.1 no such user
        C: RCPT TO:<b@b.test>
        S: 250 {any}
        C: RCPT TO:<x@b.test>
        S: 550 5.1.1 no such user here
        C: QUIT
        S: (closes)
    )");
    expect_talk(server.port("smtp"), "S: 220 {any}\n" + smtp_closed);
}

TEST(Loopback, EndsAfterSoManyMails)
{
    loopback            server({"--mails", "2"});
    std::uint16_t const port = server.port("smtp");
    expect_talk(port, one_mail);
    expect_talk(port, one_mail);
    EXPECT_EQ(server.wait(), 0);
}

TEST(Loopback, EndsAfterSoManySeconds)
{
    auto const start = clock::now();
    loopback   server({"--seconds", "0.2"});
    EXPECT_EQ(server.wait(), 0);
    EXPECT_GE(clock::now() - start, 200ms);
}

TEST(Loopback, ExplainsItself)
{
    loopback help({"--help"});
    EXPECT_EQ(help.wait(), 0);
    EXPECT_NE(help.out().find("--fault STEP=ACTION"), std::string::npos) << help.out();
    EXPECT_EQ(help.err(), "");
}

TEST(Loopback, SaysWhatIsWrongWithItsArguments)
{
    struct {
        std::vector<std::string> arguments;
        char const*              part_of_message;
    } const cases[] = {
        {{"--port", "65535"}, "65535"},
        {{"--port", "x"}, "x"},
        {{"--port", "0", "--smtp-port", "0"}, "--smtp-port"},
        {{"--smtp-port", "70000"}, "70000"},
        {{"--pop-port", "-1"}, "-1"},
        {{"--user", "tim"}, "every --user needs a --password"},
        {{"--password", "x"}, "every --user needs a --password"},
        {{"--auth", "md4"}, "md4"},
        {{"--auth", "none,login"}, "--auth none goes with no other mechanism"},
        {{"--auth", "none", "--require-auth"}, "and not with --require-auth"},
        {{"--pop-auth", "none"}, "none"},
        {{"--fault", "rctp=close"}, "--fault rctp=close: there is no step \"rctp\""},
        {{"--fault"}, "--fault"},
        {{"--fault-count", "0"}, "0"},
        {{"--mails", "0"}, "0"},
        {{"--seconds", "-1"}, "-1"},
        {{"--show-lines", "0"}, "0"},
        {{"--colour"}, "--colour"},
        {{"word"}, "word"},
    };
    for (auto const& c : cases) {
        loopback server(c.arguments);
        EXPECT_EQ(server.wait(), 2) << c.part_of_message;
        EXPECT_NE(server.err().find(c.part_of_message), std::string::npos) << server.err();
        EXPECT_EQ(server.out(), "");
    }
}

TEST(Loopback, SaysWhenItCannotServe)
{
    mailserver::listener taken(0);
    temp_dir             dir;
    write_file(dir.file("file"), "");
    struct {
        std::vector<std::string> arguments;
        std::string              message;
    } const cases[] = {
        {{"--smtp-port", std::to_string(taken.port())},
         "zelieml-loopback: cannot listen on 127.0.0.1:" + std::to_string(taken.port())},
        {{"--maildir", dir.file("file/box")},
         "zelieml-loopback: cannot make " + dir.file("file/box/tmp")},
        {{"--ready-file", dir.file("file/ready")},
         "zelieml-loopback: cannot write " + dir.file("file/ready")},
    };
    for (auto const& c : cases) {
        loopback server(c.arguments);
        EXPECT_EQ(server.wait(), 1) << c.message;
        EXPECT_EQ(server.err().substr(0, c.message.size()), c.message);
    }
}

}  // namespace zelieml::test
