#include "tools/mailserver/smtp_session.h"

#include <cstdio>
#include <gtest/gtest.h>

#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/scripted_client.h"
#include "tools/mailserver/text.h"

namespace zelieml::test
{

namespace
{

using mailserver::options;

struct smtp_case {
    char const* name;
    std::string transcript;
};

options with_tim()
{
    options o;
    o.users      = {{"tim", "tanstaaftanstaaf"}, {"ann", "pass word"}};
    o.time_stamp = "<1896.697170952@postoffice.reston.mci.net>";
    return o;
}

}  // namespace

class SmtpDialogue : public testing::TestWithParam<smtp_case>
{
};

TEST_P(SmtpDialogue, GoesAsWritten)
{
    options o             = with_tim();
    o.rejected_recipients = {"Nobody@B.test"};
    o.max_mail_bytes      = 1000;
    mail_server    server(o);
    dialogue const d = talk(server.smtp_port(), GetParam().transcript);
    EXPECT_EQ(d.came, d.wanted);
}

smtp_case const smtp_cases[] = {
    {"a mail in lower case with blanks after the colons",
     R"(
        S: 220 localhost ESMTP loopback mail server ready
        C: helo [127.0.0.1]
        S: 250 localhost
        C: mail from: <a@a.test>
        S: 250 2.1.0 sender ok
        C: rcpt to: <b@b.test>
        S: 250 2.1.5 recipient ok
        C: data
        S: 354 {any}
        C: Subject: hello
        C:
        C: .
        S: 250 2.0.0 mail kept
        C: quit
        S: 221 2.0.0 goodbye
        S: (closes)
     )"},
    {"ehlo says what is offered",
     R"(
        S: 220 {any}
        C: EHLO client.test
        S: 250-localhost
        S: 250-PIPELINING
        S: 250-8BITMIME
        S: 250-AUTH CRAM-MD5 LOGIN PLAIN
        S: 250-ENHANCEDSTATUSCODES
        S: 250 SIZE 1000
     )"},
    {"commands out of order",
     R"(
        S: 220 {any}
        C: MAIL FROM:<a@a.test>
        S: 503 {any}
        C: HELO c
        S: 250 {any}
        C: RCPT TO:<b@b.test>
        S: 503 {any}
        C: DATA
        S: 503 {any}
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: MAIL FROM:<a@a.test>
        S: 503 {any}
        C: DATA
        S: 503 {any}
        C: RSET
        S: 250 {any}
        C: RCPT TO:<b@b.test>
        S: 503 {any}
        C: AUTH PLAIN
        S: 503 {any}
     )"},
    {"a new hello forgets the sender", smtp_opened + R"(
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: HELO c
        S: 250 {any}
        C: RCPT TO:<b@b.test>
        S: 503 {any}
    )"},
    {"syntax of addresses",
     R"(
        S: 220 {any}
        C: HELO
        S: 501 {any}
        C: EHLO
        S: 501 {any}
        C: HELO c
        S: 250 {any}
        C: MAIL
        S: 501 {any}
        C: MAIL a@a.test
        S: 501 {any}
        C: MAIL FROM:a@a.test
        S: 501 {any}
        C: MAIL FROM:<a@a.test
        S: 501 {any}
        C: MAIL FROM:<a b@a.test>
        S: 501 {any}
        C: MAIL FROM:<a@a.test>x
        S: 501 {any}
        C: MAIL FROM:<a\x01@a.test>
        S: 501 {any}
        C: MAIL FROM:<"unclosed>
        S: 501 {any}
        C: MAIL FROM:<"quoted \\
        S: 501 {any}
        C: MAIL TO:<a@a.test>
        S: 501 {any}
        C: MAIL FROM:<>
        S: 250 {any}
        C: RCPT TO:<>
        S: 501 5.1.3 a recipient needs an address
        C: RCPT TO: b@b.test
        S: 501 {any}
        C: RCPT FROM:<b@b.test>
        S: 501 {any}
        C: RCPT TO:<"a b>\\"c"@b.test>
        S: 250 {any}
     )"},
    {"parameters", esmtp_opened + R"(
        C: MAIL FROM:<a@a.test> SIZE=1001
        S: 552 {any}
        C: MAIL FROM:<a@a.test> SIZE=99999999999999999999999999
        S: 552 {any}
        C: MAIL FROM:<a@a.test> SIZE=x
        S: 555 {any}
        C: MAIL FROM:<a@a.test> COLOUR=red
        S: 555 {any}
        C: MAIL FROM:<a@a.test> SIZE=0001000 body=8bitmime  AUTH=<>
        S: 250 {any}
        C: RCPT TO:<b@b.test> NOTIFY=NEVER
        S: 555 {any}
    )"},
    {"other commands",
     R"(
        S: 220 {any}
        C: NOOP whatever
        S: 250 {any}
        C: VRFY someone
        S: 252 {any}
        C: HELP
        S: 214 {any}
        C: STARTTLS
        S: 500 5.5.1 command not recognized
        C:
        S: 500 {any}
        C: RSET now
        S: 501 5.5.4 RSET takes no argument
        C: QUIT now
        S: 501 {any}
        C: quit
        S: 221 {any}
        S: (closes)
     )"},
    {"a rejected recipient in any case", smtp_opened + R"(
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: RCPT TO:<nobody@b.TEST>
        S: 550 5.1.1 no such user here
        C: RCPT TO:<somebody@b.test>
        S: 250 {any}
    )"},
    {"the client ends lines with lf alone",
     R"(
        S: 220 {any}
        C- HELO c\n
        S: 250 {any}
        C- QUIT\n
        S: 221 {any}
        S: (closes)
     )"},
    {"commands all in one write",
     R"(
        C- HELO c\r\nMAIL FROM:<a@a.test>\r\nRCPT TO:<b@b.test>\r\nDATA\r\nx\r\n.\r\nQUIT\r\n
        S: 220 {any}
        S: 250 localhost
        S: 250 2.1.0 {any}
        S: 250 2.1.5 {any}
        S: 354 {any}
        S: 250 2.0.0 {any}
        S: 221 {any}
        S: (closes)
     )"},
    {"cram md5 with the example of rfc 2195", esmtp_opened + R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 235 2.7.0 welcome
        C: AUTH CRAM-MD5
        S: 503 {any}
    )"},
};

INSTANTIATE_TEST_SUITE_P(, SmtpDialogue, testing::ValuesIn(smtp_cases), case_name<smtp_case>);

// The conversation from AUTH on.
class SmtpAuthDialogue : public testing::TestWithParam<smtp_case>
{
};

TEST_P(SmtpAuthDialogue, GoesAsWritten)
{
    mail_server        server(with_tim());
    mailserver::stream client = connect_to(server.smtp_port());
    talk(client, "S: 220 {any}\nC: EHLO c\n");
    for (std::string line; !mailserver::starts_with(line, "250 ");) {
        line = hear_line(client);
        ASSERT_EQ(line.substr(0, 3), "250");
    }
    dialogue const d = talk(client, GetParam().transcript);
    EXPECT_EQ(d.came, d.wanted);
}

smtp_case const auth_cases[] = {
    {"cram md5 with a wrong digest",
     R"(
        C: AUTH CRAM-MD5
        S: 334 {any}
        C: {base64:tim 00000000000000000000000000000000}
        S: 535 5.7.8 user name or password wrong
        C: AUTH CRAM-MD5
        S: 334 {any}
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 235 {any}
     )"},
    {"cram md5 takes no initial response",
     R"(
        C: AUTH CRAM-MD5 dGlt
        S: 501 {any}
     )"},
    {"login asks for both",
     R"(
        C: AUTH LOGIN
        S: 334 VXNlcm5hbWU6
        C: {base64:tim}
        S: 334 UGFzc3dvcmQ6
        C: {base64:tanstaaftanstaaf}
        S: 235 {any}
     )"},
    {"login with the user at once and a blank in the password",
     R"(
        C: auth login {base64:ann}
        S: 334 UGFzc3dvcmQ6
        C: {base64:pass word}
        S: 235 {any}
     )"},
    {"login with a wrong password",
     R"(
        C: AUTH LOGIN
        S: 334 {any}
        C: {base64:tim}
        S: 334 {any}
        C: {base64:Tanstaaftanstaaf}
        S: 535 {any}
     )"},
    {"login of an unknown user shows with the password only",
     R"(
        C: AUTH LOGIN
        S: 334 {any}
        C: {base64:Tim}
        S: 334 {any}
        C: {base64:tanstaaftanstaaf}
        S: 535 {any}
     )"},
    {"plain with initial response",
     R"(
        C: AUTH PLAIN {base64:\0tim\0tanstaaftanstaaf}
        S: 235 {any}
     )"},
    {"plain without initial response",
     R"(
        C: AUTH PLAIN
        S: 334\x20
        C: {base64:tim\0tim\0tanstaaftanstaaf}
        S: 235 {any}
     )"},
    {"plain with a wrong password",
     R"(
        C: AUTH PLAIN {base64:\0tim\0}
        S: 535 {any}
     )"},
    {"plain with an empty initial response",
     R"(
        C: AUTH PLAIN =
        S: 535 {any}
     )"},
    {"the client cancels",
     R"(
        C: AUTH LOGIN
        S: 334 {any}
        C: *
        S: 501 5.0.0 authentication cancelled
        C: NOOP
        S: 250 {any}
     )"},
    {"what is not base64",
     R"(
        C: AUTH PLAIN !
        S: 501 {any}
        C: AUTH LOGIN
        S: 334 {any}
        C: dGlt=
        S: 501 {any}
        C: NOOP
        S: 250 {any}
     )"},
    {"an unknown mechanism",
     R"(
        C: AUTH GSSAPI
        S: 504 {any}
        C: AUTH
        S: 504 {any}
     )"},
    {"not within a mail",
     R"(
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: AUTH LOGIN
        S: 503 {any}
     )"},
};

INSTANTIATE_TEST_SUITE_P(, SmtpAuthDialogue, testing::ValuesIn(auth_cases), case_name<smtp_case>);

TEST(SmtpAuth, IsOfferedAsTheOptionsSay)
{
    options o         = with_tim();
    o.smtp_mechanisms = {"LOGIN"};
    mail_server    server(o);
    dialogue const d = talk(server.smtp_port(), R"(
        S: 220 {any}
        C: EHLO c
        S: 250-localhost
        S: 250-PIPELINING
        S: 250-8BITMIME
        S: 250-AUTH LOGIN
        S: 250-ENHANCEDSTATUSCODES
        S: 250 SIZE 67108864
        C: AUTH PLAIN {base64:\0tim\0tanstaaftanstaaf}
        S: 504 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
}

TEST(SmtpAuth, NeedNotBeOffered)
{
    options o         = with_tim();
    o.smtp_mechanisms = {};
    mail_server    server(o);
    dialogue const d = talk(server.smtp_port(), R"(
        S: 220 {any}
        C: EHLO c
        S: 250-localhost
        S: 250-PIPELINING
        S: 250-8BITMIME
        S: 250-ENHANCEDSTATUSCODES
        S: 250 SIZE 67108864
        C: AUTH PLAIN
        S: 502 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
}

TEST(SmtpAuth, CanBeRequired)
{
    options o             = with_tim();
    o.smtp_mechanisms     = {"PLAIN"};
    o.smtp_login_required = true;
    mail_server server(o);
    dialogue const d = talk(server.smtp_port(), esmtp_opened + R"(
        C: MAIL FROM:<a@a.test>
        S: 530 5.7.0 authentication required
        C: AUTH PLAIN {base64:\0tim\0tanstaaftanstaaf}
        S: 235 {any}
    )" + mail_begun() + answered(".", "250 {any}"));
    EXPECT_EQ(d.came, d.wanted);
    ASSERT_EQ(server.mails().size(), 1u);
    EXPECT_EQ(server.mails()[0].user, "tim");
}

TEST(SmtpAuth, ChallengesAfreshEachTime)
{
    mail_server server;
    std::string challenges[2];
    for (std::string& challenge : challenges) {
        mailserver::stream client = connect_to(server.smtp_port());
        client.write("EHLO c\r\nAUTH CRAM-MD5\r\n");
        do {
            challenge = hear_line(client);
        } while (challenge.substr(0, 3) != "334");
    }
    EXPECT_NE(challenges[0], challenges[1]);
}

namespace
{

// Sends the bytes as the data of a mail and returns what was kept.
std::string mail_kept(std::string const& bytes)
{
    mail_server        server;
    mailserver::stream client = connect_to(server.smtp_port());
    client.write("HELO c\r\nMAIL FROM:<a@a.test>\r\nRCPT TO:<b@b.test>\r\nDATA\r\n" + bytes +
                 "QUIT\r\n");
    hear_all(client);
    return server.mails().size() == 1 ? server.mails()[0].text : "(no mail)";
}

}  // namespace

TEST(SmtpData, IsKeptByteForByteWithoutTheStuffedDots)
{
    std::string const nul("a\0b\r\n", 5);
    std::string const long_line(200000, 'x');
    struct {
        std::string sent;
        std::string kept;
        char const* why;
    } const cases[] = {
        {".\r\n", "", "an empty mail"},
        {"\r\n.\r\n", "\r\n", "one empty line"},
        {"a\r\n.\r\n", "a\r\n", "the last line end belongs to the mail"},
        {"..\r\n...a\r\n.b\r\n.\r\n", ".\r\n..a\r\nb\r\n", "one dot goes"},
        {"a.\r\n .\r\n.\r\n", "a.\r\n .\r\n", "dots elsewhere stay"},
        {"a\n.\nb\r\n.\r\n", "a\n.\nb\r\n", "a dot between bare LFs does not end the mail"},
        {"a\n.\r\nb\r\n.\r\n", "a\n.\r\nb\r\n", "nor does one after a bare LF"},
        {"a\r.\r\n.\r\n", "a\r.\r\n", "a bare CR is no line end"},
        {"a\r\n.\nb\r\n.\r\n", "a\r\n\nb\r\n", "a dot with a bare LF is a stuffed dot"},
        {"\r\r\n.\r\n", "\r\r\n", "two CRs before the LF"},
        {nul + ".\r\n", nul, "a NUL"},
        {"\x1b$B\xff\r\n.\r\n", "\x1b$B\xff\r\n", "controls and eight bits"},
        {long_line + "\r\n.\r\n", long_line + "\r\n", "a line longer than any buffer"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(mail_kept(c.sent), c.kept) << c.why;
    }
}

// The buffer holds 65536 bytes; wherever its end falls, a dot is not taken for the end of the data.
TEST(SmtpData, SurvivesLineEndsAtTheEndOfTheBuffer)
{
    for (std::size_t length = 65530; length <= 65540; ++length) {
        std::string const line(length, 'x');
        EXPECT_EQ(mail_kept(line + "\r\n..y\r\n.\r\n"), line + "\r\n.y\r\n") << length;
    }
}

TEST(SmtpData, IsRefusedWhenTooLongAndTheSessionGoesOn)
{
    options o        = with_tim();
    o.max_mail_bytes = 10;
    mail_server    server(o);
    dialogue const d = talk(server.smtp_port(), smtp_opened + mail_begun() + R"(
        C: 123456789
        C: .
        S: 552 {any}
    )" + mail_begun() + R"(
        C: 12345678
        C: .
        S: 250 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
    ASSERT_EQ(server.mails().size(), 1u);
    EXPECT_EQ(server.mails()[0].text, "12345678\r\n");
}

TEST(SmtpData, IsRefusedWhenItCannotBeKept)
{
    temp_dir dir;
    options  o = with_tim();
    o.maildir  = dir.path();
    mail_server server(o);
    ASSERT_EQ(std::remove(dir.file("tmp").c_str()), 0);
    dialogue const d =
        talk(server.smtp_port(), smtp_opened + mail_begun() +
                                     answered(".", "452 4.3.1 cannot keep the mail") + smtp_closed);
    EXPECT_EQ(d.came, d.wanted);
    EXPECT_TRUE(server.mails().empty());
}

TEST(SmtpEnvelope, KeepsRecipientsInOrderAndRepeated)
{
    mail_server    server;
    dialogue const d = talk(server.smtp_port(), smtp_opened + R"(
        C: MAIL FROM:<Reply@a.test>
        S: 250 {any}
        C: RCPT TO:<x@b.test>
        S: 250 {any}
        C: RCPT TO:<y@b.test>
        S: 250 {any}
        C: RCPT TO:<x@b.test>
        S: 250 {any}
        C: DATA
        S: 354 {any}
        C: .
        S: 250 {any}
        C: MAIL FROM:<>
        S: 250 {any}
        C: RCPT TO:<z@b.test>
        S: 250 {any}
        C: DATA
        S: 354 {any}
        C: .
        S: 250 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
    auto const mails = server.mails();
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(mails[0].sender, "Reply@a.test");
    EXPECT_EQ(mails[0].recipients, (std::vector<std::string>{"x@b.test", "y@b.test", "x@b.test"}));
    EXPECT_EQ(mails[0].user, "");
    EXPECT_EQ(mails[1].sender, "");
    EXPECT_EQ(mails[1].recipients, std::vector<std::string>{"z@b.test"});
}

}  // namespace zelieml::test
