#include "tools/mailserver/pop_session.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/scripted_client.h"

namespace zelieml::test
{

namespace
{

using mailserver::options;
using mailserver::pop_lines;

options with_mrose()
{
    options o;
    o.users      = {{"mrose", "tanstaaf"}, {"ann", "pass word"}};
    o.time_stamp = "<1896.697170952@dbc.mtview.ca.us>";
    return o;
}

struct pop_case {
    char const* name;
    std::string transcript;
};

}  // namespace

// Two mails are there: of 11 bytes, with three lines, and of 7.
class PopDialogue : public testing::TestWithParam<pop_case>
{
};

TEST_P(PopDialogue, GoesAsWritten)
{
    mail_server server(with_mrose());
    server.put("A: 1\r\n\r\n.x\r\n");
    server.put("B: 2\r\n.");
    dialogue const d = talk(server.pop_port(), GetParam().transcript);
    EXPECT_EQ(d.came, d.wanted);
}

pop_case const pop_cases[] = {
    {"a session in lower case",
     R"(
        S: +OK loopback mail server ready <1896.697170952@dbc.mtview.ca.us>
        C: user mrose
        S: +OK and the password
        C: pass tanstaaf
        S: +OK welcome, 2 19
        C: stat
        S: +OK 2 19
        C: list
        S: +OK
        S: 1 12
        S: 2 7
        S: .
        C: list 2
        S: +OK 2 7
        C: retr 1
        S: +OK 12 octets
        S: A: 1
        S:
        S: ..x
        S: .
        C: dele 1
        S: +OK deleted
        C: retr 1
        S: -ERR no such message
        C: stat
        S: +OK 1 7
        C: list
        S: +OK
        S: 2 7
        S: .
        C: rset
        S: +OK 2 19
        C: noop
        S: +OK
        C: quit
        S: +OK goodbye
        S: (closes)
     )"},
    {"apop with the example of rfc 1939",
     R"(
        S: +OK {any}
        C: APOP mrose c4c9334bac560ecc979e58001b3e22fb
        S: +OK welcome, 2 19
        C: USER mrose
        S: -ERR logged in already
     )"},
    {"apop with a wrong digest and then the right one",
     R"(
        S: +OK {any}
        C: APOP mrose c4c9334bac560ecc979e58001b3e22fc
        S: -ERR user name or password wrong
        C: APOP mrose
        S: -ERR user name or password wrong
        C: APOP
        S: -ERR user name or password wrong
        C: STAT
        S: -ERR log in first
        C: apop mrose c4c9334bac560ecc979e58001b3e22fb
        S: +OK {any}
     )"},
    {"wrong passwords",
     R"(
        S: +OK {any}
        C: PASS tanstaaf
        S: -ERR give USER first
        C: USER
        S: -ERR {any}
        C: USER nobody
        S: +OK {any}
        C: PASS tanstaaf
        S: -ERR user name or password wrong
        C: PASS tanstaaf
        S: -ERR give USER first
        C: USER mrose
        S: +OK {any}
        C: PASS Tanstaaf
        S: -ERR {any}
        C: USER ann
        S: +OK {any}
        C: PASS pass word
        S: +OK {any}
     )"},
    {"nothing but login before login",
     R"(
        S: +OK {any}
        C: STAT
        S: -ERR log in first
        C: LIST
        S: -ERR log in first
        C: RETR 1
        S: -ERR log in first
        C: DELE 1
        S: -ERR log in first
        C: UIDL
        S: -ERR log in first
        C: TOP 1 0
        S: -ERR log in first
        C: RSET
        S: -ERR log in first
        C: NOOP
        S: -ERR log in first
        C: CAPA
        S: +OK {any}
        S: TOP
        S: UIDL
        S: PIPELINING
        S: USER
        S: .
        C: HELO c
        S: -ERR command not recognized
        C: QUIT
        S: +OK goodbye
        S: (closes)
     )"},
    {"numbers that name no message", pop_opened("mrose", "tanstaaf") + R"(
        C: RETR 0
        S: -ERR no such message
        C: RETR 3
        S: -ERR no such message
        C: RETR -1
        S: -ERR no such message
        C: RETR 1x
        S: -ERR no such message
        C: RETR
        S: -ERR no such message
        C: DELE 99999999999999999999999
        S: -ERR no such message
        C: LIST 3
        S: -ERR no such message
        C: UIDL 3
        S: -ERR no such message
        C: TOP 1
        S: -ERR syntax: TOP message lines
        C: TOP 3 1
        S: -ERR no such message
    )"},
    {"top gives the header and some lines", pop_opened("mrose", "tanstaaf") + R"(
        C: TOP 1 0
        S: +OK {any}
        S: A: 1
        S:
        S: .
        C: TOP 1 1
        S: +OK {any}
        S: A: 1
        S:
        S: ..x
        S: .
        C: TOP 2 9
        S: +OK {any}
        S: B: 2
        S: ..
        S: .
    )"},
    {"commands all in one write",
     R"(
        C- USER mrose\r\nPASS tanstaaf\r\nSTAT\r\nQUIT\r\n
        S: +OK {any}
        S: +OK {any}
        S: +OK {any}
        S: +OK 2 19
        S: +OK goodbye
        S: (closes)
     )"},
};

INSTANTIATE_TEST_SUITE_P(, PopDialogue, testing::ValuesIn(pop_cases), case_name<pop_case>);

TEST(PopLines, DoublesDotsAndEndsEveryLineWithCrLf)
{
    struct {
        char const* text;
        char const* sent;
        char const* why;
    } const cases[] = {
        {"", ".\r\n", "an empty mail"},
        {"a\r\n", "a\r\n.\r\n", "a line"},
        {"a", "a\r\n.\r\n", "a last line without its end"},
        {".\r\n..\r\n.a", "..\r\n...\r\n..a\r\n.\r\n", "dots at the beginning"},
        {"a.\r\n .\r\n", "a.\r\n .\r\n.\r\n", "dots elsewhere"},
        {"a\n.\n", "a\r\n..\r\n.\r\n", "lines that end with LF alone"},
        {"a\r\r\n\rb\r\n", "a\r\r\n\rb\r\n.\r\n", "CRs that end no line"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(pop_lines(c.text, 100), c.sent) << c.why;
    }
}

TEST(Pop, DeletesAtQuitOnly)
{
    mail_server server(with_mrose());
    server.put("one\r\n");
    server.put("two\r\n");
    std::string const login = "USER mrose\r\nPASS tanstaaf\r\nDELE 1\r\n";
    {
        mailserver::stream client = connect_to(server.pop_port());
        client.write(login);
        client.end_writing();
        hear_all(client);
        EXPECT_EQ(server.mailbox().size(), 2u) << "the client went without QUIT";
    }
    mailserver::stream client = connect_to(server.pop_port());
    client.write(login + "QUIT\r\n");
    hear_all(client);
    EXPECT_EQ(server.mailbox(), std::vector<std::string>{"two\r\n"});
}

TEST(Pop, KeepsToTheMailsItMetAtLogin)
{
    mail_server server(with_mrose());
    server.put("one\r\n");
    mailserver::stream first = connect_to(server.pop_port());
    dialogue           d     = talk(first, R"(
        S: +OK {any}
        C- USER mrose\r\nPASS tanstaaf\r\n
        S: +OK {any}
        S: +OK welcome, 1 5
    )");
    ASSERT_EQ(d.came, d.wanted);

    server.put("two\r\n");
    d = talk(server.pop_port(), R"(
        S: +OK {any}
        C- USER mrose\r\nPASS tanstaaf\r\nDELE 1\r\nQUIT\r\n
        S: +OK {any}
        S: +OK welcome, 2 10
        S: +OK {any}
        S: +OK goodbye
    )");
    EXPECT_EQ(d.came, d.wanted);

    d = talk(first, R"(
        C: STAT
        S: +OK 1 5
        C: RETR 1
        S: -ERR no such message any more
        C: DELE 1
        S: +OK deleted
        C: QUIT
        S: +OK goodbye
    )");
    EXPECT_EQ(d.came, d.wanted);
    EXPECT_EQ(server.mailbox(), std::vector<std::string>{"two\r\n"});
}

TEST(Pop, SaysWhenAMailCannotBeRemoved)
{
    temp_dir dir;
    options  o = with_mrose();
    o.maildir  = dir.path();
    mail_server server(o);
    // A directory that is not empty is listed as no mail, so it takes the mail's place later.
    write_file(dir.file("new/1.mail"), "one\r\n");
    mailserver::stream client = connect_to(server.pop_port());
    dialogue           d      = talk(client, R"(
        S: +OK {any}
        C- USER mrose\r\nPASS tanstaaf\r\nDELE 1\r\n
        S: +OK {any}
        S: +OK welcome, 1 5
        S: +OK deleted
    )");
    ASSERT_EQ(d.came, d.wanted);
    std::filesystem::remove(dir.file("new/1.mail"));
    std::filesystem::create_directories(dir.file("new/1.mail/inside"));
    d = talk(client, R"(
        C: QUIT
        S: -ERR some deleted messages not removed
        S: (closes)
    )");
    EXPECT_EQ(d.came, d.wanted);
}

TEST(Pop, NamesEachMailForGood)
{
    mail_server server(with_mrose());
    server.put("one\r\n");
    server.put("two\r\n");
    auto const listing = [&](std::string const& commands) {
        mailserver::stream client = connect_to(server.pop_port());
        client.write("USER mrose\r\nPASS tanstaaf\r\n" + commands + "QUIT\r\n");
        std::string const all = hear_all(client);
        return all.substr(all.find("+OK\r\n") + 5);
    };
    std::string const both = listing("UIDL\r\n");
    ASSERT_EQ(both.substr(0, 2), "1 ");
    std::string const second = both.substr(both.find("\r\n2 ") + 4);
    std::string const id     = second.substr(0, second.find("\r\n"));
    EXPECT_EQ(listing("DELE 1\r\n"
                      "UIDL\r\n")
                  .substr(0, id.size() + 2),
              "2 " + id);
    EXPECT_EQ(listing("UIDL\r\n").substr(0, id.size() + 2), "1 " + id);
}

TEST(Pop, OffersTheLoginsThatTheOptionsSay)
{
    options o  = with_mrose();
    o.pop_apop = false;
    mail_server    pass_only(o);
    dialogue const d = talk(pass_only.pop_port(), R"(
        S: +OK loopback mail server ready
        C: APOP mrose c4c9334bac560ecc979e58001b3e22fb
        S: -ERR not offered here
        C: USER mrose
        S: +OK {any}
        C: PASS tanstaaf
        S: +OK {any}
    )");
    EXPECT_EQ(d.came, d.wanted);

    o          = with_mrose();
    o.pop_user = false;
    mail_server    apop_only(o);
    dialogue const e = talk(apop_only.pop_port(), R"(
        S: +OK {any}
        C: USER mrose
        S: -ERR not offered here, use APOP
        C: APOP mrose c4c9334bac560ecc979e58001b3e22fb
        S: +OK {any}
        C: CAPA
        S: +OK {any}
        S: TOP
        S: UIDL
        S: PIPELINING
        S: .
    )");
    EXPECT_EQ(e.came, e.wanted);
}

TEST(Pop, StampsEachBannerAfresh)
{
    mail_server        server;
    mailserver::stream one   = connect_to(server.pop_port());
    mailserver::stream two   = connect_to(server.pop_port());
    std::string const  first = hear_line(one);
    EXPECT_NE(first.find('<'), std::string::npos);
    EXPECT_NE(first, hear_line(two));
}

TEST(Pop, GivesOutWhatSmtpTookIn)
{
    for (bool const on_disk : {false, true}) {
        temp_dir dir;
        options  o = with_mrose();
        o.maildir  = on_disk ? dir.path() : "";
        mail_server    server(o);
        dialogue const sent = talk(server.smtp_port(), smtp_opened + mail_begun() + R"(
            C: Subject: dots
            C:
            C: ..
            C: ..a
            C: b.
            C: .
            S: 250 {any}
        )" + smtp_closed);
        EXPECT_EQ(sent.came, sent.wanted);
        dialogue const fetched = talk(server.pop_port(), R"(
            S: +OK {any}
            C- USER mrose\r\nPASS tanstaaf\r\n
            S: +OK {any}
            S: +OK welcome, 1 28
            C: RETR 1
            S: +OK 28 octets
            S: Subject: dots
            S:
            S: ..
            S: ..a
            S: b.
            S: .
            C: DELE 1
            S: +OK {any}
            C: QUIT
            S: +OK {any}
            S: (closes)
        )");
        EXPECT_EQ(fetched.came, fetched.wanted);
        EXPECT_TRUE(server.mailbox().empty());
        if (on_disk) {
            EXPECT_TRUE(list_directory(dir.file("new")).empty());
        }
    }
}

}  // namespace zelieml::test
