// session_holder.h - how a session of SMTP or POP3 ends: in order, or on any other way out

#ifndef ZELIEML_LIBSENDW_SESSION_HOLDER_H
#define ZELIEML_LIBSENDW_SESSION_HOLDER_H

#include "liblog/trace.h"
#include "libsendw/sock.h"
#include "support/no_cancellation.h"

namespace zelieml
{

// abandon_session - smtp_abandon_session and pop_abandon_session
template <class Session>
void abandon_session(Session* session)
{
    if (session != nullptr && session->connected) {
        close_descriptor(session->socket);
    }
    delete session;
}

// Owns a session record of SMTP or POP3. Unless it is released, it abandons the session in the end:
// also when an exception or a cancelled thread leaves the conversation.
template <class Session>
class session_holder
{
public:
    explicit session_holder(Session* session = nullptr) : session_(session) {}
    ~session_holder() { abandon_session(session_); }
    session_holder(session_holder const&)            = delete;
    session_holder& operator=(session_holder const&) = delete;

    // Where a starting function stores the session, held from that moment on.
    Session** out() { return &session_; }

    Session* get() const { return session_; }
    Session* operator->() const { return session_; }

    // Hands the session over.
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
