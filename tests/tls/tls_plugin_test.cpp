// The plug-in by itself: how TLS begins or does not, and the bytes that go through the tunnel.

#include "libsendw/tls_plugin.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <utility>
#include <vector>

#include "platform/socket.h"
#include "plugins/tls/tls_session.h"
#include "tests/support/case_name.h"
#include "tests/support/files.h"
#include "tests/support/peers.h"
#include "tests/support/skip.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"
#include "tests/tls/plugin_room.h"
#include "tests/tls/tls_front.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

struct ending {
    char const* command;  // the last of a session
    unsigned    then_ms;  // how long the server waits for more
    std::string answer;   // what it says then
};

class TlsPlugin : public plugin_room
{
protected:
    std::pair<std::string, std::string> heard_at(ending const& e);

    // What a tunnel says to a server with these manners.
    std::string heard_from(tls_manners const& manners,
                           zelieml_tls_before before   = zelieml_tls_nothing,
                           int                limit_ms = far_off_ms)
    {
        tls_front server(ca().issue(), manners);
        return hear(ask(server.port(), "mail.test", before, limit_ms));
    }
};

// ---- how TLS begins

struct beginning {
    char const*               name;
    std::function<identity()> shown;
    std::string               says;  // of the tunnel
    std::string               host     = "mail.test";
    std::string               priority = "NORMAL";
};

void PrintTo(beginning const& c, std::ostream* out)
{
    *out << c.name;
}

class TlsBegins : public TlsPlugin, public testing::WithParamInterface<beginning>
{
};

beginning const beginnings[] = {
    {"a host that the certificate names", [] { return ca().issue(); }, "+"},
    {"an address that the certificate names", [] { return ca().issue(); }, "+", "127.0.0.1"},
    {"a host that a wildcard names", [] { return ca().issue({{"*.office.test"}}); }, "+",
     "mail.office.test"},
    {"TLS 1 2", [] { return ca().issue(); }, "+", "mail.test", "NORMAL:-VERS-ALL:+VERS-TLS1.2"},
    {"TLS 1 3", [] { return ca().issue(); },
     tls::tls_session::has_tls_1_3
         ? "+"
         : refusal(
               eml_cause_tls,
               "the server refused to begin TLS: it does not take TLS 1.2 as this system offers it"),
     "mail.test", "NORMAL:-VERS-ALL:+VERS-TLS1.3"},
    {"expired",
     [] {
         return ca().issue({{"mail.test"}, {}, -9, -2});
     },
     untrusted("mail.test", "expired on " + day_in(-2))},
    {"not valid yet",
     [] {
         return ca().issue({{"mail.test"}, {}, 3, 9});
     },
     untrusted("mail.test", "not valid before " + day_in(3))},
    {"self signed", [] { return self_signed(); },
     untrusted("mail.test", "self-signed, by none of the trusted authorities")},
    {"an unknown authority", [] { return authority("Other").issue(); },
     untrusted("mail.test", "issued by an unknown authority, CN=Other")},
    {"an authority of the same name", [] { return authority().issue(); },
     untrusted("mail.test", "not signed by the authority that it names, CN=Test Authority")},
    {"another host",
     [] {
         return ca().issue({{"one.test", "two.test"}, {}});
     },
     untrusted("mail.test", "it is for one.test, two.test")},
    {"another address",
     [] {
         return ca().issue({{"mail.test"}, {"127.0.0.2"}});
     },
     untrusted("127.0.0.1", "it is for mail.test"), "127.0.0.1"},
    {"an address that is only a name",
     [] {
         return ca().issue({{"127.0.0.1"}, {}});
     },
     untrusted("127.0.0.1", "it is for 127.0.0.1"), "127.0.0.1"},
    {"a name that only looks like an address", [] { return ca().issue(); },
     untrusted("127.1", "it is for mail.test"), "127.1"},
    {"TLS 1 1 only", [] { return ca().issue(); },
     refusal(eml_cause_tls, "the server speaks no TLS here, or none newer than 1.1"), "mail.test",
     "NORMAL:-VERS-ALL:+VERS-TLS1.1:%VERIFY_ALLOW_SIGN_WITH_SHA1"},
};

TEST_P(TlsBegins, OnlyWithACertificateForTheHost)
{
    beginning const& c = GetParam();
    tls_manners      manners;
    manners.priority = c.priority;
    tls_front server(c.shown(), manners);
    EXPECT_EQ(hear(ask(server.port(), c.host)), c.says);
    EXPECT_EQ(server.heard_inside(), "");
}
INSTANTIATE_TEST_SUITE_P(Table, TlsBegins, testing::ValuesIn(beginnings), case_name<beginning>);

