// session_holder.h - a session that is given up on every way out but the good one

#ifndef ZELIEML_LIBSENDW_SESSION_HOLDER_H
#define ZELIEML_LIBSENDW_SESSION_HOLDER_H

namespace zelieml
{

// Owns a session record of SMTP or POP3. Unless it is released, its end closes the connection at
// once and frees the record: also when an exception or a cancelled thread leaves the conversation.
template <class Session, void (*abandon)(Session*)>
class session_holder
{
public:
    explicit session_holder(Session* session = nullptr) : session_(session) {}
    ~session_holder() { abandon(session_); }
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

}  // namespace zelieml

#endif
