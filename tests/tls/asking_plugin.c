/* asking_plugin.c - a plug-in that does nothing but tell what it was asked for, as its reason */

#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libsendw/tls_plugin.h"
#include "zelieml_ext.h"

__attribute__((visibility("default"))) int zelieml_tls_open_1(int                           tcp,
                                                              const struct zelieml_tls_ask* ask)
{
    int  pair[2];
    char text[300];
    int  size = 0;
    close(tcp);
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
        return -1;
    }
    size = snprintf(text, sizeof text, "%c%c%s by %s as '%s', before it %d, %d ms, %d ms",
                    zelieml_tls_failed, eml_cause_tls, ask->host,
                    ask->ca_file != NULL ? ask->ca_file : "the system's authorities", ask->own_name,
                    (int)ask->before, ask->reply_ms, ask->handshake_ms);
    if (size < 0 || write(pair[1], text, (size_t)size) != size) {
        close(pair[0]);
        pair[0] = -1;
    }
    close(pair[1]);
    return pair[0];
}
