// Faults, the transcript, many clients at once, and the end of a server.

#include "tools/mailserver/server.h"

#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>

#include "platform/socket.h"
#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/scripted_client.h"

namespace zelieml::test
{

namespace
{

using namespace std::chrono_literals;
using mailserver::options;
using mailserver::parse_fault;
using mailserver::stream;
using clock = std::chrono::steady_clock;

options with_fault(char const* text, int times = -1)
{
    options o;
    o.faults          = {parse_fault(text)};
    o.faults[0].times = times;
    return o;
}

struct fault_case {
    char const* name;
    char const* fault;
    bool        pop;
    std::string transcript;
};

}  // namespace

class FaultDialogue : public testing::TestWithParam<fault_case>
{
};

TEST_P(FaultDialogue, ShowsAtItsStep)
{
    fault_case const& c = GetParam();
    mail_server       server(with_fault(c.fault));
    server.put("A: 1\r\n");
    dialogue const d = talk(c.pop ? server.pop_port() : server.smtp_port(), c.transcript);
    EXPECT_EQ(d.came, d.wanted);
}

fault_case const fault_cases[] = {
    {"a greeting refused ends the session", "greeting=refuse:554 no service", false,
     R"(
        S: 554 no service
        S: (closes)
     )"},
    {"a refusal in other words of pop", "greeting=refuse", true,
     R"(
        S: -ERR refused on request
        S: (closes)
     )"},
    {"greeting closed", "greeting=close", false,
     R"(
        S: (closes)
     )"},
    {"rcpt refused and the session goes on", "rcpt=refuse:550 5.1.1 no such user", false,
     smtp_opened + R"(
        C: MAIL FROM:<a@a.test>
        S: 250 {any}
        C: RCPT TO:<b@b.test>
        S: 550 5.1.1 no such user
        C: DATA
        S: 503 {any}
    )" + smtp_closed},
    {"an answer cut short", "ehlo=cut:6", false,
     R"(
        S: 220 {any}
        C: EHLO c
        S: 250-lo\x28closed)
     )"},
    {"mail closed instead of answered", "mail=close", false,
     smtp_opened + lost_at("MAIL FROM:<a@a.test>")},
    {"mail broken off instead of answered", "mail=reset", false,
     smtp_opened + lost_at("MAIL FROM:<a@a.test>")},
    {"the verdict on a password refused", "answer=refuse:454 4.7.0 later", false, smtp_opened + R"(
        C: EHLO c
        S: 250-{any}
        S: 250-{any}
        S: 250-{any}
        S: 250-{any}
        S: 250-{any}
        S: 250 {any}
        C: AUTH LOGIN
        S: 334 {any}
        C: {base64:user}
        S: 454 4.7.0 later
    )"},
    {"an unknown command refused", "unknown=refuse:500 what", false,
     R"(
        S: 220 {any}
        C: BDAT
        S: 500 what
     )"},
    {"pop stat refused", "pop.stat=refuse:-ERR not today", true, pop_opened() + R"(
        C: STAT
        S: -ERR not today
        C: QUIT
        S: +OK {any}
    )"},
    {"a mail cut in the middle", "retr=cut:15", true, pop_opened() + R"(
        C: RETR 1
        S: +OK 6 octets
        S: A\x28closed)
    )"},
    {"a fault of the other protocol", "pop.quit=close", false,
     R"(
        S: 220 {any}
        C: QUIT
        S: 221 {any}
     )"},
};

INSTANTIATE_TEST_SUITE_P(, FaultDialogue, testing::ValuesIn(fault_cases), case_name<fault_case>);

TEST(Fault, RefusingATextKeepsNoMail)
{
    mail_server    server(with_fault("text=refuse:554 5.6.0 bad text"));
    dialogue const d = talk(server.smtp_port(), smtp_opened + mail_begun() + R"(
        C: x
        C: .
        S: 554 5.6.0 bad text
    )");
    EXPECT_EQ(d.came, d.wanted);
    EXPECT_TRUE(server.mails().empty());
}

