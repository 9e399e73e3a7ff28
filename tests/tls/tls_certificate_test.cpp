// Certificates: which are trusted, on which authorities' word, and what the reasons say of them.

#include <algorithm>
#include <fcntl.h>
#include <gnutls/x509.h>
#include <string>
#include <sys/stat.h>

#include "tests/support/skip.h"
#include "tests/tls/authority.h"
#include "tests/tls/plugin_room.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

class TlsCertificate : public plugin_room
{
};

// ---- purposes

// Of servers whose clients may be given stronger algorithms: some systems take it for a server's.
constexpr char step_up[] = "2.16.840.1.113730.4.1";

wanted_certificate with_purposes(std::vector<std::string> const& oids)
{
    wanted_certificate wanted;
    wanted.purposes = oids;
    return wanted;
}

TEST_F(TlsCertificate, HasToBeForServers)
{
    for (char const* const other :
         {GNUTLS_KP_TLS_WWW_CLIENT, GNUTLS_KP_EMAIL_PROTECTION, GNUTLS_KP_CODE_SIGNING, step_up}) {
        tls_front server(ca().issue(with_purposes({other})), {});
        EXPECT_EQ(hear(ask(server.port())), untrusted("mail.test", "it is not for servers"));
        EXPECT_EQ(server.heard_inside(), "");
    }
}

TEST_F(TlsCertificate, MayBeForAnyPurposeOrSayNone)
{
    SKIP_UNLESS(has_backend("linux"), "macOS wants it to say that it is for servers");
    std::vector<std::string> const none;
    for (auto const& fitting : {none, {GNUTLS_KP_ANY}}) {
        tls_front server(ca().issue(with_purposes(fitting)), {});
        EXPECT_EQ(hear(ask(server.port())), "+") << fitting.size();
    }
}

TEST_F(TlsCertificate, MayBeForServersAmongOthers)
{
    tls_front server(
        ca().issue(with_purposes({GNUTLS_KP_TLS_WWW_CLIENT, GNUTLS_KP_TLS_WWW_SERVER})), {});
    EXPECT_EQ(hear(ask(server.port())), "+");
}

// ---- names

TEST_F(TlsCertificate, IsForAHostWithADotBehindItsName)
{
    tls_front server(ca().issue(), {});
    EXPECT_EQ(hear(ask(server.port(), "mail.test.")), "+");
    EXPECT_EQ(hear(ask(server.port(), "mail.test..")).substr(0, 1), "-");
    EXPECT_EQ(hear(ask(server.port(), "other.test.")),
              untrusted("other.test", "it is for mail.test"));
}

// ---- refusals

// By an alert, which goes without waiting: not each gets there.
TEST_F(TlsCertificate, IsToldToBeRefused)
{
    SKIP_UNLESS(has_backend("linux"), "each system has alerts of its own");
    for (char const* const version : {"+VERS-TLS1.2", "+VERS-TLS1.3"}) {
        tls_manners manners;
        manners.priority = std::string("NORMAL:-VERS-ALL:") + version;
        tls_front server(self_signed(), manners);
        for (int i = 0; i < 20 && server.alert() == -1; ++i) {
            EXPECT_EQ(hear(ask(server.port())).substr(0, 1), "-");
            server.wait();
        }
        EXPECT_EQ(server.alert(), GNUTLS_A_BAD_CERTIFICATE) << version;
    }
}

// ---- authorities

// A certificate of the same size as the other one's.
std::string padded(authority const& one, authority const& other)
{
    std::string const text = one.certificate();
    std::size_t const size = std::max(text.size(), other.certificate().size());
    return text + std::string(size - text.size(), '\n');
}

// Written into the same file, with the time that it has: all that differs is when it was changed.
TEST_F(TlsCertificate, IsNotTrustedOnTheWordOfWhomTheFileNamedJustBefore)
{
    authority const one("One");
    authority const other("Two");
    tls_front       server(one.issue(), {});
    auto const      write = [this](std::string const& text) {
        timespec const times[2] = {{1000000000, 0}, {1000000000, 0}};
        write_file(ca_file, text);
        ASSERT_EQ(::utimensat(AT_FDCWD, ca_file.c_str(), times, 0), 0);
    };
    write(padded(one, other));
    EXPECT_EQ(hear(ask(server.port())), "+");
    write(padded(other, one));
    EXPECT_EQ(hear(ask(server.port())),
              untrusted("mail.test", "issued by an unknown authority, CN=One"));
}

// The server does not send it.
TEST_F(TlsCertificate, IsNotTrustedOnTheWordOfAnAuthorityThatExpired)
{
    authority const old("Old", -2);
    write_file(ca_file, old.certificate());
    tls_front server(old.issue(), {});
    EXPECT_EQ(hear(ask(server.port())),
              untrusted("mail.test", "the certificate of its issuer expired on " + day_in(-2)));
}

TEST_F(TlsCertificate, SaysThatOneOfTheAuthoritiesIsDamaged)
{
    tls_front         server(ca().issue(), {});
    std::string const good = ca().certificate();
    std::string       bad  = good;
    bad.replace(bad.find('\n') + 1, 8, "AAAAAAAA");
    write_file(ca_file, good + bad);
    EXPECT_EQ(hear(ask(server.port())),
              refusal(eml_cause_settings, "a certificate in " + ca_file + " cannot be read"));
}

}  // namespace

}  // namespace zelieml::test
