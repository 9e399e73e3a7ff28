// session_holder.h - the beginning and the two ends of an SMTP or POP3 session

#ifndef ZELIEML_LIBSENDW_SESSION_HOLDER_H
#define ZELIEML_LIBSENDW_SESSION_HOLDER_H

#include <new>
#include <sys/socket.h>
#include <unistd.h>

#include "liblog/trace.h"
#include "libsendw/sock.h"
#include "libsendw/tunnel.h"
#include "support/attempt_note.h"
#include "support/no_cancellation.h"

namespace zelieml
{

// connect_session - make a session and connect it, for smtp_start_session and pop_start_session
//
// host, port, steps  see sock_connect_host
// tls, protocol      see tunnel_connect_host
// out                receives the session, null only when there is no memory; see the callers
//
// Returns 0 or -1.
template <class Session>
int connect_session(char const* host, int port, Session** out, connect_steps const& steps,
                    tls_choice const* tls, tunnel_protocol protocol)
{
    auto* const session = new (std::nothrow) Session();
    *out                = session;
    if (session == nullptr) {
        note_no_memory(steps.connect);
        return -1;
    }
    if (tunnel_connect_host(host, port, tls, protocol, session->socket, steps,
                            own_name_of(*session)) != 0) {
        return -1;
    }
    session->connected = true;
    session->tunneled  = tls != nullptr && tls->mode != tls_mode::none ? ::getpid() : 0;
    return 0;
}

// abandon_session - smtp_abandon_session and pop_abandon_session
template <class Session>
void abandon_session(Session* session)
{
    if (session != nullptr && session->connected) {
        // A forked child may have a copy of the tunnel, which would not end then; and the child
        // itself must not end it.
        if (session->tunneled != 0 && session->tunneled == ::getpid()) {
            ::shutdown(session->socket, SHUT_RDWR);
        }
        close_descriptor(session->socket);
    }
    delete session;
}

// Owns an SMTP or POP3 session record, and abandons the session unless it is released: also when an
// exception or a cancelled thread leaves the conversation.
template <class Session>
class session_holder
{
public:
    explicit session_holder(Session* session = nullptr) : session_(session) {}
    ~session_holder() { abandon_session(session_); }
    session_holder(session_holder const&)            = delete;
    session_holder& operator=(session_holder const&) = delete;

    // For the starting function to store the session in, which is owned from then on.
    Session** out() { return &session_; }

    Session* get() const { return session_; }
    Session* operator->() const { return session_; }

    // Hands the session over to the caller.
    Session* release()
    {
        Session* const session = session_;
        session_               = nullptr;
        return session;
    }

private:
    Session* session_;
};

// end_session - smtp_end_session and pop_end_session
template <class Session>
int end_session(Session* session)
{
    if (session == nullptr) {
        return -1;
    }
    session_holder<Session> const held(session);
    if (sock_end_connection(session->connected ? session->socket : -1) != 0) {
        trace_msg("error:shutdown_connection");
    }
    session->connected = false;
    return 0;
}

}  // namespace zelieml

#endif
