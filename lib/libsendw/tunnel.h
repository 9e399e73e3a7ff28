// tunnel.h - connections to mail servers, with TLS where it is asked for
//
// TLS goes around the conversation, not into it: a plug-in (plugins/tls/) takes the connection and
// gives the session a local socket in its place, from which the session reads what the server says
// inside TLS. A session cannot tell that socket from a server. See docs/TLS.md.
//
// Without a choice the plug-in is never loaded. With one, there is TLS or no connection.

#ifndef ZELIEML_LIBSENDW_TUNNEL_H
#define ZELIEML_LIBSENDW_TUNNEL_H

#include <optional>
#include <string>

#include "libsendw/sock.h"

namespace zelieml
{

enum class tls_mode : char {
    none,
    starttls,  // after STARTTLS or STLS, on the usual port
    tls,       // from the first byte, on a port of its own
    unclear    // it may have been asked for: there is no connection
};

// What is asked for a connection.
struct tls_choice {
    tls_mode    mode    = tls_mode::none;
    std::string ca_file = {};  // PEM; empty for the authorities that the system trusts
    std::string fault   = {};  // for unclear: why it is; empty for lack of memory
};

// tls_mode_of - "no", "starttls", "tls"; anything else is unclear
tls_mode tls_mode_of(std::string const& text);

enum class tunnel_protocol : char {
    smtp,
    pop
};

// tunnel_connect_host - sock_connect_host, and TLS on the connection where it is asked for
//
// choice     null for none
// protocol   what is said before TLS, for starttls
// fd, steps  as for sock_connect_host. With TLS fd is the end of a tunnel, to be used, shut down
//            and closed like any connected socket.
// own_name   receives this host's name if it had to be looked up, for EHLO before TLS; null
//            for POP3
//
// Waits at most 15 s for each reply before TLS, and at most 30 s for TLS.
//
// Returns 0. Returns -1 with the reason noted; nothing but EHLO and STARTTLS, or CAPA and STLS, has
// been said then.
int tunnel_connect_host(char const* host, int port, tls_choice const* choice,
                        tunnel_protocol protocol, int& fd, connect_steps const& steps,
                        std::optional<std::string>* own_name);

// tunnel_start_tls - the last step of tunnel_connect_host
//
// fd      in: the connected socket, which is taken over in any case; out: the end of the tunnel, or
//         -1
// choice  starttls or tls
int tunnel_start_tls(int& fd, char const* host, tls_choice const& choice, tunnel_protocol protocol,
                     connect_steps const& steps, std::optional<std::string>* own_name);

// tunnel_note_unclear - the reason when a choice is unclear
void tunnel_note_unclear(tls_choice const& choice);

}  // namespace zelieml

#endif
