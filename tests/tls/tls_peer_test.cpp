// The plug-in and servers that are rude: ones that greet at length, or leave in the middle.

#include <atomic>
#include <string>

#include "platform/socket.h"
#include "tests/support/peers.h"
#include "tests/tls/plugin_room.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

class TlsPeer : public plugin_room
{
};

// ---- long greetings

std::string greeting_of(std::size_t lines, std::size_t characters)
{
    std::string all;
    for (std::size_t i = 0; i < lines; ++i) {
        all += "220-" + std::string(characters, 'A') + "\r\n";
    }
    return all + "220 ready\r\n";
}

TEST_F(TlsPeer, IsNotGreetedAtAnyLength)
{
    tls_manners manners;
    manners.in_clear         = starttls_for("me");
    manners.in_clear[0].says = greeting_of(40, 3000);
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port(), "mail.test", zelieml_tls_smtp)),
              refusal(eml_cause_protocol, "the server greets with what is no reply"));
    EXPECT_EQ(server.heard_in_clear(), "");
}

TEST_F(TlsPeer, GivesTheSessionAGreetingOfManyLines)
{
    std::string const greeting = greeting_of(2, 3000);
    tls_manners       manners;
    manners.in_clear         = starttls_for("me");
    manners.in_clear[0].says = greeting;
    manners.inside = [](gnutls_session_t session) { gnutls_record_send(session, "hi\r\n", 4); };
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port(), "mail.test", zelieml_tls_smtp)), "+" + greeting + "hi\r\n");
}

// ---- servers that leave

// It refuses what it has not read: the end of its connection comes right behind its words.
TEST_F(TlsPeer, IsHeardWhenItRefusesEarlyAndCloses)
{
    constexpr char refused[] = "554 too much\r\n";
    tls_manners    manners;
    manners.inside = [&](gnutls_session_t session) {
        char byte;
        gnutls_record_recv(session, &byte, 1);
        gnutls_record_send(session, refused, sizeof refused - 1);
    };
    tls_front         server(ca().issue(), manners);
    std::string const much(200 * 1000, 'x');
    for (int i = 0; i < 10; ++i) {
        unique_fd const tunnel = ask(server.port());
        ASSERT_EQ(hear(tunnel, 1), "+");
        while (platform::send_bytes(tunnel.get(), much.data(), much.size()) > 0) {
        }
        EXPECT_EQ(hear(tunnel), refused);
    }
}

// ---- forked children, which have all descriptors of their parent

TEST_F(TlsPeer, SeesTheEndThoughAChildHasTheConnection)
{
    listener               server;
    unique_fd const        tunnel = ask(server.port(), "mail.test", zelieml_tls_nothing, 1000);
    bool const             heard  = wait_until([&] { return server.has_heard(); });
    child_that_waits const child;
    EXPECT_TRUE(heard);
    EXPECT_EQ(hear(tunnel), refusal(eml_cause_lost, "TLS did not begin within 1 s"));
    EXPECT_TRUE(wait_until([&] { return server.has_ended(); }));
    EXPECT_TRUE(child.is_there());
}

}  // namespace

}  // namespace zelieml::test
