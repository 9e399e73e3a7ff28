// tunnel_thread.h - the thread between a connection and its session

#ifndef ZELIEML_PLUGINS_TLS_TUNNEL_THREAD_H
#define ZELIEML_PLUGINS_TLS_TUNNEL_THREAD_H

#include <string>

#include "libsendw/tls_plugin.h"
#include "support/unique_fd.h"

namespace zelieml::tls
{

// What the thread works with.
struct tunnel_work {
    // ask  its strings are copied
    tunnel_work(unique_fd tcp, unique_fd tunnel, zelieml_tls_ask const& ask);

    unique_fd          tcp;
    unique_fd          tunnel;  // its end
    std::string        host;
    std::string        ca_file;
    std::string        own_name;
    zelieml_tls_before before;
    int                reply_ms;
    int                handshake_ms;
};

// run - begin TLS, and carry bytes until the server or the session ends
//
// In the end everything is let go but work.tunnel. Throws nothing.
//
// Returns whether the server ended first, and the session may go on to speak.
bool run(tunnel_work& work);

}  // namespace zelieml::tls

#endif
