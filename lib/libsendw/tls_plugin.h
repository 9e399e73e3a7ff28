/*
 * tls_plugin.h - what the plug-in for TLS offers to the library, which loads it when it needs it
 *
 * Private to the two: libzelieml-tls.so.1 belongs to the libzelieml.so.1 it is installed with. A
 * change here changes the number in the function's name, so that others never meet.
 */

#ifndef ZELIEML_LIBSENDW_TLS_PLUGIN_H
#define ZELIEML_LIBSENDW_TLS_PLUGIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* What is said before TLS. */
enum zelieml_tls_before {
    zelieml_tls_nothing = 0,
    zelieml_tls_smtp    = 1, /* greeting, EHLO, STARTTLS (RFC 3207) */
    zelieml_tls_pop     = 2  /* greeting, CAPA, STLS (RFC 2595) */
};

/* The first byte from the tunnel. */
enum zelieml_tls_outcome {
    zelieml_tls_works  = '+', /* then what the server says, a greeting before TLS first */
    zelieml_tls_failed = '-'  /* then one byte, an eml_cause, a sentence, and the end */
};

/* The strings are needed during the call only. */
struct zelieml_tls_ask {
    char const*             host;    /* whom the certificate has to name: host name or IP address */
    char const*             ca_file; /* PEM; null for the authorities that the system trusts */
    char const*             own_name; /* for EHLO */
    enum zelieml_tls_before before;
    int                     reply_ms;     /* how long each reply before TLS may take */
    int                     handshake_ms; /* how long TLS may take to begin */
};

/*
 * zelieml_tls_open_1 - put TLS on a connection
 *
 * tcp  a connected socket, IPv4 or IPv6; taken over in any case
 *
 * A thread of its own begins TLS and carries the bytes. It has let go of the connection when the
 * caller's end of the tunnel reads its end. If the caller has said neither QUIT nor its end by then,
 * one more command of his is taken, as TCP would, and the thread ends after it. It also ends soon
 * after the caller has closed his end.
 *
 * Returns the caller's end of the tunnel, a blocking stream socket, or -1 with errno. Waits for
 * nothing.
 */
int zelieml_tls_open_1(int tcp, const struct zelieml_tls_ask* ask);

#ifdef __cplusplus
}
#endif

#endif
