// tls_session.cpp - TLS with GnuTLS

#include "plugins/tls/tls_session.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <new>
#include <poll.h>
#include <utility>

#include "platform/no_fork.h"
#include "platform/socket.h"
#include "plugins/tls/failure.h"
#include "plugins/tls/gnutls/authorities.h"
#include "plugins/tls/gnutls/certificate.h"
#include "support/ascii.h"

namespace zelieml::tls
{

namespace
{

// Taken away only: the system may have taken away more.
constexpr char versions[] = "-VERS-TLS1.1:-VERS-TLS1.0:-VERS-SSL3.0";

constexpr int most_warnings = 10;

// "GNUTLS_E_INVALID_SESSION" as "invalid session". The sentences of GnuTLS are in the language of
// the program.
std::string words_of(char const* name)
{
    std::string words = name != nullptr ? name : "GNUTLS_E_UNKNOWN_ERROR";
    words.erase(0, sizeof "GNUTLS_E_" - 1);
    std::transform(words.begin(), words.end(), words.begin(),
                   [](char c) { return c == '_' ? ' ' : ascii_lower(c); });
    return words;
}

std::string cannot_be_set_up(int status)
{
    return "TLS cannot be set up: " + words_of(gnutls_strerror_name(status));
}

// One use of GnuTLS that never ends: what it has set up stays until the process is gone, also while
// a thread is on its last steps. It begins when the plug-in is loaded: were it a thread's, a process
// that exits or forks meanwhile would have half of it.
int const set_up = gnutls_global_init();

void check(int status)
{
    if (status == GNUTLS_E_MEMORY_ERROR) {
        throw std::bad_alloc();
    }
    if (status < 0) {
        throw failure{eml_cause_tls, cannot_be_set_up(status)};
    }
}

// GnuTLS makes a generator of random numbers for each thread when it first needs one, and holds a
// lock then that it does not release in a forked child.
void make_generator()
{
    platform::no_fork const waits;
    unsigned char           any = 0;
    check(gnutls_rnd(GNUTLS_RND_NONCE, &any, sizeof any));
}

bool is_address(std::string const& host)
{
    in_addr  v4;
    in6_addr v6;
    return ::inet_pton(AF_INET, host.c_str(), &v4) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), &v6) == 1;
}

// What GnuTLS sends. It never has to wait and never fails: where it has to go on with half a record,
// and the server has asked for new keys meanwhile, it would send the bytes of that record twice.
class outgoing
{
public:
    explicit outgoing(int fd) : fd_(fd) {}

    bool is_cut() const { return is_cut_; }

    void put(char const* data, std::size_t size)
    {
        try {
            unsent_.append(data, size);
            flush();
        } catch (std::exception const&) {
            is_cut_ = true;
        }
    }

    // Returns false while something is left to be sent.
    bool flush()
    {
        while (!unsent_.empty() && !is_cut_) {
            // As the library sends: without SIGPIPE, on every system.
            ssize_t const sent = platform::send_bytes(fd_, unsent_.data(), unsent_.size());
            if (sent < 0 && errno == EAGAIN) {
                return false;
            }
            is_cut_ = sent < 0;
            unsent_.erase(0, is_cut_ ? 0 : static_cast<std::size_t>(sent));
        }
        return true;
    }

private:
    int         fd_;
    bool        is_cut_ = false;  // sending has failed
    std::string unsent_;
};

ssize_t push(gnutls_transport_ptr_t where, void const* data, std::size_t size)
{
    static_cast<outgoing*>(where)->put(static_cast<char const*>(data), size);
    return static_cast<ssize_t>(size);
}

bool has_to_wait(ssize_t status)
{
    return status == GNUTLS_E_AGAIN || status == GNUTLS_E_INTERRUPTED;
}

}  // namespace

bool const tls_session::has_tls_1_3         = true;
bool const tls_session::hears_after_goodbye = true;

struct tls_session::state {
    std::string           host;
    gnutls_typed_vdata_st asked[2] = {};  // of the certificate
    credentials           trust;
    gnutls_session_t      session = nullptr;
    outgoing              out;
    ssize_t               taken        = 0;  // of the bytes to be sent, and not all sent yet
    short                 waits_for    = 0;
    bool                  has_shaken   = false;
    bool                  goodbye_said = false;

    explicit state(int fd) : out(fd) {}
    bool has_sent();
    void ask_for_server();

    ~state()
    {
        if (session != nullptr) {
            gnutls_deinit(session);  // before the credentials go
        }
    }

    [[noreturn]] void fail(int status) const;
};

// Whether nothing is left to be sent.
bool tls_session::state::has_sent()
{
    waits_for = POLLOUT;
    return out.flush();
}