TEST(Fault, CanHappenSoManyTimesOnly)
{
    mail_server    server(with_fault("noop=refuse:450 no", 2));
    dialogue const d = talk(server.smtp_port(), R"(
        S: 220 {any}
        C: NOOP
        S: 450 no
        C: NOOP
        S: 450 no
        C: NOOP
        S: 250 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
}

TEST(Fault, DelaysAnAnswer)
{
    mail_server server(with_fault("noop=delay:100"));
    stream      client = connect_to(server.smtp_port());
    hear_line(client);
    auto const start = clock::now();
    client.write("NOOP\r\n");
    EXPECT_EQ(hear_line(client), "250 2.0.0 ok");
    EXPECT_GE(clock::now() - start, 100ms);
}

TEST(Fault, TricklesAnAnswerByteByByte)
{
    mail_server server(with_fault("greeting=trickle:10"));
    stream      client = connect_to(server.smtp_port());
    auto const  start  = clock::now();
    int         pieces = 0;
    for (std::string greeting; greeting.find('\n') == std::string::npos; ++pieces) {
        greeting += client.read_some(100).text;
    }
    EXPECT_GT(pieces, 10);
    EXPECT_GE(clock::now() - start, 10ms * 40);
}

TEST(Fault, FallsSilentForGood)
{
    mail_server server(with_fault("noop=silent"));
    stream      client = connect_to(server.smtp_port(), 100ms);
    hear_line(client);
    client.write("NOOP\r\nQUIT\r\n");
    EXPECT_EQ(hear_all(client), "(silent)");
    client.end_writing();
    EXPECT_EQ(hear_all(client), "") << "closes once the client has gone";
    EXPECT_EQ(server.sessions()[0], "C: (connects)\n"
                                    "S: 220 localhost ESMTP loopback mail server ready\n"
                                    "C: NOOP\n"
                                    "S: (silent)\n"
                                    "C: QUIT\n"
                                    "C: (closes)\n");
}

TEST(Fault, BreaksTheConnectionOff)
{
    mail_server server(with_fault("noop=reset"));
    stream      client = connect_to(server.smtp_port());
    hear_line(client);
    client.write("NOOP\r\n");
    EXPECT_EQ(hear_line(client), "(closed)");
    EXPECT_FALSE(client.write("QUIT\r\n")) << "the connection is broken";
}

TEST(Transcript, HoldsTheWholeConversation)
{
    mail_server    server;
    dialogue const d = talk(server.smtp_port(), esmtp_opened + R"(
        C: AUTH PLAIN {base64:\0user\0password}
        S: 235 {any}
    )" + mail_begun() + R"(
        C: Subject: \x1b$B\xc3\xa4
        C: ..
        C- bare\nx\r\n
        C: .
        S: 250 {any}
        C- quit\n
        S: 221 {any}
        S: (closes)
    )");
    EXPECT_EQ(d.came, d.wanted);
    EXPECT_EQ(server.sessions(), std::vector<std::string>{R"(C: (connects)
S: 220 localhost ESMTP loopback mail server ready
C: EHLO c
S: 250-localhost
S: 250-PIPELINING
S: 250-8BITMIME
S: 250-AUTH CRAM-MD5 LOGIN PLAIN
S: 250-ENHANCEDSTATUSCODES
S: 250 SIZE 67108864
C: AUTH PLAIN AHVzZXIAcGFzc3dvcmQ=
S: 235 2.7.0 welcome
C: MAIL FROM:<a@a.test>
S: 250 2.1.0 sender ok
C: RCPT TO:<b@b.test>
S: 250 2.1.5 recipient ok
C: DATA
S: 354 end the text with a line that is a single dot
C: Subject: \x1b$Bä
C: ..
C- bare\n
C: x
C: .
S: 250 2.0.0 mail kept
C- quit\n
S: 221 2.0.0 goodbye
S: (closes)
)"});
}

TEST(Transcript, CanLeaveOutMostOfLongMails)
{
    options o;
    o.shown_mail_lines = 2;
    mail_server    server(o);
    dialogue const d = talk(server.smtp_port(), R"(
        S: 220 {any}
        C- HELO c\r\nMAIL FROM:<a@a.test>\r\nRCPT TO:<b@b.test>\r\nDATA\r\n
        S: 250 {any}
        S: 250 {any}
        S: 250 {any}
        S: 354 {any}
        C- 1\r\n2\r\n3\r\n4\r\n.\r\n
        S: 250 {any}
        C: QUIT
        S: 221 {any}
    )");
    EXPECT_EQ(d.came, d.wanted);
    EXPECT_NE(server.sessions()[0].find("C: 1\nC: 2\n# 2 more lines\nC: .\n"), std::string::npos)
        << server.sessions()[0];
    talk(server.pop_port(), R"(
        S: +OK {any}
        C- USER user\r\nPASS password\r\nRETR 1\r\nQUIT\r\n
        S: +OK {any}
        S: +OK {any}
        S: +OK {any}
        S: 1
        S: 2
        S: 3
        S: 4
        S: .
        S: +OK {any}
    )");
    EXPECT_NE(server.sessions()[1].find("S: +OK 12 octets\nS: 1\nS: 2\n# 2 more lines\nS: .\n"),
              std::string::npos)
        << server.sessions()[1];
}

TEST(Listener, ListensOnLoopbackOnly)
{
    mailserver::listener const door(0);
    sockaddr_in                address = {};
    socklen_t                  length  = sizeof address;
    ASSERT_EQ(::getsockname(door.fd(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_EQ(ntohs(address.sin_port), door.port());
}

TEST(Listener, GivesConnectionsThatDoNotWaitAndAreNotInherited)
{
    mailserver::listener const door(0);
    EXPECT_FALSE(door.accept()) << "no client has come, and accept does not wait";
    stream const     client = connect_to(door.port());
    descriptor const peer   = door.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(::fcntl(door.fd(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(peer.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(peer.get(), F_GETFL) & O_NONBLOCK, 0);
    int       no_delay = 0;
    socklen_t length   = sizeof no_delay;
    ASSERT_EQ(::getsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &no_delay, &length), 0);
    EXPECT_NE(no_delay, 0);
}

TEST(Server, SaysWhenAPortIsTaken)
{
    mail_server first;
    options     o;
    o.smtp_port = first.smtp_port();
    EXPECT_THROW(mail_server second(o), std::system_error);
}

TEST(Server, ServesManyClientsAtOnce)
{
    constexpr int            clients = 20;
    constexpr int            mails   = 5;
    mail_server              server;
    std::atomic<int>         wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(clients);
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&] {
            std::string transcript = smtp_opened;
            for (int m = 0; m < mails; ++m) {
                transcript += mail_begun() + "C: text\n" + answered(".", "250 {any}");
            }
            dialogue const d = talk(server.smtp_port(), transcript + smtp_closed);
            dialogue const e = talk(server.pop_port(), R"(
                S: +OK {any}
                C- USER user\r\nPASS password\r\nSTAT\r\nQUIT\r\n
                S: +OK {any}
                S: +OK {any}
                S: +OK {any}
                S: +OK {any}
                S: (closes)
            )");
            wrong += (d.came != d.wanted) + (e.came != e.wanted);
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(server.mails().size(), static_cast<std::size_t>(clients * mails));
    EXPECT_EQ(server.mailbox().size(), static_cast<std::size_t>(clients * mails));
    EXPECT_EQ(server.sessions().size(), static_cast<std::size_t>(2 * clients));
}

TEST(Server, TurnsClientsAwayWhenThereAreTooMany)
{
    options o;
    o.max_sessions = 1;
    mail_server server(o);
    stream      first = connect_to(server.smtp_port());
    hear_line(first);
    stream second = connect_to(server.smtp_port());
    EXPECT_EQ(hear_all(second), "421 4.3.2 too many connections\r\n");
    stream third = connect_to(server.pop_port());
    EXPECT_EQ(hear_all(third), "-ERR too many connections\r\n");
    first.write("QUIT\r\n");
    EXPECT_EQ(hear_line(first), "221 2.0.0 goodbye");
}

TEST(Server, DismissesAClientThatSaysNothing)
{
    options o;
    o.idle_limit = 50ms;
    mail_server server(o);
    stream      smtp = connect_to(server.smtp_port());
    EXPECT_EQ(hear_all(smtp), "220 localhost ESMTP loopback mail server ready\r\n"
                              "421 4.4.2 idle for too long\r\n");
    stream pop = connect_to(server.pop_port());
    hear_line(pop);
    EXPECT_EQ(hear_all(pop), "-ERR idle for too long\r\n");
}

TEST(Server, HangsUpOnEverybodyAtItsEnd)
{
    auto   server            = std::make_unique<mailserver::server>(with_fault("noop=delay:60000"));
    stream idle              = connect_to(server->smtp_port());
    stream held              = connect_to(server->smtp_port());
    stream inside            = connect_to(server->smtp_port());
    std::uint16_t const port = server->smtp_port();
    hear_line(idle);
    hear_line(held);
    held.write("NOOP\r\n");
    hear_line(inside);
    inside.write("HELO c\r\nMAIL FROM:<a@a.test>\r\nRCPT TO:<b@b.test>\r\nDATA\r\nhalf a mail");
    for (int i = 0; i < 4; ++i) {
        hear_line(inside);
    }
    auto const start = clock::now();
    server.reset();
    EXPECT_LT(clock::now() - start, 10s);
    EXPECT_EQ(hear_line(idle), "(closed)");
    EXPECT_EQ(hear_line(held), "(closed)");
    EXPECT_EQ(hear_line(inside), "(closed)");
    EXPECT_THROW(connect_to(port), std::system_error);
}

TEST(Server, LetsSessionsEndWithinTheGrace)
{
    mailserver::server server{options{}};
    stream             client = connect_to(server.smtp_port());
    hear_line(client);
    std::thread finishing([&] { server.finish(20s); });
    client.write("QUIT\r\n");
    EXPECT_EQ(hear_line(client), "221 2.0.0 goodbye");
    auto const start = clock::now();
    finishing.join();
    EXPECT_LT(clock::now() - start, 10s);
    server.finish(0s);
}

TEST(Server, LeavesNoDescriptorOpen)
{
    int const before = open_descriptors();
    {
        mail_server server;
        talk(server.smtp_port(), "S: 220 {any}\n" + smtp_closed + "S: (closes)\n");
        stream client = connect_to(server.pop_port());
        hear_line(client);
    }
    EXPECT_EQ(open_descriptors(), before);
}

// The servers of the tests must not end the programs that they are in.
TEST(BrokenConnection, RaisesNoSignalInTheServersThreads)
{
    std::signal(SIGPIPE, SIG_DFL);
    mailserver::listener const door(0);
    mailserver::stop_signal    never;
    unique_fd                  client(platform::open_stream_socket());
    ASSERT_EQ(platform::connect_within(
                  client.get(), platform::ipv4_peer(htonl(INADDR_LOOPBACK), htons(door.port())),
                  20000000),
              0);
    ASSERT_TRUE(mailserver::wait_for_client(door, never, 20s));
    stream server(door.accept(), 20s);
    break_connection(client);
    // The first failure says how it ended; only later ones may raise a signal.
    mailserver::start_thread([&] {
        for (int failures = 0; failures < 2;) {
            failures += server.write("x") ? 0 : 1;
        }
    }).join();
}

}  // namespace zelieml::test
