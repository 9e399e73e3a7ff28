// secure_transport.cpp - Secure Transport, by GnuTLS
//
// A client of TLS 1.2, and of older versions unless they are ruled out.

#include <Security/Security.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gnutls/gnutls.h>

#include "tests/macos/fake/fake.h"
#include "tests/macos/fake/object.h"
#include "tests/macos/fake/trust.h"

using namespace zelieml::fake;

namespace
{

constexpr std::size_t most_in_record = 16384;

struct context_object : object {
    static constexpr kind what = kind::tls_context;
    static constexpr auto name = "NSObject";

    ~context_object()
    {
        if (session != nullptr) {
            gnutls_deinit(session);
            gnutls_certificate_free_credentials(credentials);
        }
    }

    SSLReadFunc                      read_bytes  = nullptr;
    SSLWriteFunc                     write_bytes = nullptr;
    SSLConnectionRef                 connection  = nullptr;
    text                             peer;
    SSLProtocol                      oldest      = kTLSProtocol1;
    bool                             stops       = false;  // at the certificate
    bool                             has_stopped = false;
    bool                             is_closed   = false;
    bool                             has_heard   = false;
    std::size_t                      unsent      = 0;
    OSStatus                         end         = errSSLClosedAbort;  // how it ended
    SSLSessionState                  state       = kSSLIdle;
    gnutls_session_t                 session     = nullptr;
    gnutls_certificate_credentials_t credentials = nullptr;
};

context_object* context_of(SSLContextRef context, char const* function)
{
    return as<context_object>(context, function);
}

// A context whose handshake has not begun.
context_object* fresh(SSLContextRef context, char const* function)
{
    context_object* const held = context_of(context, function);
    if (held->state != kSSLIdle) {
        refuse(function, "the handshake has begun");
    }
    return held;
}

// ---- bytes

// What a function for bytes has done; a negative number with errno for nothing.
ssize_t after(OSStatus status, std::size_t wanted, std::size_t done, context_object& context)
{
    if (done > wanted || (status == errSecSuccess) != (done == wanted)) {
        refuse("a function for bytes", "not all, and not errSSLWouldBlock; or more than all");
    }
    if (done > 0) {
        return static_cast<ssize_t>(done);
    }
    if (status == errSSLClosedGraceful) {
        return 0;
    }
    gnutls_transport_set_errno(context.session, status == errSSLWouldBlock ? EAGAIN : ECONNRESET);
    return -1;
}

ssize_t push(gnutls_transport_ptr_t where, void const* data, std::size_t wanted)
{
    auto&          context = *static_cast<context_object*>(where);
    std::size_t    done    = wanted;
    OSStatus const status  = context.write_bytes(context.connection, data, &done);
    ssize_t const  sent    = after(status, wanted, done, context);
    if (sent == 0) {
        gnutls_transport_set_errno(context.session, EPIPE);
    }
    return sent > 0 ? sent : -1;
}

ssize_t pull(gnutls_transport_ptr_t where, void* data, std::size_t wanted)
{
    auto&          context = *static_cast<context_object*>(where);
    std::size_t    done    = wanted;
    OSStatus const status  = context.read_bytes(context.connection, data, &done);
    context.has_heard |= done > 0;
    return after(status, wanted, done, context);
}

int pull_timeout(gnutls_transport_ptr_t /*where*/, unsigned /*ms*/)
{
    refuse("Secure Transport", "the fake never waits");
}

// ---- the handshake

// Called again when the handshake goes on.
int stop_at_certificate(gnutls_session_t session)
{
    auto& context = *static_cast<context_object*>(gnutls_session_get_ptr(session));
    if (context.has_stopped) {
        return 0;
    }
    context.has_stopped = true;
    return GNUTLS_E_INTERRUPTED;
}

void begin(context_object& context, char const* function)
{
    if (context.read_bytes == nullptr || context.connection == nullptr || !context.stops) {
        refuse(function, "no functions for bytes, no connection, or no stop at the certificate");
    }
    text versions = "NORMAL:-VERS-ALL:+VERS-TLS1.2";
    if (context.oldest < kTLSProtocol12) {
        versions += ":+VERS-TLS1.1:+VERS-TLS1.0";
    }
    gnutls_init(&context.session, GNUTLS_CLIENT | GNUTLS_NONBLOCK | GNUTLS_NO_TICKETS);
    gnutls_certificate_allocate_credentials(&context.credentials);
    gnutls_priority_set_direct(context.session, versions.c_str(), nullptr);
    gnutls_credentials_set(context.session, GNUTLS_CRD_CERTIFICATE, context.credentials);
    if (!context.peer.empty()) {
        gnutls_server_name_set(context.session, GNUTLS_NAME_DNS, context.peer.data(),
                               context.peer.size());
    }
    gnutls_session_set_ptr(context.session, &context);
    gnutls_session_set_verify_function(context.session, stop_at_certificate);
    gnutls_transport_set_ptr(context.session, &context);
    gnutls_transport_set_push_function(context.session, push);
    gnutls_transport_set_pull_function(context.session, pull);
    gnutls_transport_set_pull_timeout_function(context.session, pull_timeout);
    context.state = kSSLHandshake;
}

OSStatus alert_of(gnutls_session_t session)
{
    switch (gnutls_alert_get(session)) {
    case GNUTLS_A_PROTOCOL_VERSION:
        return errSSLPeerProtocolVersion;
    case GNUTLS_A_HANDSHAKE_FAILURE:
        return errSSLPeerHandshakeFail;
    default:
        return errSSLFatalAlert;
    }
}

// What GnuTLS says, in the words of Secure Transport.
OSStatus status_of(int status, context_object const& context)
{
    switch (status) {
    case GNUTLS_E_PREMATURE_TERMINATION:
        return context.has_heard ? errSSLClosedNoNotify : errSSLConnectionRefused;
    case GNUTLS_E_PULL_ERROR:
    case GNUTLS_E_PUSH_ERROR:
        return context.has_heard ? errSSLClosedAbort : errSSLConnectionRefused;
    case GNUTLS_E_UNEXPECTED_PACKET:
    case GNUTLS_E_UNEXPECTED_PACKET_LENGTH:
        return errSSLProtocol;
    case GNUTLS_E_UNSUPPORTED_VERSION_PACKET:
        return errSSLNegotiation;
    case GNUTLS_E_FATAL_ALERT_RECEIVED:
        return alert_of(context.session);
    default:
        return errSSLInternal;
    }
}

OSStatus end_with(context_object& context, OSStatus end)
{
    context.state = end == errSSLClosedGraceful ? kSSLClosed : kSSLAborted;
    context.end   = end;
    return end;
}

// ---- inside

// A context that is inside TLS, or was.
context_object* inside(SSLContextRef context, char const* function)
{
    context_object* const held = context_of(context, function);
    if (held->state == kSSLIdle || (held->state == kSSLHandshake && !held->has_stopped)) {
        refuse(function, "before the handshake");
    }
    if (held->is_closed) {
        refuse(function, "after SSLClose");
    }
    return held;
}

bool has_to_wait(ssize_t status)
{
    return status == GNUTLS_E_AGAIN || status == GNUTLS_E_INTERRUPTED;
}

// Sends what was taken and not sent.
OSStatus send_the_rest(context_object& context)
{
    while (context.unsent > 0) {
        ssize_t const sent = gnutls_record_send(context.session, nullptr, 0);
        if (has_to_wait(sent)) {
            return errSSLWouldBlock;
        }
        if (sent <= 0) {
            return end_with(context, errSSLClosedAbort);
        }
        context.unsent = 0;
    }
    return errSecSuccess;
}

}  // namespace

