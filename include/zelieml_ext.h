/*
 * zelieml_ext.h - what the interface of zelieml.h cannot say
 *
 * A program that includes only zelieml.h needs nothing from here, and nothing here changes what it
 * gets.
 *
 * - [versions]: which library is this?
 * - [reasons]: which message a result is for, and why it was not sent, in words and as a number.
 * - [login tests with reasons]: the login tests, with buffers of known size.
 * - [TLS for server records]: login tests and receiving inside TLS.
 * - [more of received mails]: receiving with a reason; sender and subject as UTF-8.
 * - [the probe]: one conversation with the servers that the settings name, step by step.
 * - [the preview]: a message as it would be sent.
 * - [checks]: what would go wrong with a message, or with a settings file.
 * - [the queue]: giving an engine of this process a message file.
 *
 * The rules of zelieml.h hold here too. Texts for people are English sentences in ASCII without a
 * line end, except for what they quote from a file or a server: its control characters and what
 * is not UTF-8 are shown as "?". Programs go by numbers; the wording of a sentence may change in
 * any version. Passwords never appear in them.
 */

#ifndef ZELIEML_EXT_H
#define ZELIEML_EXT_H

#include <stddef.h>

#include "zelieml.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ versions */

/*
 * The version of this header: MAJOR changes when a program that was built before may not run any
 * more, MINOR when something is added, PATCH when something is mended. See docs/VERSIONS.md.
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
 * number  receives 0 when the mail was sent, otherwise one of these:
 *
 *   100         no memory; the message could not be saved; POP3: settings missing or QUIT not
 *               answered
 *   1000        the settings name no SMTP server or no port
 *   1001        the SMTP server was not found, not reached, or did not greet; TLS was asked for
 *               and did not begin, or may have been asked for
 *   1003        HELO was refused
 *   1004        EHLO or the login was refused, or the settings name no account
 *   1005        the message cannot be read, or sender, a recipient or the text was refused
 *   1006        the end of the session was not confirmed. THE SERVER HAS TAKEN THE MAIL
 *   2002        the POP3 server was not found, not reached, or did not greet, or TLS as for 1001;
 *               eml_probe and eml_receive_mails_result: or it is none, by its greeting
 *   2004, 2005  the POP3 server refused the user, the password
 *   2006        the POP3 server refused APOP, or offers none
 *
 * The numbers 1002, 2001 and 2003 are reserved. A later version may add numbers.
 *
 * eml_cb_get_code gives the same, in four classes; eml_cb_get_cause says what went wrong there. See
 * docs/REASONS.md for what to do.
 *
 * Returns 0. Returns -1, leaving *number unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_number(void *cb, int *number);

/* What went wrong, in the order in which eml_cb_get_cause describes it. */
typedef enum eml_cause {
    eml_cause_none        = 0,
    eml_cause_memory      = 1,
    eml_cause_file        = 2,
    eml_cause_message     = 3,
    eml_cause_settings    = 4,
    eml_cause_unreachable = 5,
    eml_cause_lost        = 6,
    eml_cause_refused_now = 7,
    eml_cause_refused     = 8,
    eml_cause_protocol    = 9,
    eml_cause_tls         = 10,
    eml_cause_32_bits     = -0x7fffffff - 1 /* so that every 32-bit value may be passed */
} eml_cause;

