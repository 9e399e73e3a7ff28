// Clients that mean no good, or no longer know what they do.

#include <gtest/gtest.h>
#include <random>
#include <thread>

#include "tests/support/dialogues.h"
#include "tests/support/mail_server.h"
#include "tests/support/scripted_client.h"

namespace zelieml::test
{

namespace
{

using namespace std::chrono_literals;

// The server still serves.
void expect_alive(mail_server& server)
{
    dialogue const smtp = talk(server.smtp_port(), "S: 220 {any}\n" + smtp_closed);
    EXPECT_EQ(smtp.came, smtp.wanted);
    dialogue const pop = talk(server.pop_port(), "S: +OK {any}\nC: QUIT\nS: +OK {any}\n");
    EXPECT_EQ(pop.came, pop.wanted);
}

}  // namespace

TEST(HostileClient, WithALineTooLongIsToldSo)
{
    mail_server       server;
    std::string const longest(12286, 'x');
    for (std::string const& length : {longest, longest + "x", std::string(500000, 'y')}) {
        bool const         fits = length.size() == longest.size();
        mailserver::stream smtp = connect_to(server.smtp_port());
        hear_line(smtp);
        smtp.write(length + "\r\nQUIT\r\n");
        EXPECT_EQ(hear_line(smtp),
                  fits ? "500 5.5.1 command not recognized" : "500 5.5.2 line too long");
        EXPECT_EQ(hear_line(smtp), "221 2.0.0 goodbye");
        mailserver::stream pop = connect_to(server.pop_port());
        hear_line(pop);
        pop.write(length + "\r\nQUIT\r\n");
        EXPECT_EQ(hear_line(pop), fits ? "-ERR command not recognized" : "-ERR line too long");
        EXPECT_EQ(hear_line(pop), "+OK goodbye");
    }
    expect_alive(server);
}

TEST(HostileClient, WithALineWithoutEndIsDismissed)
{
    mail_server        server;
    mailserver::stream client = connect_to(server.smtp_port());
    hear_line(client);
    std::string const piece(1 << 16, 'x');
    int               pieces = 0;
    while (pieces < 1000 && client.write(piece)) {
        ++pieces;
    }
    EXPECT_LT(pieces, 1000);
    expect_alive(server);
}

TEST(HostileClient, ThatGoesInTheMiddleLeavesNoMail)
{
    mail_server       server;
    std::string const conversation = "HELO c\r\nMAIL FROM:<a@a.test>\r\nRCPT TO:<b@b.test>\r\n"
                                     "DATA\r\nSubject: x\r\n\r\nbody\r\n.\r";
    for (std::size_t length = 0; length <= conversation.size(); ++length) {
        for (bool const broken : {false, true}) {
            mailserver::stream client = connect_to(server.smtp_port());
            hear_line(client);
            client.write(conversation.substr(0, length));
            if (broken) {
                client.break_when_closed();
            }
        }
    }
    EXPECT_EQ(server.sessions().size(), 2 * (conversation.size() + 1));
    EXPECT_TRUE(server.mails().empty());
    expect_alive(server);
}

TEST(HostileClient, WithRandomBytesIsAnsweredOrDismissed)
{
    mail_server  server;
    std::mt19937 random(4711);
    char const*  words[] = {"EHLO c\r\n",
                            "AUTH PLAIN ",
                            "MAIL FROM:<",
                            "RCPT TO:<a>\r\n",
                            "DATA\r\n",
                            "\r\n.\r\n",
                            "USER user\r\n",
                            "PASS password\r\n",
                            "RETR ",
                            "TOP 1 ",
                            "\n",
                            "\r",
                            "=",
                            ">",
                            "APOP "};
    for (int round = 0; round < 100; ++round) {
        std::string bytes;
        for (int i = 0; i < 60; ++i) {
            if (random() % 2 == 0) {
                bytes += words[random() % std::size(words)];
            } else {
                bytes += static_cast<char>(random() % 256);
            }
        }
        for (std::uint16_t const port : {server.smtp_port(), server.pop_port()}) {
            mailserver::stream client = connect_to(port);
            client.write(bytes);
            client.end_writing();
            EXPECT_EQ(hear_all(client).find("(silent)"), std::string::npos) << bytes;
        }
    }
    expect_alive(server);
}

TEST(HostileClient, ThatNeverReadsIsGivenUp)
{
    mailserver::options o;
    o.idle_limit = 100ms;
    mail_server server(o);
    // More than any socket buffer takes.
    server.put(std::string(std::size_t{32} << 20U, 'x') + "\r\n");
    mailserver::stream client = connect_to(server.pop_port());
    hear_line(client);
    client.write("USER user\r\nPASS password\r\nRETR 1\r\n");
    EXPECT_EQ(server.sessions().size(), 1u) << "the session is over although nothing was read";
    expect_alive(server);
}

TEST(HostileClient, WithTooManyRecipientsIsStopped)
{
    mail_server        server;
    mailserver::stream client = connect_to(server.smtp_port());
    std::string        all    = "HELO c\r\nMAIL FROM:<a@a.test>\r\n";
    for (int i = 0; i < 1001; ++i) {
        all += "RCPT TO:<b@b.test>\r\n";
    }
    std::thread writer([&] { client.write(all + "QUIT\r\n"); });
    for (int i = 0; i < 1003; ++i) {
        ASSERT_EQ(hear_line(client).substr(0, 3), i == 0 ? "220" : "250");
    }
    EXPECT_EQ(hear_line(client), "452 4.5.3 too many recipients");
    writer.join();
}

}  // namespace zelieml::test