SSLContextRef SSLCreateContext(CFAllocatorRef /*allocator*/, SSLProtocolSide side,
                               SSLConnectionType type)
{
    require_first_process("SSLCreateContext");
    if (side != kSSLClientSide || type != kSSLStreamType) {
        refuse("SSLCreateContext", "the fake has clients of streams only");
    }
    return may_create() ? reinterpret_cast<SSLContextRef>(make<context_object>()) : nullptr;
}

OSStatus SSLSetIOFuncs(SSLContextRef context, SSLReadFunc read, SSLWriteFunc write)
{
    context_object* const held = fresh(context, "SSLSetIOFuncs");
    if (read == nullptr || write == nullptr) {
        refuse("SSLSetIOFuncs", "null");
    }
    held->read_bytes  = read;
    held->write_bytes = write;
    return errSecSuccess;
}

OSStatus SSLSetConnection(SSLContextRef context, SSLConnectionRef connection)
{
    fresh(context, "SSLSetConnection")->connection = connection;
    return errSecSuccess;
}

OSStatus SSLSetPeerDomainName(SSLContextRef context, char const* name, size_t size)
{
    context_object* const held = fresh(context, "SSLSetPeerDomainName");
    if (!may_create()) {
        return errSecAllocate;
    }
    held->peer.assign(name, size);
    return errSecSuccess;
}

OSStatus SSLSetProtocolVersionMin(SSLContextRef context, SSLProtocol oldest)
{
    fresh(context, "SSLSetProtocolVersionMin")->oldest = oldest;
    return errSecSuccess;
}

OSStatus SSLSetSessionOption(SSLContextRef context, SSLSessionOption option, Boolean value)
{
    context_object* const held = fresh(context, "SSLSetSessionOption");
    if (option != kSSLSessionOptionBreakOnServerAuth) {
        return errSecParam;
    }
    held->stops = value != FALSE;
    return errSecSuccess;
}