/*
 * eml_cb_get_cause - what went wrong, for a program that decides what to do
 *
 * cb     the record
 * cause  receives one of these:
 *
 *   eml_cause_none         nothing: it did not fail
 *   eml_cause_memory       there is no memory
 *   eml_cause_file         the message could not be saved or read, or its file may not be sent
 *   eml_cause_message      the message cannot be sent as it is: no recipient, an address too long
 *   eml_cause_settings     a setting is missing, wrong, or cannot be read
 *   eml_cause_unreachable  the server was not found, or not reached
 *   eml_cause_lost         no greeting, no answer, or the connection ended
 *   eml_cause_refused_now  refused for now, try again later: an SMTP reply 4yz; a POP3 reply with
 *                          IN-USE, LOGIN-DELAY or SYS/TEMP
 *   eml_cause_refused      refused for good: an SMTP reply 5yz; any other POP3 reply -ERR
 *   eml_cause_protocol     the server answered what it must not, or what is no reply
 *   eml_cause_tls          TLS was asked for and cannot be had: the server's certificate is not
 *                          trusted, the server offers no TLS, the plug-in is missing
 *
 * At the step "quit" the server HAS TAKEN THE MAIL, whatever the cause: do not send it again. With
 * eml_cause_memory, and with eml_cause_lost at the step "text", it may have taken it.
 *
 * A later version may add causes. Without memory for a reason there is a cause all the same.
 *
 * Returns 0. Returns -1, leaving *cause unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_cause(void *cb, eml_cause *cause);

/*
 * eml_cb_get_step - the name of the step that failed
 *
 * cb    the record
 * buf   receives the name and its NUL, at most 32 bytes: a step of eml_probe; "message" when the
 *       message could not be saved, read or composed; "data" or "text"; "stat", "retr" or "dele" of
 *       receiving. Empty when no step failed, or none is known, as for lack of memory.
 * size  bytes at buf
 *
 * Returns 0. Returns -1, leaving buf unchanged, when an argument is null or the name does not fit.
 */
ZELIEML_API int eml_cb_get_step(void *cb, char *buf, int size);

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
 * seconds  receives about the seconds from the opening of the message file to the end of the
 *          session
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
 *                  null. It is the server's own text, not made printable, and repeats whatever the
 *                  server repeats. What does not fit is cut off at its end.
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

/* -------------------------------------------------- TLS for server records */

/*
 * server_info_set_tls - have login tests and receiving use TLS
 *
 * server             the record
 * smtp_tls, pop_tls  for each of its servers "tls" for TLS from the first byte, which is
 *                    recommended and has a port of its own (465, 995); "starttls" for TLS after
 *                    STARTTLS or STLS, on the usual port; "no" or null for none. With anything else
 *                    there is no connection.
 * ca_file            the full path of a file with certificates of authorities in PEM, to trust
 *                    instead of those that the system trusts; may be null
 *
 * THE STRINGS ARE COPIED, unlike those of server_info_set_smtp. The server's certificate must be
 * valid and for the host of the record. Without TLS nothing is said but EHLO and STARTTLS, or CAPA
 * and STLS. See docs/TLS.md; for mails there are the settings smtp_tls, pop_tls and tls_ca_file.
 *
 * Returns 0. Returns -1 for a null record, and when there is no memory: the record then gets no
 * connection until the next call.
 */
ZELIEML_API int server_info_set_tls(void *server, const char *smtp_tls, const char *pop_tls,
                                    const char *ca_file);

/* ---------------------------------------------------- more of received mails */

/*
 * eml_receive_mails_sized - fetch all mails of a mailbox, and say why that failed
 *
 * server, list, domains  as for eml_receive_mails, which says what is deleted
 * reply                  receives the server's last line and a NUL; empty if there was none; may be
 *                        null. It is the server's own text, not made printable, and repeats
 *                        whatever the server repeats. What does not fit is cut off at its end.
 * reply_size             bytes at reply; nothing is written when it is 0 or less
 * reason                 receives why receiving failed, as eml_cb_get_reason does, or an empty
 *                        string; may be null. EML_REASON_SIZE bytes are always enough; what does
 *                        not fit is cut off.
 * reason_size            bytes at reason; nothing is written when it is 0 or less
 *
 * Returns what eml_receive_mails returns.
 */
ZELIEML_API int eml_receive_mails_sized(void *server, void *list, const char *domains, char *reply,
                                        int reply_size, char *reason, int reason_size);