TEST_F(TlsPlugin, IsRefusedByAServerThatSpeaksNoTls)
{
    tls_manners manners;
    manners.in_clear = {{"220 mail.test ready\r\n", ""}};
    manners.stalls   = true;
    EXPECT_EQ(heard_from(manners),
              refusal(eml_cause_tls, "the server speaks no TLS here, or none newer than 1.1"));
}

TEST_F(TlsPlugin, ToldOfAServerThatClosesAtOnce)
{
    tls_manners manners;
    manners.in_clear = {{"", "no such line"}};
    EXPECT_EQ(heard_from(manners),
              refusal(eml_cause_lost, "the server closed the connection while TLS began"));
}

TEST_F(TlsPlugin, GivesUpAHandshakeThatStalls)
{
    tls_manners manners;
    manners.stalls = true;
    EXPECT_EQ(heard_from(manners, zelieml_tls_nothing, 200),
              refusal(eml_cause_lost, "TLS did not begin within 1 s"));
}

TEST_F(TlsPlugin, GivesUpAHandshakeThatCannotBeSentThoughTheServerStays)
{
    std::promise<void> over;
    tls_manners        manners;
    manners.stalls = true;
    manners.hears  = [&](std::string const&) { over.get_future().wait(); };
    tls_front server(ca().issue(), manners);
    unique_fd tcp = connected(server.port());
    ::shutdown(tcp.get(), SHUT_WR);
    EXPECT_EQ(hear(ask_over(std::move(tcp))),
              refusal(eml_cause_lost, "the server closed the connection while TLS began"));
    over.set_value();
}

TEST_F(TlsPlugin, GivesUpAHandshakeThatTrickles)
{
    tls_manners manners;
    manners.trickles = true;
    manners.pause_ms = 20;
    EXPECT_EQ(heard_from(manners, zelieml_tls_nothing, 200),
              refusal(eml_cause_lost, "TLS did not begin within 1 s"));
}

TEST_F(TlsPlugin, TakesAHandshakeByteByByte)
{
    tls_manners manners;
    manners.trickles = true;
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port())), "+");
}

TEST_F(TlsPlugin, GivesUpASilentServerBeforeTls)
{
    tls_manners manners;
    manners.stalls = true;
    EXPECT_EQ(heard_from(manners, zelieml_tls_smtp, 200),
              refusal(eml_cause_lost, "no greeting from the server within 1 s"));
}

TEST_F(TlsPlugin, GivesUpAServerThatSaysNothingToStls)
{
    tls_manners manners;
    manners.in_clear = {{"+OK\r\n", "capa"}, {"+OK\r\nSTLS\r\n.\r\n", "stls"}};
    manners.stalls   = true;
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port(), "mail.test", zelieml_tls_pop, 2000)),
              refusal(eml_cause_lost, "no answer to STLS within 2 s"));
    EXPECT_EQ(server.heard_in_clear(), "capa\r\nstls\r\n");
}

TEST_F(TlsPlugin, RefusesALineWithoutAnEnd)
{
    tls_manners manners;
    manners.in_clear = {{"220 " + std::string(5000, 'x'), ""}};
    manners.stalls   = true;
    EXPECT_EQ(heard_from(manners, zelieml_tls_smtp),
              refusal(eml_cause_protocol, "the server greets with a line of more than 4096 bytes"));
}

// It comes in a segment of its own, while the handshake waits.
TEST_F(TlsPlugin, DoesNotBelieveWhatIsInjectedLate)
{
    tls_manners manners;
    manners.in_clear = starttls_for("me");
    manners.in_clear.push_back({"250 AUTH PLAIN\r\n", ""});
    manners.stalls = true;
    tls_front         server(ca().issue(), manners);
    std::string const said = hear(ask(server.port(), "mail.test", zelieml_tls_smtp));
    EXPECT_EQ(said.substr(0, 1), "-");
    EXPECT_EQ(said.find("AUTH"), said.npos) << said;
}

TEST_F(TlsPlugin, GivesTheSessionTheGreetingAndWhatComesInside)
{
    tls_manners manners;
    manners.in_clear = starttls_for("me");
    manners.inside   = [](gnutls_session_t session) { gnutls_record_send(session, "hi\r\n", 4); };
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port(), "mail.test", zelieml_tls_smtp)),
              "+220 mail.test ready\r\nhi\r\n");
    EXPECT_EQ(server.heard_in_clear(), "ehlo me\r\nstarttls\r\n");
}

