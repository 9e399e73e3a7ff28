// tls_session.h - TLS over a non-blocking socket, as the tunnel needs it
//
// gnutls/tls_session.cpp, secure_transport/tls_session.cpp (macOS). TLS 1.2 or newer; the server's
// certificate must be valid, for this host, and of an authority that is trusted. No revocation
// lists, no client certificates, no resumption, no renegotiation.

#ifndef ZELIEML_PLUGINS_TLS_TLS_SESSION_H
#define ZELIEML_PLUGINS_TLS_TLS_SESSION_H

#include <memory>
#include <string>
#include <sys/types.h>

namespace zelieml::tls
{

class tls_session
{
public:
    // fd       the connection, which stays the caller's, and open as long as the object
    // host     host name or IP address
    // ca_file  PEM; empty for the authorities that the system trusts
    //
    // Throws a failure.
    tls_session(int fd, std::string const& host, std::string const& ca_file);
    ~tls_session();
    tls_session(tls_session const&)            = delete;
    tls_session& operator=(tls_session const&) = delete;

    // shake_hands - go on beginning TLS
    //
    // Returns true when it is done: the certificate has been checked then. Returns false when the
    // connection has to be ready first, see waits_for. Throws a failure.
    bool shake_hands();

    // waits_for - the event of poll that the last call has to wait for
    short waits_for() const;

    // What send and receive return instead of a number of bytes.
    enum : ssize_t {
        not_now = 0,
        over    = -1  // the server has ended TLS or the connection, or broken the rules
    };

    // send - after not_now to be called again with the same bytes
    ssize_t send(char const* data, std::size_t size);
    ssize_t receive(char* data, std::size_t size);

    // say_goodbye - tell the server that no more is sent
    //
    // Returns false when the connection has to be ready first.
    bool say_goodbye();

    // Whether there is TLS 1.3, and whether what the server says after a goodbye is received.
    static bool const has_tls_1_3;
    static bool const hears_after_goodbye;

private:
    struct state;
    std::unique_ptr<state> state_;
};

}  // namespace zelieml::tls

#endif