/*
 * eml_receive_mails_result - fetch all mails of a mailbox, with a result record
 *
 * server, list, domains  as for eml_receive_mails, which says what is deleted. But when receiving
 *                        fails, the list has the mails that were fetched by then, also one that the
 *                        server may not have deleted, and once the one that it sends again and
 *                        again; when memory runs out, some of them may be missing.
 * result                 receives the result record; free it with eml_cb_delete. Null when there
 *                        was no memory for a record.
 *
 * It says nothing to a server that greets with neither +OK nor -ERR, and so is none of POP3, and
 * fails with 2002, eml_cause_protocol and the step "pop greeting". eml_receive_mails and
 * eml_receive_mails_sized log in there all the same.
 *
 * The record has no file, and 1 as its attempt. Its message is the server's last line. Its number
 * is one of the POP3 server, also when the server record lacks the host (2002), the account or the
 * password (2004 to 2006); or 100: there is no memory, no server record, no list, or no way to log
 * in in the record; STAT or a mail was refused, the connection was lost after the login, or the
 * server deletes nothing.
 *
 * Otherwise it returns what eml_receive_mails returns. Returns -1 with no record when result is
 * null.
 */
ZELIEML_API int eml_receive_mails_result(void *server, void *list, const char *domains,
                                         void **result);

/*
 * eml_receive_msg_get_sender_utf8, _subject_utf8, _messageid, _date - copy a header field of a mail
 *
 * list   the list, filled by eml_receive_mails or eml_receive_mails_sized
 * index  the mail, from 0
 * buf    receives the field From, Subject, Message-Id or Date and its NUL, in UTF-8; empty if there
 *        is no such field
 * size   bytes at buf; 49153 are always enough
 *
 * The first field of a name in the mail's header (RFC 5322) counts, with upper and lower case alike
 * and its continuation lines joined. Lines of the body do not count, lines of more than 4095 bytes
 * are passed over, and a field of more than 16384 bytes is as none.
 *
 * Of From and Subject, encoded words (RFC 2047) are decoded, and so are the escape sequences of
 * ISO-2022-JP. A word stays as it is when it is malformed, its charset is none of those that mails
 * use (UTF-8, ISO-8859, Windows code pages, those of East Asia, ...), or this system cannot convert
 * it. Control characters become blanks, and bytes that are no UTF-8 become U+FFFD.
 *
 * Returns 0. Returns -1, leaving buf unchanged, when list or buf is null, there is no such mail, the
 * text does not fit, or there is no memory.
 */
ZELIEML_API int eml_receive_msg_get_sender_utf8(void *list, int index, char *buf, int size);
ZELIEML_API int eml_receive_msg_get_subject_utf8(void *list, int index, char *buf, int size);
ZELIEML_API int eml_receive_msg_get_messageid(void *list, int index, char *buf, int size);
ZELIEML_API int eml_receive_msg_get_date(void *list, int index, char *buf, int size);

/* ----------------------------------------------------------------- the probe */

/* How a step of the probe ended. */
typedef enum eml_probe_outcome {
    eml_probe_ok      = 0, /* as a mail needs it */
    eml_probe_failed  = 1, /* a mail would fail here; no step follows */
    eml_probe_remark  = 2, /* a mail gets through; there is something to know all the same */
    eml_probe_32_bits = -0x7fffffff - 1 /* so that every 32-bit value may be passed */
} eml_probe_outcome;

/*
 * One step of a probe. The strings are the library's, are never null, and are valid during the
 * callback only. server and reply are not made printable. A later version may add members at the
 * end: struct_size tells how many there are.
 */
typedef struct eml_probe_step {
    unsigned int      struct_size; /* bytes of this structure */
    eml_probe_outcome outcome;
    int               number;  /* of eml_cb_get_number that a mail would get; 0 unless it failed */
    const char       *name;    /* see eml_probe */
    const char       *server;  /* "host:port"; empty for "settings" */
    double            seconds; /* that the step took */
    const char       *reply;   /* the server's reply, its lines with CR LF; or empty */
    const char       *reason;  /* why it failed, or the remark; or empty */
    eml_cause         cause;   /* of eml_cb_get_cause, likewise; eml_cause_none unless it failed */
} eml_probe_step;

