// macos_tls_test.cpp - TLS with Secure Transport: what fails, and what only macOS asks for

#include <Security/Security.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "libsendw/sock.h"
#include "libsendw/tls_plugin.h"
#include "tests/macos/fake/fake.h"
#include "tests/support/files.h"
#include "tests/support/peers.h"
#include "tests/support/threads.h"
#include "tests/tls/authority.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{
namespace
{

constexpr int far_off_ms = 20 * 1000;

class MacosTls : public testing::Test
{
protected:
    MacosTls() { write_file(ca_file_, ca_.certificate()); }

    // What the tunnel to a server says, up to its end.
    std::string hear(std::uint16_t port)
    {
        zelieml_tls_ask const asked   = {"mail.test",         ca_file_.c_str(), "me",
                                         zelieml_tls_nothing, far_off_ms,       far_off_ms};
        int const             threads = running_threads();
        unique_fd             tunnel(
                        zelieml_tls_open_1(sock_connect(htonl(INADDR_LOOPBACK), htons(port)), &asked));
        std::string all;
        char        part[1024];
        for (ssize_t got = 1; got > 0;) {
            got = ::recv(tunnel.get(), part, sizeof part, 0);
            all.append(part, got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        tunnel.reset();
        EXPECT_TRUE(wait_for_running_threads(threads));
        return all;
    }

    authority const   ca_;
    temp_dir          dir_;
    std::string const ca_file_ = dir_.file("ca.pem");
};

// Each creation in turn; the frameworks' own thread is none of those that are counted.
TEST_F(MacosTls, FailsWhenAnythingCannotBeMade)
{
    tls_manners manners;
    manners.inside = [](gnutls_session_t session) { gnutls_record_send(session, "hi", 2); };
    tls_front  server(ca_.issue(), manners);
    tls_front  expired(ca_.issue({{"mail.test"}, {}, -9, -2}), {});
    long const before = fake::live_objects();
    for (std::uint16_t const port : {server.port(), expired.port()}) {
        std::string const whole = hear(port);
        bool              fails = true;
        for (int nth = 1; fails; ++nth) {
            ASSERT_LT(nth, 100);
            fake::fail_creation(nth);
            std::string const said = hear(port);
            fails                  = fake::creation_failed();
            fake::fail_creation(0);
            EXPECT_EQ(fake::live_objects(), before) << "creation " << nth;
            EXPECT_TRUE(fails ? said[0] == '-' : said == whole) << nth << ": " << said;
            EXPECT_TRUE(fails || nth > 1);
        }
    }
    EXPECT_EQ(expired.heard_inside(), "");
}

TEST_F(MacosTls, TellsWhatElseTheSystemHasAgainstACertificate)
{
    wanted_certificate without_purpose;
    without_purpose.purposes.clear();
    wanted_certificate too_long;
    too_long.until_day = 1000;
    for (wanted_certificate const& wanted : {without_purpose, too_long}) {
        tls_front server(ca_.issue(wanted), {});
        EXPECT_EQ(hear(server.port()).substr(2), "the certificate of mail.test is not trusted: the "
                                                 "certificate is not standards compliant");
    }
}

TEST_F(MacosTls, IsRefusedInAForkedChild)
{
    tls_front server(ca_.issue(), {});
    ASSERT_EQ(hear(server.port()), "+");
    pid_t const child = ::fork();
    if (child == 0) {
        std::string const said = hear(server.port());
        ::_exit(said.substr(2) == "TLS cannot be set up: a forked child has to call exec first"
                    ? 0
                    : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// ---- the fake is strict

OSStatus no_bytes(SSLConnectionRef /*connection*/, void* /*data*/, size_t* size)
{
    *size = 0;
    return errSecSuccess;
}

OSStatus no_bytes_sent(SSLConnectionRef /*connection*/, void const* /*data*/, size_t* size)
{
    *size = 0;
    return errSecSuccess;
}

class FakeTlsDeathTest : public testing::Test
{
protected:
    FakeTlsDeathTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    static SSLContextRef made_context()
    {
        return SSLCreateContext(nullptr, kSSLClientSide, kSSLStreamType);
    }
};

TEST_F(FakeTlsDeathTest, AbortsBeforeTheHandshake)
{
    char   byte = 0;
    size_t done = 0;
    EXPECT_DEATH(SSLRead(made_context(), &byte, 1, &done), "SSLRead: before the handshake");
    EXPECT_DEATH(SSLWrite(made_context(), &byte, 1, &done), "SSLWrite: before the handshake");
    EXPECT_DEATH(SSLClose(made_context()), "SSLClose: before the handshake");
    EXPECT_DEATH(
        {
            SecTrustRef trust = nullptr;
            SSLCopyPeerTrust(made_context(), &trust);
        },
        "the server has shown nothing yet");
}

TEST_F(FakeTlsDeathTest, AbortsWithoutWhatAHandshakeNeeds)
{
    int connection = 0;
    EXPECT_DEATH(SSLHandshake(made_context()), "no functions for bytes");
    EXPECT_DEATH(
        {
            SSLContextRef const context = made_context();
            SSLSetIOFuncs(context, no_bytes, no_bytes_sent);
            SSLSetConnection(context, &connection);
            SSLHandshake(context);
        },
        "no stop at the certificate");
    EXPECT_DEATH(
        {
            SSLContextRef const context = made_context();
            SSLSetIOFuncs(context, no_bytes, no_bytes_sent);
            SSLSetConnection(context, &connection);
            SSLSetSessionOption(context, kSSLSessionOptionBreakOnServerAuth, TRUE);
            SSLHandshake(context);
        },
        "not all, and not errSSLWouldBlock");
}

TEST_F(FakeTlsDeathTest, AbortsOnAContextThatIsNoMore)
{
    EXPECT_DEATH(
        {
            SSLContextRef const context = made_context();
            CFRelease(context);
            SSLHandshake(context);
        },
        "no object, or no more");
    EXPECT_DEATH(SSLHandshake(reinterpret_cast<SSLContextRef>(
                     const_cast<void*>(static_cast<void const*>(CFSTR("a string"))))),
                 "an object of another type");
}

}  // namespace
}  // namespace zelieml::test