// ---- authorities

TEST_F(TlsPlugin, NoticesThatTheAuthoritiesChange)
{
    tls_front server(ca().issue(), {});
    EXPECT_EQ(hear(ask(server.port())), "+");
    write_file(ca_file, authority("A Different Authority").certificate());
    EXPECT_EQ(hear(ask(server.port())),
              untrusted("mail.test", "issued by an unknown authority, CN=Test Authority"));
    write_file(ca_file, ca().certificate());
    EXPECT_EQ(hear(ask(server.port())), "+");
}

TEST_F(TlsPlugin, SaysWhyThereAreNoAuthorities)
{
    tls_front server(ca().issue(), {});
    ::unlink(ca_file.c_str());
    EXPECT_EQ(hear(ask(server.port())),
              refusal(eml_cause_settings, "the authorities in " + ca_file +
                                              " cannot be read: No such file or directory"));
    write_file(ca_file, "no certificate\n");
    EXPECT_EQ(hear(ask(server.port())),
              refusal(eml_cause_settings, "there is no certificate in PEM in " + ca_file));
    std::string const whole = ca().certificate();
    write_file(ca_file, whole + whole.substr(0, whole.size() / 2));
    EXPECT_EQ(hear(ask(server.port())),
              refusal(eml_cause_settings, "a certificate in " + ca_file + " cannot be read"));
    ::unlink(ca_file.c_str());
    ASSERT_EQ(::mkfifo(ca_file.c_str(), 0600), 0);
    EXPECT_EQ(hear(ask(server.port())),
              refusal(eml_cause_settings, "the authorities in " + ca_file +
                                              " cannot be read: it is not a regular file"));
}

// ---- what goes through

// Says everything that it hears, up to the client's end.
void echo(gnutls_session_t session)
{
    std::vector<char> bytes(16384);
    for (;;) {
        ssize_t const got = gnutls_record_recv(session, bytes.data(), bytes.size());
        if (got <= 0) {
            return;
        }
        gnutls_record_send(session, bytes.data(), static_cast<std::size_t>(got));
    }
}

TEST_F(TlsPlugin, CarriesTwentyMegabytesBothWays)
{
    tls_manners manners;
    manners.inside = echo;
    tls_front       server(ca().issue(), manners);
    unique_fd const tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");

    std::string all;
    for (int i = 0; all.size() < 20 * 1000 * 1000; ++i) {
        all += "line " + std::to_string(i) + "\r\n";
    }
    std::thread writer([&] { send_all(tunnel.get(), all); });
    bool const  same = hear(tunnel, all.size()) == all;
    writer.join();
    EXPECT_TRUE(same);
}

// Mail servers do this after much data, while both sides speak.
TEST_F(TlsPlugin, TakesNewKeysWhileBothSidesSpeak)
{
    SKIP_UNLESS(tls::tls_session::has_tls_1_3, "TLS 1.2 has no new keys");
    tls_manners manners;
    std::string heard;
    manners.inside = [&](gnutls_session_t session) {
        std::vector<char> bytes(16384);
        std::string const noise(bytes.size(), 'n');
        for (int i = 0;; ++i) {
            if (i % 300 == 0) {
                gnutls_session_key_update(session, GNUTLS_KU_PEER);
                wait_ms(20);  // until the client's records are stuck half-sent
            }
            gnutls_record_send(session, noise.data(), noise.size());
            ssize_t const got = gnutls_record_recv(session, bytes.data(), bytes.size());
            if (got > 0) {
                heard.append(bytes.data(), static_cast<std::size_t>(got));
            } else if (got != GNUTLS_E_AGAIN) {  // the client's own new keys
                return;
            }
        }
    };
    std::string all;
    for (int i = 0; all.size() < 20 * 1000 * 1000; ++i) {
        all += "line " + std::to_string(i) + "\r\n";
    }
    tls_front server(ca().issue(), manners);
    unique_fd tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");
    std::thread reader([&] { hear(tunnel); });
    send_all(tunnel.get(), all);
    ::shutdown(tunnel.get(), SHUT_WR);
    reader.join();
    ASSERT_TRUE(server.wait());
    EXPECT_TRUE(heard == all) << heard.size() << " of " << all.size();
}

