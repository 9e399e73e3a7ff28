/*
 * zelieml_ext.h - what the interface of zelieml.h cannot say
 *
 * A program that includes only zelieml.h needs nothing from here, and nothing here changes what it
 * gets.
 *
 * - [versions]: which library is this?
 * - [reasons]: which message a result is for, and why it was not sent.
 * - [login tests with reasons]: the login tests, with buffers of known size.
 *
 * The rules of zelieml.h hold here too. Texts for people are English sentences in ASCII without a
 * line end, except for what they quote from a file or a server: its control characters and what
 * is not UTF-8 are shown as "?". Programs go by numbers; the wording of a sentence may change in
 * any version. Passwords never appear in them.
 */

#ifndef ZELIEML_EXT_H
#define ZELIEML_EXT_H

#include "zelieml.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ versions */

/*
 * The version of this header: MAJOR changes when a program that was built before may not run any
 * more, MINOR when something is added, PATCH when something is mended.
 */
#define EML_VERSION_MAJOR 1
#define EML_VERSION_MINOR 0
#define EML_VERSION_PATCH 0
#define EML_VERSION       "1.0.0"

/*
 * eml_version - the version of the library that the program runs with
 *
 * It may be newer than the header that the program was built with.
 *
 * Returns a string such as "1.0.0", which is the library's: it stays valid while it is loaded.
 * Any thread, also in a signal handler.
 */
ZELIEML_API const char *eml_version(void);

/* ------------------------------------------------------------------- reasons */

/*
 * These take a result record, as eml_cb_get_code does: the one of a callback, the one of
 * eml_post_sync, or a duplicate of either.
 */

/* Bytes that are enough for any reason, the NUL included. */
#define EML_REASON_SIZE 1024

/*
 * eml_cb_get_number - the number of the step that failed
 *
 * cb      the record
 * number  receives 0 when the mail was sent, otherwise one of
 *         100         no memory; the message could not be saved; POP3: settings missing or QUIT
 *                     not answered
 *         1000        the settings name no SMTP server or no port
 *         1001        the SMTP server was not found, not reached, or did not greet
 *         1003        HELO was refused
 *         1004        EHLO or the login was refused, or the settings name no account
 *         1005        the message cannot be read, or sender, a recipient or the text was refused
 *         1006        the end of the session was not confirmed. THE SERVER HAS TAKEN THE MAIL
 *         2002        the POP3 server was not found, not reached, or did not greet
 *         2004 2005   the POP3 server refused the user, the password
 *         2006        the POP3 server refused APOP, or offers none
 *         1002, 2001 and 2003 are reserved. A later version may add numbers.
 *
 * eml_cb_get_code gives the same, in four classes. See docs/REASONS.md for what to do.
 *
 * Returns 0. Returns -1, leaving *number unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_number(void *cb, int *number);

/*
 * eml_cb_get_attempt - which attempt at the message this was
 *
 * cb       the record
 * attempt  receives 1 for the first attempt and for eml_post_sync, 2 for the engine's second, which
 *          is its last; 0 when there was no attempt, because the message could not be saved
 *
 * Returns 0. Returns -1, leaving *attempt unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_attempt(void *cb, int *attempt);

/*
 * eml_cb_get_seconds - how long the attempt took
 *
 * cb       the record
 * seconds  receives the seconds from the opening of the message file to the end of the session
 *
 * Returns 0. Returns -1, leaving *seconds unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_seconds(void *cb, double *seconds);

/*
 * eml_cb_get_file - the message file of the attempt
 *
 * cb    the record
 * buf   receives the full path and its NUL; empty when there was no file. In a callback the file
 *       is still there, unless somebody else has removed it: eml_msg_load can read it.
 * size  bytes at buf
 *
 * Returns 0. Returns -1, leaving buf unchanged, when an argument is null or the path does not fit.
 */
ZELIEML_API int eml_cb_get_file(void *cb, char *buf, int size);

/*
 * eml_cb_get_reason - why the mail was not sent
 *
 * cb    the record
 * buf   receives one sentence and its NUL, less than EML_REASON_SIZE bytes, such as
 *       "connect to mail.office.test:25: Connection refused" or "the server refused the recipient
 *       ben@office.test: 550 5.1.1 no such user". Empty when the mail was sent, or when there was
 *       no memory for a reason.
 * size  bytes at buf
 *
 * Returns 0. Returns -1, leaving buf unchanged, when an argument is null or the reason does not
 * fit.
 */
ZELIEML_API int eml_cb_get_reason(void *cb, char *buf, int size);

/* ------------------------------------------------- login tests with reasons */

/*
 * test_pop_auth_sized, test_smtp_auth_sized - the login tests, with buffers of known size
 *
 * server           as for test_pop_auth, test_smtp_auth
 * pop_before_smtp  as for test_smtp_auth
 * reply            receives the server's last line (POP3) or last reply (SMTP) and a NUL; may be
 *                  null. What does not fit is cut off at its end.
 * reply_size       bytes at reply; nothing is written when it is 0 or less
 * reason           receives why the test failed, as eml_cb_get_reason does, or an empty string; may
 *                  be null. EML_REASON_SIZE bytes are always enough; what does not fit is cut off.
 * reason_size      bytes at reason; nothing is written when it is 0 or less
 *
 * Everything else is as for test_pop_auth and test_smtp_auth.
 *
 * Returns what they return.
 */
ZELIEML_API eml_send_e test_pop_auth_sized(void *server, char *reply, int reply_size, char *reason,
                                           int reason_size);
ZELIEML_API eml_send_e test_smtp_auth_sized(void *server, const char *pop_before_smtp, char *reply,
                                            int reply_size, char *reason, int reason_size);

#ifdef __cplusplus
}
#endif

#endif
