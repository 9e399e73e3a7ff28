// smtp_converse.h - what every SMTP session has in common: start, conversation, end

#ifndef ZELIEML_LIBSENDW_SMTP_CONVERSE_H
#define ZELIEML_LIBSENDW_SMTP_CONVERSE_H

#include <string>
#include <utility>

#include "liblog/trace.h"
#include "libsendw/libsendw.h"
#include "libsendw/smtp.h"

namespace zelieml
{

// smtp_converse - hold one SMTP session (RFC 5321)
//
// host, port    of the server; a null host counts as not found
// reply         receives the server's last reply; unchanged when the session could not be started
// conversation  called with the session once it has started; returns a send_result
// tls           see tunnel_connect_host
//
// Returns what conversation returned, or send_not_connected or send_not_ended. Leaves no connection
// open, also when conversation throws.
template <class Conversation>
int smtp_converse(char const* host, int port, std::string& reply, Conversation&& conversation,
                  tls_choice const* tls = nullptr)
{
    smtp_holder session;
    if (smtp_start_session(host, port, session.out(), tls) != 0) {
        trace_msg("error:smtp_start_sesion");  // deliberate, see docs/ODDITIES.md
        return send_not_connected;
    }
    int const result = conversation(session.get());
    reply            = std::move(session->reply);
    // Only a null session fails to end, so 1002 is never returned: deliberate, see
    // docs/ODDITIES.md.
    if (smtp_end_session(session.release()) != 0) {
        trace_msg("error:smtp_end_session");
        return send_not_ended;
    }
    return result;
}

}  // namespace zelieml

#endif