TEST_F(TlsPlugin, CarriesSeveralSessionsAtOnce)
{
    constexpr int many = 6;
    tls_manners   manners;
    manners.inside = echo;
    std::vector<std::thread> sessions;
    for (int i = 0; i < many; ++i) {
        sessions.emplace_back([&, i] {
            tls_front       server(ca().issue(), manners);
            unique_fd const tunnel = ask(server.port());
            EXPECT_EQ(hear(tunnel, 1), "+");
            std::string const text = "session " + std::to_string(i);
            send_all(tunnel.get(), text);
            EXPECT_EQ(hear(tunnel, text.size()), text);
        });
    }
    for (std::thread& session : sessions) {
        session.join();
    }
}

TEST_F(TlsPlugin, EndsWhenTheServerClosesWithoutAGoodbye)
{
    tls_manners manners;
    manners.just_closes = true;
    manners.inside      = [](gnutls_session_t session) {
        gnutls_record_send(session, "+OK\r\nhalf a li", 14);
    };
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port())), "++OK\r\nhalf a l" + std::string("i"));
}

// As TCP does: so the session reads what the server said last as the reply to its next command.
TEST_F(TlsPlugin, TakesOneCommandMoreWhenTheServerHasClosed)
{
    for (bool const just_closes : {false, true}) {
        tls_manners manners;
        manners.just_closes = just_closes;
        manners.inside      = [](gnutls_session_t session) {
            gnutls_record_send(session, "250 ok\r\n421 bye\r\n", 17);
        };
        tls_front       server(ca().issue(), manners);
        unique_fd const tunnel = ask(server.port());
        EXPECT_TRUE(server.wait());
        wait_ms(50);  // and the thread has heard it
        std::string const command = "mail from: <a@b>\r\n";
        EXPECT_EQ(platform::send_bytes(tunnel.get(), command.data(), command.size()),
                  static_cast<ssize_t>(command.size()));
        EXPECT_EQ(hear(tunnel), "+250 ok\r\n421 bye\r\n");
        EXPECT_TRUE(wait_until([&] { return platform::send_bytes(tunnel.get(), "x", 1) < 0; }));
    }
}

TEST_F(TlsPlugin, EndsWhenTheServerRenegotiates)
{
    tls_manners manners;
    manners.priority = "NORMAL:-VERS-ALL:+VERS-TLS1.2";
    manners.inside   = [](gnutls_session_t session) {
        gnutls_record_send(session, "before", 6);
        gnutls_rehandshake(session);
        gnutls_record_send(session, "after", 5);
        char byte;
        gnutls_record_recv(session, &byte, 1);
    };
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port())), "+before");
}

TEST_F(TlsPlugin, EndsUponGarbageInsideTls)
{
    tls_manners manners;
    manners.inside = [](gnutls_session_t session) {
        gnutls_record_send(session, "good", 4);
        in_clear(session, "250 not encrypted\r\n");
    };
    tls_front server(ca().issue(), manners);
    EXPECT_EQ(hear(ask(server.port())), "+good");
}

// ---- how it ends

// What the server hears within some time: bytes, "(goodbye)", "(silence)" or "(gone)".
std::string next_of(gnutls_session_t session, unsigned ms)
{
    char bytes[64];
    gnutls_record_set_timeout(session, ms);
    ssize_t const got = gnutls_record_recv(session, bytes, sizeof bytes);
    return got > 0                    ? std::string(bytes, static_cast<std::size_t>(got))
           : got == 0                 ? "(goodbye)"
           : got == GNUTLS_E_TIMEDOUT ? "(silence)"
                                      : "(gone)";
}

// What the session hears after its last command, and the server from then on.
std::pair<std::string, std::string> TlsPlugin::heard_at(ending const& e)
{
    std::string heard;
    tls_manners manners;
    manners.inside = [&](gnutls_session_t session) {
        heard = next_of(session, far_off_ms);
        heard += next_of(session, e.then_ms);
        if (!e.answer.empty()) {
            gnutls_record_send(session, e.answer.data(), e.answer.size());
        }
    };
    tls_front       server(ca().issue(), manners);
    unique_fd const tunnel = ask(server.port());
    EXPECT_EQ(hear(tunnel, 1), "+");
    send_all(tunnel.get(), e.command);
    ::shutdown(tunnel.get(), SHUT_WR);
    std::string said = hear(tunnel);
    server.wait();
    return {said, heard};
}

using both = std::pair<std::string, std::string>;

TEST_F(TlsPlugin, SaysNoGoodbyeAfterQuitWhileTheServerWorks)
{
    EXPECT_EQ(heard_at({"quit\r\n", 300, "+OK\r\n"}), both("+OK\r\n", "quit\r\n(silence)"));
}