OSStatus SSLGetSessionState(SSLContextRef context, SSLSessionState* state)
{
    *state = context_of(context, "SSLGetSessionState")->state;
    return errSecSuccess;
}

OSStatus SSLHandshake(SSLContextRef context)
{
    constexpr char        function[] = "SSLHandshake";
    context_object* const held       = context_of(context, function);
    if (held->state == kSSLIdle) {
        begin(*held, function);
    }
    if (held->state != kSSLHandshake) {
        refuse(function, "the handshake is over");
    }
    for (;;) {
        bool const has_stopped = held->has_stopped;
        int const  status      = gnutls_handshake(held->session);
        if (status == GNUTLS_E_SUCCESS) {
            held->state = kSSLConnected;
            return errSecSuccess;
        }
        if (held->has_stopped && !has_stopped) {
            return errSSLServerAuthCompleted;
        }
        if (has_to_wait(status)) {
            return errSSLWouldBlock;
        }
        if (gnutls_error_is_fatal(status) != 0) {
            return end_with(*held, status_of(status, *held));
        }
    }
}

OSStatus SSLCopyPeerTrust(SSLContextRef context, SecTrustRef* trust)
{
    constexpr char        function[] = "SSLCopyPeerTrust";
    context_object* const held       = context_of(context, function);
    if (!held->has_stopped || trust == nullptr) {
        refuse(function, "the server has shown nothing yet");
    }
    if (!may_create()) {
        return errSecAllocate;
    }
    unsigned                    count = 0;
    gnutls_datum_t const* const shown = gnutls_certificate_get_peers(held->session, &count);
    *trust                            = make_trust(shown, count);
    return errSecSuccess;
}

// What was read comes with the reason why it is no more.
OSStatus SSLRead(SSLContextRef context, void* data, size_t size, size_t* done)
{
    constexpr char        function[] = "SSLRead";
    context_object* const held       = inside(context, function);
    if (data == nullptr || size == 0 || done == nullptr) {
        refuse(function, "no room");
    }
    *done = 0;
    while (*done < size) {
        if (held->state == kSSLHandshake) {
            return errSSLWouldBlock;
        }
        if (held->state != kSSLConnected) {
            return held->end;
        }
        ssize_t const got =
            gnutls_record_recv(held->session, static_cast<char*>(data) + *done, size - *done);
        if (got > 0) {
            *done += static_cast<std::size_t>(got);
        } else if (got == GNUTLS_E_REHANDSHAKE) {
            held->state = kSSLHandshake;
        } else if (has_to_wait(got)) {
            return errSSLWouldBlock;
        } else if (got == 0) {
            end_with(*held, errSSLClosedGraceful);
        } else if (gnutls_error_is_fatal(static_cast<int>(got)) != 0) {
            end_with(*held, status_of(static_cast<int>(got), *held));
        }
    }
    return errSecSuccess;
}

OSStatus SSLWrite(SSLContextRef context, void const* data, size_t size, size_t* done)
{
    constexpr char        function[] = "SSLWrite";
    context_object* const held       = inside(context, function);
    if ((data == nullptr && size > 0) || done == nullptr) {
        refuse(function, "null");
    }
    *done = 0;
    if (held->state != kSSLConnected) {
        return held->state == kSSLHandshake ? OSStatus{errSSLWouldBlock} : held->end;
    }
    OSStatus status = send_the_rest(*held);
    while (status == errSecSuccess && *done < size) {
        std::size_t const piece = std::min(size - *done, most_in_record);
        ssize_t const     sent =
            gnutls_record_send(held->session, static_cast<char const*>(data) + *done, piece);
        if (sent > 0) {
            *done += static_cast<std::size_t>(sent);
        } else if (has_to_wait(sent)) {
            held->unsent = piece;
            *done += piece;
            status = errSSLWouldBlock;
        } else {
            status = end_with(*held, errSSLClosedAbort);
        }
    }
    return status;
}

OSStatus SSLClose(SSLContextRef context)
{
    context_object* const held = inside(context, "SSLClose");
    if (held->state == kSSLConnected) {
        if (send_the_rest(*held) == errSSLWouldBlock ||
            has_to_wait(gnutls_bye(held->session, GNUTLS_SHUT_WR))) {
            return errSSLWouldBlock;
        }
    }
    held->is_closed = true;
    end_with(*held, errSSLClosedGraceful);
    return errSecSuccess;
}

CFStringRef SecCopyErrorMessageString(OSStatus status, void* reserved)
{
    require_first_process("SecCopyErrorMessageString");
    if (reserved != nullptr) {
        refuse("SecCopyErrorMessageString", "something reserved");
    }
    char text[64];
    std::snprintf(text, sizeof text, "OSStatus %d", static_cast<int>(status));
    return CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8);
}