// A server's certificate for the host. GnuTLS keeps pointers to this.
void tls_session::state::ask_for_server()
{
    static constexpr char purpose[] = GNUTLS_KP_TLS_WWW_SERVER;
    auto const            bytes     = [](char const* text) {
        return reinterpret_cast<unsigned char*>(const_cast<char*>(text));
    };
    asked[0] = {GNUTLS_DT_DNS_HOSTNAME, bytes(host.c_str()), 0};
    asked[1] = {GNUTLS_DT_KEY_PURPOSE_OID, bytes(purpose), 0};
    gnutls_session_set_verify_cert2(session, asked, 2, 0);
}

// Why the handshake failed.
void tls_session::state::fail(int status) const
{
    switch (status) {
    case GNUTLS_E_MEMORY_ERROR:
        throw std::bad_alloc();
    case GNUTLS_E_CERTIFICATE_VERIFICATION_ERROR:
        gnutls_alert_send_appropriate(session, status);  // if it goes without waiting
        throw failure{eml_cause_tls, "the certificate of " + host +
                                         " is not trusted: " + why_not_trusted(session)};
    case GNUTLS_E_PREMATURE_TERMINATION:
    case GNUTLS_E_PULL_ERROR:
    case GNUTLS_E_PUSH_ERROR:
        throw failure{eml_cause_lost, "the server closed the connection while TLS began"};
    case GNUTLS_E_UNEXPECTED_PACKET:
    case GNUTLS_E_UNEXPECTED_PACKET_LENGTH:
    case GNUTLS_E_UNSUPPORTED_VERSION_PACKET:
        throw failure{eml_cause_tls, "the server speaks no TLS here, or none newer than 1.1"};
    case GNUTLS_E_FATAL_ALERT_RECEIVED:
        throw failure{eml_cause_tls,
                      "the server refused to begin TLS: " +
                          words_of(gnutls_alert_get_strname(gnutls_alert_get(session)))};
    default:
        throw failure{eml_cause_tls, "the server does not begin TLS as it must: " +
                                         words_of(gnutls_strerror_name(status))};
    }
}

tls_session::tls_session(int fd, std::string const& host, std::string const& ca_file)
    : state_(std::make_unique<state>(fd))
{
    check(set_up);
    make_generator();
    state_->host  = host;
    state_->trust = trusted(ca_file);
    check(gnutls_init(&state_->session, GNUTLS_CLIENT | GNUTLS_NONBLOCK | GNUTLS_NO_TICKETS));
    gnutls_session_t const session = state_->session;
    check(gnutls_set_default_priority_append(session, versions, nullptr, 0));
    check(gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, state_->trust.get()));
    if (!is_address(host)) {
        check(gnutls_server_name_set(session, GNUTLS_NAME_DNS, host.data(), host.size()));
    }
    state_->ask_for_server();
    auto* const in = reinterpret_cast<gnutls_transport_ptr_t>(static_cast<std::intptr_t>(fd));
    gnutls_transport_set_ptr2(session, in, &state_->out);
    gnutls_transport_set_push_function(session, push);
}

tls_session::~tls_session() = default;

bool tls_session::shake_hands()
{
    for (int warnings = 0; !state_->has_shaken && warnings < most_warnings; ++warnings) {
        int const  status   = gnutls_handshake(state_->session);
        bool const has_sent = state_->out.flush();
        if (status < 0 && !has_to_wait(status) && gnutls_error_is_fatal(status) != 0) {
            state_->fail(status);
        }
        if (state_->out.is_cut()) {  // and the server has not said why
            state_->fail(GNUTLS_E_PUSH_ERROR);
        }
        if (has_to_wait(status)) {
            state_->waits_for = has_sent ? POLLIN : POLLOUT;
            return false;
        }
        state_->has_shaken = status == GNUTLS_E_SUCCESS;
    }
    if (!state_->has_shaken) {
        throw failure{eml_cause_tls, "the server warns instead of beginning TLS"};
    }
    return state_->has_sent();
}

short tls_session::waits_for() const
{
    return state_->waits_for;
}

ssize_t tls_session::send(char const* data, std::size_t size)
{
    if (state_->taken == 0) {
        state_->taken = gnutls_record_send(state_->session, data, size);
    }
    if (state_->taken > 0 && !state_->has_sent()) {
        return not_now;
    }
    ssize_t const sent = std::exchange(state_->taken, 0);
    return sent > 0 && !state_->out.is_cut() ? sent : ssize_t{over};
}

// Warnings and renegotiation are the end, too: mail servers do neither.
ssize_t tls_session::receive(char* data, std::size_t size)
{
    ssize_t const got = gnutls_record_recv(state_->session, data, size);
    state_->waits_for = POLLIN;
    return got > 0 ? got : has_to_wait(got) ? ssize_t{not_now} : ssize_t{over};
}

bool tls_session::say_goodbye()
{
    if (!state_->goodbye_said) {
        gnutls_bye(state_->session, GNUTLS_SHUT_WR);
        state_->goodbye_said = true;
    }
    return state_->has_sent();
}

}  // namespace zelieml::tls