TEST_F(TlsPlugin, SaysGoodbyeAfterQuitToAServerThatDoesNotClose)
{
    EXPECT_EQ(heard_at({"quit\r\n", far_off_ms, ""}), both("", "quit\r\n(goodbye)"));
}

// Half closed: what the server still says is heard, where there is such a thing.
TEST_F(TlsPlugin, SaysGoodbyeAtOnceWithoutQuit)
{
    EXPECT_EQ(heard_at({"noop\r\n", far_off_ms, "late\r\n"}),
              both(tls::tls_session::hears_after_goodbye ? "late\r\n" : "", "noop\r\n(goodbye)"));
}

TEST_F(TlsPlugin, EndsWithTheSessionBeforeTls)
{
    for (zelieml_tls_before const before : {zelieml_tls_nothing, zelieml_tls_smtp}) {
        tls_manners manners;
        manners.stalls = true;
        tls_front server(ca().issue(), manners);
        unique_fd tunnel = ask(server.port(), "mail.test", before, 3 * far_off_ms);
        EXPECT_TRUE(wait_until([&] { return server.clients() == 1; }));
        tunnel.reset();
        EXPECT_TRUE(server.wait()) << "nobody hangs up";
    }
}

// A server that does not mind being told that no more will come.
TEST_F(TlsPlugin, EndsWithTheSessionInsideTls)
{
    std::atomic<bool> over{false};
    tls_manners       manners;
    manners.inside = [&](gnutls_session_t) { wait_until([&] { return over.load(); }, a_minute); };
    tls_front server(ca().issue(), manners);
    int const alone  = running_threads();
    unique_fd tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");
    tunnel.reset();
    EXPECT_TRUE(wait_for_running_threads(alone));
    over = true;
}

TEST_F(TlsPlugin, EndsWithTheSessionThoughTheServerDoesNotRead)
{
    std::atomic<bool> over{false};
    tls_manners       manners;
    manners.inside = [&](gnutls_session_t) { wait_until([&] { return over.load(); }, a_minute); };
    tls_front server(ca().issue(), manners);
    int const alone  = running_threads();
    unique_fd tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");
    send_until_full(tunnel.get());
    tunnel.reset();
    EXPECT_TRUE(wait_for_running_threads(alone));
    over = true;
}

TEST_F(TlsPlugin, CarriesWhatTheServerHasNotReadWhenTheSessionEnds)
{
    std::atomic<bool> ended{false};
    std::size_t       heard = 0;
    tls_manners       manners;
    manners.inside = [&](gnutls_session_t session) {
        wait_until([&] { return ended.load(); }, a_minute);
        std::vector<char> bytes(16384);
        ssize_t           got = 0;
        do {
            heard += static_cast<std::size_t>(got);
            got = gnutls_record_recv(session, bytes.data(), bytes.size());
        } while (got > 0);
    };
    tls_front       server(ca().issue(), manners);
    unique_fd const tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");
    std::size_t const said = send_until_full(tunnel.get());
    ::shutdown(tunnel.get(), SHUT_WR);
    ended = true;
    EXPECT_TRUE(server.wait());
    EXPECT_EQ(heard, said);
}

TEST_F(TlsPlugin, EndsThoughAChildHasItsDescriptors)
{
    std::atomic<bool> over{false};
    tls_manners       manners;
    manners.inside = [&](gnutls_session_t) { wait_until([&] { return over.load(); }, a_minute); };
    tls_front       server(ca().issue(), manners);
    unique_fd const tunnel = ask(server.port());
    ASSERT_EQ(hear(tunnel, 1), "+");
    child_that_waits const child;
    over = true;
    EXPECT_EQ(hear(tunnel), "");
    EXPECT_TRUE(child.is_there());
}

TEST_F(TlsPlugin, LetsTheProcessExitAtAnyTime)
{
    SKIP_UNLESS(!has_sanitizer("thread"), "the thread sanitizer allows no threads in a child");
    tls_manners manners;
    manners.inside = echo;
    tls_front server(ca().issue(), manners);
    for (int i = 0; i < 20; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            unique_fd const tunnel = ask(server.port());
            if (i % 2 == 0) {
                hear(tunnel, 1);
            }
            std::exit(0);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        // No child is forked while the server has locks of libraries, which the exit needs.
        EXPECT_TRUE(wait_until([&] { return server.clients() == i + 1; }));
        EXPECT_TRUE(server.wait());
    }
}

}  // namespace

}  // namespace zelieml::test