/*
 * eml_probe - talk to the servers that the settings of a work directory name, without a mail
 *
 * workdir    the work directory; its file "zelismes.cf" is read
 * sender     the envelope sender to try, empty for the null sender; may be null without a recipient
 * recipient  the recipient to try, a plain address; or null, to try neither
 * proc       called on the caller's thread after each step; must not throw
 * user       passed to proc unchanged
 *
 * Does what a mail does with these settings, one step after the other, until one fails. As with a
 * mail, no QUIT is sent then.
 *
 * - "settings": everything that a mail needs is there. It comes first, whereas a mail notices only
 *   after the greeting that the account is missing, and may fail before.
 * - with POP before SMTP "pop look-up", "pop connect", "pop tls" when the settings ask for TLS,
 *   "pop greeting", "pop login", "pop quit", "pop wait"
 * - "look-up", "connect", "tls" when the settings ask for TLS, "greeting", then "helo", or "ehlo"
 *   and "login" when the settings ask for a login
 * - "sender", "recipient" and "reset" when there is a recipient
 * - "offer" when the settings ask for no login: EHLO, only to see what the server offers
 * - "quit", which ends when the server has closed the connection
 *
 * "pop greeting" is stricter than a mail: it fails, with 2002 and eml_cause_protocol, when the
 * server greets with neither +OK nor -ERR. To such a server, which is none of POP3, a mail sends the
 * password, and may get through.
 *
 * The step "greeting" contains the look-up of this machine's own name.
 *
 * A remark of "ehlo" or "offer" says where test_smtp_auth judges differently than a mail fares. No
 * mail sends RSET, nor the EHLO of "offer": if they fail, that is a remark, and no step follows.
 *
 * A password that a server repeats is shown as "***".
 *
 * The server may count the conversation as one of a client that had nothing to say. How long it can
 * take: see eml_post_sync. The rules on threads and cancellation are the same. In a child process
 * that proc forks and that returns from it, the probe ends at once, with -1.
 *
 * Returns 0 when no step failed. Returns -1 when one did, workdir or proc is null, sender is null
 * though there is a recipient, one of the two contains a line break, or there is no memory.
 */
ZELIEML_API int eml_probe(const char *workdir, const char *sender, const char *recipient,
                          void (*proc)(const eml_probe_step *step, void *user), void *user);

/* --------------------------------------------------------------- the preview */

/*
 * What would be said to the server. The strings are the library's, are never null, and are valid
 * during the callback only. A later version may add members at the end: struct_size tells how many
 * there are.
 */
typedef struct eml_preview {
    unsigned int       struct_size;     /* bytes of this structure */
    const char        *sender;          /* the envelope sender; empty for the null sender */
    const char *const *recipients;      /* in the order of their commands, then NULL */
    int                recipient_count; /* 0: the mail would fail for want of a recipient */
    const char        *text;            /* header, empty line and body, followed by a NUL */
    size_t             text_size;       /* bytes of text, without the NUL */
} eml_preview;

/*
 * eml_msg_preview - show a message as it would be sent
 *
 * workdir  the work directory; its file "zelismes.cf" is read, for "subject_use_encoding". Without
 *          that file the text is that of a mail without that setting.
 * msg      the message; not changed
 * proc     called once, on the caller's thread; must not throw
 * user     passed to proc unchanged
 *
 * The message is shown as it would be read back from its file, see eml_msg_save; its Date is that of
 * the call. The text has CR LF line ends, dots at the start of a line are doubled where a mail
 * doubles them, and the end mark of SMTP is left out. As with a mail, lack of memory can cost
 * subject or body.
 *
 * Connects to nothing, and leaves no file. Whether the message makes sense: see eml_msg_check.
 *
 * Returns 0. Returns -1, without calling proc, when workdir, msg or proc is null or there is no
 * memory.
 */
