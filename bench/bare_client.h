/*
 * bare_client.h - the least that can send and fetch a mail: a yardstick for the library
 *
 * Speaks the dialogues that the library speaks (RFC 5321, RFC 1939), with texts that are ready
 * beforehand: no files, no settings, no composition. Reads as much as there is at once.
 */

#ifndef ZELIEML_BENCH_BARE_CLIENT_H
#define ZELIEML_BENCH_BARE_CLIENT_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * bare_client_send - connect to a port of 127.0.0.1 and send one mail
 *
 * helo, from, to  complete command lines
 * text            the mail, ended by CR LF, a dot and CR LF
 *
 * Returns 0, or -1 when something failed or a reply was not the one hoped for.
 */
int bare_client_send(int port, char const* helo, char const* from, char const* to,
                     char const* text);

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
