// tls_session.cpp - TLS with Secure Transport (macOS)
//
// It has TLS 1.2 and nothing newer. The handshake stops when the server has shown its certificate:
// whether it is trusted is for trust.cpp to say, and nothing has been said to the server by then
// but what every client says.

#include "plugins/tls/tls_session.h"

#include <Security/Security.h>
#include <cerrno>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"
#include "platform/socket.h"
#include "plugins/tls/failure.h"
#include "plugins/tls/secure_transport/authorities.h"
#include "plugins/tls/secure_transport/certificate.h"
#include "plugins/tls/secure_transport/status_text.h"
#include "plugins/tls/secure_transport/trust.h"

namespace zelieml::tls
{

namespace
{

using platform::cf_out;
using platform::cf_owner;

constexpr char misbehaves[] = "the server does not begin TLS as it must";

// The connection, and what it was not ready for.
struct transport {
    int   fd        = -1;
    short waits_for = 0;
    bool  is_inside = false;  // the handshake is done
    bool  is_cut    = false;  // sending has failed
};

transport& transport_of(SSLConnectionRef connection)
{
    return *static_cast<transport*>(const_cast<void*>(connection));
}

// What has become of the bytes that Secure Transport wants to be carried: all of them are, or it
// has to ask again.
OSStatus after(ssize_t status, transport& way, short event)
{
    if (status < 0 && errno == EAGAIN) {
        way.waits_for = event;
        return errSSLWouldBlock;
    }
    return status == 0 ? errSSLClosedGraceful : errSSLClosedAbort;
}

OSStatus pull(SSLConnectionRef connection, void* data, std::size_t* size)
{
    transport&        way    = transport_of(connection);
    std::size_t const wanted = std::exchange(*size, 0);
    while (*size < wanted) {
        ssize_t const got = ::recv(way.fd, static_cast<char*>(data) + *size, wanted - *size, 0);
        if (got > 0) {
            *size += static_cast<std::size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            return after(got, way, POLLIN);
        }
    }
    return errSecSuccess;
}

// As the library sends: without SIGPIPE, on every system. Secure Transport hears inside TLS only
// that it has to ask again: after a failure it would not read what the server said before it
// closed.
OSStatus push(SSLConnectionRef connection, void const* data, std::size_t* size)
{
    transport&        way    = transport_of(connection);
    std::size_t const wanted = std::exchange(*size, 0);
    while (*size < wanted) {
        ssize_t const sent =
            platform::send_bytes(way.fd, static_cast<char const*>(data) + *size, wanted - *size);
        if (sent <= 0) {
            OSStatus const status = after(sent, way, POLLOUT);
            way.is_cut            = status != errSSLWouldBlock;
            return way.is_inside ? OSStatus{errSSLWouldBlock} : status;
        }
        *size += static_cast<std::size_t>(sent);
    }
    return errSecSuccess;
}

void check(OSStatus status)
{
    require_success(status, "TLS cannot be set up");
}

bool is_alert_of_server(OSStatus status)
{
    return status == errSSLFatalAlert ||
           (status <= errSSLPeerUnexpectedMsg && status >= errSSLPeerNoRenegotiation);
}

// Throws a failure that says why the handshake failed, unless it did not.
void fail_unless_done(OSStatus status)
{
    switch (status) {
    case errSSLClosedGraceful:
    case errSSLClosedAbort:
    case errSSLClosedNoNotify:
    case errSSLConnectionRefused:
        throw failure{eml_cause_lost, "the server closed the connection while TLS began"};
    case errSSLProtocol:
    case errSSLNegotiation:
    case errSSLRecordOverflow:
        throw failure{eml_cause_tls, "the server speaks no TLS here, or none newer than 1.1"};
    case errSSLPeerHandshakeFail:
    case errSSLPeerProtocolVersion:
        throw failure{eml_cause_tls, "the server refused to begin TLS: it does not take TLS 1.2 as "
                                     "this system offers it"};
    default:
        require_success(status, is_alert_of_server(status) ? "the server refused to begin TLS"
                                                           : misbehaves);
    }
}

}  // namespace

bool const tls_session::has_tls_1_3         = false;
bool const tls_session::hears_after_goodbye = false;

struct tls_session::state {
    transport               way;
    std::string             host;
    authorities             trust;
    cf_owner<SSLContextRef> context;
    std::size_t             taken        = 0;  // of the bytes to be sent, and not sent yet
    bool                    is_trusted   = false;
    bool                    goodbye_said = false;