ZELIEML_API int eml_msg_preview(const char *workdir, void *msg,
                                void (*proc)(const eml_preview *shown_mail, void *user),
                                void *user);

/* -------------------------------------------------------------------- checks */

/* How bad a finding of a check is. */
typedef enum eml_severity {
    eml_severity_none    = 0, /* nothing was found */
    eml_severity_note    = 1, /* good to know */
    eml_severity_warning = 2, /* some servers or programs will object, or something is lost */
    eml_severity_error   = 3, /* it will not do what its writer means */
    eml_severity_32_bits = -0x7fffffff - 1 /* so that every 32-bit value may be passed */
} eml_severity;

/*
 * One finding. The strings are the library's, are never null, and are valid during the callback
 * only. A later version may add members at the end: struct_size tells how many there are.
 */
typedef struct eml_finding {
    unsigned int struct_size; /* bytes of this structure */
    eml_severity severity;
    int          line;  /* from 1: of the body, or of the settings file; 0: none in particular */
    const char  *field; /* "from", "to", ... "body", or the key of a setting; or empty */
    const char  *text;  /* one sentence: what is wrong and what to do */
} eml_finding;

/*
 * eml_msg_check - what would go wrong with a message
 *
 * msg   the record; not changed
 * proc  called on the caller's thread for each finding, fields first, then the body from its
 *       beginning; must not throw, what it returns is ignored
 * user  passed to proc unchanged
 *
 * Finds (docs/CHECKS.md lists all): body lines that a message file cannot hold, empty lines at the
 * start, line breaks in a header, empty recipients, blanks and names in addresses, a null sender,
 * no Message-Id, lines that are too long for relays, text that is not valid in the encoding it
 * claims, commands that are too long to be sent. One kind of finding is reported for at most ten
 * lines of a body and ten recipients.
 *
 * Returns the worst severity that was found, 0 for none. Returns -1 when msg or proc is null or
 * there is no memory.
 */
ZELIEML_API int eml_msg_check(void *msg, void (*proc)(const eml_finding *finding, void *user),
                              void *user);

/*
 * eml_settings_check - what would go wrong with a settings file
 *
 * path  the settings file; links are followed
 * proc  called on the caller's thread for each finding, in the order of the lines, then for the
 *       file as a whole; must not throw, what it returns is ignored
 * user  passed to proc unchanged
 *
 * Finds (docs/CHECKS.md lists all): unknown keys, values that are not what they look like, keys
 * that hide each other, missing CRs, lines that are too long, a file that others can read, sets of
 * settings that are incomplete. Connects to nothing.
 *
 * Returns the worst severity that was found, 0 for none; a file that cannot be read is an error
 * found. Returns -1 when path or proc is null or there is no memory.
 */
ZELIEML_API int eml_settings_check(const char *path,
                                   void (*proc)(const eml_finding *finding, void *user),
                                   void *user);

/* ----------------------------------------------------------------- the queue */

/*
 * eml_queue_message_file - queue a message file with an engine of this process
 *
 * eml       the engine, running
 * fullpath  the file's full path, at most 399 bytes; it can lie outside of the work directory
 *
 * Does what a notification of the file does (see eml_post_message_file) that the engine's own user
 * sends, without one: nothing is lost on the way, and nobody hears of it. The engine opens the file
 * when it sends it, and deletes it then, or after its second attempt. When 500 files are queued, the
 * oldest one is deleted unsent to make room.
 *
 * May be called from a callback. In a forked child the engine has no queue.
 *
 * Returns 0, also when the path is queued already. Returns -1 when an argument is null, the path is
 * too long, the engine has no queue, or there is no memory.
 */
ZELIEML_API int eml_queue_message_file(void *eml, const char *fullpath);

#ifdef __cplusplus
}
#endif

#endif
