/*
 * bare_client.h - the least that can send and fetch a mail: a yardstick for the library
 *
 * Speaks the dialogues that the library speaks (RFC 5321, RFC 1939), with texts that are ready
 * beforehand: no composition, and files only where they are asked for. Reads as much as there is at
 * once.
 */

#ifndef ZELIEML_BENCH_BARE_CLIENT_H
#define ZELIEML_BENCH_BARE_CLIENT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A mail and its envelope, ready to be sent. */
struct bare_mail {
    char const* hello; /* complete command lines */
    char const* from;
    char const* to;
    char const* text; /* ended by CR LF, a dot and CR LF */
    size_t      length;
    char const* user; /* who logs in with CRAM-MD5 (RFC 2195); null: nobody */
    char const* password;
};

/* The files that a sender with a queue cannot do without. */
struct bare_files {
    char const* settings; /* a file that is there */
    char const* message;  /* the name of a file that is not there */
    char const* record;   /* its contents */
    size_t      length;
};

/*
 * bare_client_send - connect to a port of 127.0.0.1 and send one mail
 *
 * Returns 0, or -1 when something failed or a reply was not the one hoped for.
 */
int bare_client_send(int port, struct bare_mail const* mail);

/*
 * bare_client_post - write a message file, read it and the settings, send a mail, delete the file
 *
 * Returns as bare_client_send does.
 */
int bare_client_post(int port, struct bare_mail const* mail, struct bare_files const* files);

/*
 * bare_client_receive - connect to a port of 127.0.0.1, read the first mail and delete it
 *
 * user, pass  complete command lines
 *
 * Returns the number of mails that there were before, or -1 when something failed.
 */
int bare_client_receive(int port, char const* user, char const* pass);

#ifdef __cplusplus
}
#endif

#endif