    void check_server();
    bool may_go_on() const;
};

// Once in a handshake; a second time is a second handshake.
void tls_session::state::check_server()
{
    cf_owner<SecTrustRef> shown;
    require_success(::SSLCopyPeerTrust(context.get(), cf_out<SecTrustRef>(shown)), misbehaves);
    if (!shown || is_trusted) {
        throw failure{eml_cause_tls, std::string(misbehaves) + ": no certificate to look at"};
    }
    require_trust(shown.get(), host, trust);
    is_trusted = true;
}

// Not while there is a second handshake, which mail servers do not ask for.
bool tls_session::state::may_go_on() const
{
    SSLSessionState is = kSSLAborted;
    return !way.is_cut && ::SSLGetSessionState(context.get(), &is) == errSecSuccess &&
           is == kSSLConnected;
}

tls_session::tls_session(int fd, std::string const& host, std::string const& ca_file)
    : state_(std::make_unique<state>())
{
    if (platform::is_forked()) {
        throw failure{eml_cause_tls, "TLS cannot be set up: a forked child has to call exec first"};
    }
    state_->way.fd = fd;
    state_->host   = host;
    state_->trust  = trusted(ca_file);
    state_->context.reset(::SSLCreateContext(kCFAllocatorDefault, kSSLClientSide, kSSLStreamType));
    SSLContextRef const context = state_->context.get();
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    check(::SSLSetIOFuncs(context, pull, push));
    check(::SSLSetConnection(context, &state_->way));
    check(::SSLSetProtocolVersionMin(context, kTLSProtocol12));
    check(::SSLSetSessionOption(context, kSSLSessionOptionBreakOnServerAuth, 1));
    if (!is_address(host)) {
        check(::SSLSetPeerDomainName(context, host.data(), host.size()));
    }
}

tls_session::~tls_session() = default;

bool tls_session::shake_hands()
{
    OSStatus status = ::SSLHandshake(state_->context.get());
    if (status == errSSLServerAuthCompleted) {
        state_->check_server();
        status = ::SSLHandshake(state_->context.get());
    }
    if (status == errSSLWouldBlock) {
        return false;
    }
    fail_unless_done(status);
    if (!state_->is_trusted) {
        throw failure{eml_cause_tls, std::string(misbehaves) + ": it shows no certificate"};
    }
    state_->way.is_inside = true;
    return true;
}

short tls_session::waits_for() const
{
    return state_->way.waits_for;
}

// What SSLWrite takes it keeps if it cannot send it, and sends it when it is called without data.
ssize_t tls_session::send(char const* data, std::size_t size)
{
    bool const     is_kept = state_->taken != 0;
    std::size_t    nothing = 0;
    OSStatus const status  = ::SSLWrite(state_->context.get(), is_kept ? nullptr : data,
                                       is_kept ? 0 : size, is_kept ? &nothing : &state_->taken);
    if (status == errSSLWouldBlock && state_->may_go_on()) {
        return not_now;
    }
    return status == errSecSuccess ? static_cast<ssize_t>(std::exchange(state_->taken, 0))
                                   : ssize_t{over};
}

ssize_t tls_session::receive(char* data, std::size_t size)
{
    std::size_t done = 0;
    if (state_->goodbye_said) {
        return over;
    }
    OSStatus const status = ::SSLRead(state_->context.get(), data, size, &done);
    if (done > 0) {
        return static_cast<ssize_t>(done);
    }
    return status == errSSLWouldBlock && state_->may_go_on() ? ssize_t{not_now} : ssize_t{over};
}

bool tls_session::say_goodbye()
{
    if (!state_->goodbye_said) {
        state_->goodbye_said =
            ::SSLClose(state_->context.get()) != errSSLWouldBlock || state_->way.is_cut;
    }
    return state_->goodbye_said;
}

}  // namespace zelieml::tls
