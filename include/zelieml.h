/*
 * zelieml.h - send short status mails from a C program
 *
 * A caller fills a message record (eml_msg_...) and posts it for a work directory: an engine
 * (eml_start) sends it and calls back with a result record (eml_cb_...), or eml_post_sync sends it
 * at once and returns the record. Servers, accounts and switches stand in the settings
 * file "zelismes.cf" of the work directory (eml_cf_...), passwords in encrypted form
 * (eml_encrypt_passwd).
 *
 * A server record (server_info_...) names an SMTP and a POP3 server directly. With it settings are
 * tried out before they are relied on (test_pop_auth, test_smtp_auth), and a mailbox is emptied
 * (eml_receive_...).
 *
 * Rules that hold for all calls, unless a function says otherwise:
 *
 * - Results are 0 for success and -1 for failure. Nothing is thrown; lack of memory is a failure
 *   like any other, unless a function says otherwise (eml_msg_save does, and posting).
 * - Handles are opaque void pointers. Each function that makes one has a function that frees it;
 *   freeing null is allowed. The caller owns every handle and every text that he is given.
 * - Texts end with a NUL and are copied: the caller may free his own right after the call, save
 *   those of a server record. Null where a text or a handle is wanted is a failure, never a crash.
 * - Texts that leave the library come whole or not at all: a getter fails, and leaves the buffer
 *   as it was, when the text and its NUL do not fit.
 * - Any thread may call any function. One record must not be used by two threads at once; an engine
 *   may: only its start and stop belong to one thread.
 * - Mail is sent over IPv4 without encryption of the connection.
 */

#ifndef ZELIEML_H
#define ZELIEML_H

#if defined(__GNUC__)
#define ZELIEML_API __attribute__((visibility("default")))
#else
#define ZELIEML_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ messages */

/*
 * How the text of a message is encoded. The library converts nothing: subject and body have to be
 * in this encoding already. Any other value counts as UTF-8.
 */
typedef enum eml_encoding {
    /* "UTF-8": body sent as Base64 */
    eml_encoding_utf8 = 0,
    /* "ISO-2022-JP": body sent as 7bit text */
    eml_encoding_iso2022jp = 1,
    eml_encoding_32_bits   = 0x7fffffff
} eml_encoding;

/*
 * eml_msg_create - make an empty message record
 *
 * msg  receives the record; free it with eml_msg_destroy
 *
 * All texts of a fresh record are empty, its encoding is UTF-8.
 *
 * Returns 0, or -1 when msg is null or there is no memory.
 */
ZELIEML_API int eml_msg_create(void **msg);

/*
 * eml_msg_destroy - free a message record
 *
 * msg  the record, or null. Posting copies a message into a file, so the record may be freed as
 *      soon as the posting function has returned.
 *
 * Returns 0.
 */
ZELIEML_API int eml_msg_destroy(void *msg);

/*
 * eml_msg_set_from, _to, _cc, _subject, _replyto, _messageid - replace a text of the message
 *
 * msg   the record
 * text  stored as it is, without any check; copied
 *
 *   from       goes into the From header only
 *   to, cc     addresses separated by commas; blanks are removed from each. Both get the mail; an
 *              empty cc means that there is none.
 *   subject    in the encoding of the message
 *   replyto    goes into the Reply-To header, and is the sender that the server is told: replies
 *              and bounces go there. Empty means the null sender.
 *   messageid  the Message-Id header, written as given; empty means that there is none
 *
 * A line break in any of these ends the line in the message file, and what follows it is read back
 * as another line: keep line breaks out.
 *
 * Returns 0. Returns -1, leaving the record as it was, when an argument is null or there is no
 * memory.
 */
ZELIEML_API int eml_msg_set_from(void *msg, const char *from);
ZELIEML_API int eml_msg_set_to(void *msg, const char *to);
ZELIEML_API int eml_msg_set_cc(void *msg, const char *cc);
ZELIEML_API int eml_msg_set_subject(void *msg, const char *subject);
ZELIEML_API int eml_msg_set_replyto(void *msg, const char *replyto);
ZELIEML_API int eml_msg_set_messageid(void *msg, const char *id);

/*
 * eml_msg_set_body - replace the body of the message
 *
 * msg   the record
 * body  the text, under 1 GiB; its lines may end in LF, CR or CR LF and are stored with CR LF.
 *       (A body that consists of nothing but lone line breaks is stored as it is.)
 *
 * In the message file the body follows the header lines, and a body line that begins with one of
 * the keys below ("to: ", say) is read back as that header, not as body. Empty lines at the start
 * of a body are lost there too.
 *
 * Returns 0. Returns -1, leaving the record as it was, when an argument is null, the text is too
 * long, or there is no memory.
 */
ZELIEML_API int eml_msg_set_body(void *msg, const char *body);

/*
 * eml_msg_set_encoding - say how subject and body are encoded
 *
 * Returns 0, or -1 when msg is null.
 */
ZELIEML_API int eml_msg_set_encoding(void *msg, eml_encoding enc);

/*
 * eml_msg_get_from, _to, _cc, _subject, _replyto, _encoding, _body, _messageid - copy a text of
 * the message
 *
 * msg   the record
 * buf   receives the text and its NUL
 * size  bytes at buf, the NUL included
 *
 * The encoding comes as the text "UTF-8" or "ISO-2022-JP", or as whatever stood in a loaded file.
 *
 * Returns 0. Returns -1, leaving buf as it was, when an argument is null or the text and its NUL
 * do not fit. There is no way to ask for the length: try again with a larger buffer.
 */
ZELIEML_API int eml_msg_get_from(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_to(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_cc(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_subject(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_replyto(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_encoding(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_body(void *msg, char *buf, int size);
ZELIEML_API int eml_msg_get_messageid(void *msg, char *buf, int size);

/*
 * eml_msg_save - write a message to a file
 *
 * msg   the record
 * path  the file; created (mode 0666 less the umask) or overwritten
 *
 * Each line takes a buffer of its own. A line for which there is no memory is left out, and that is
 * no failure.
 *
 * Returns 0. Returns -1 when an argument is null, or the file cannot be opened or not be written
 * to its end; what was written by then stays in the file.
 */
ZELIEML_API int eml_msg_save(void *msg, const char *path);

/*
 * eml_msg_load - make a record from a message file
 *
 * msg   receives the record; free it with eml_msg_destroy
 * path  the file
 *
 * Returns 0. Returns -1 when an argument is null, there is no memory, or the file cannot be read or
 * is no regular file. A record has been made even then, unless msg is null or memory was lacking:
 * set *msg to null before the call, and free it after the call whatever the result.
 */
ZELIEML_API int eml_msg_load(void **msg, const char *path);

/*
 * The keys that begin the header lines of a message file, each with the blank that belongs to it,
 * and the line ends: "\n" after each line of the file, "\r\n" between the body lines of a record.
 * For programs that write or read message files themselves. The library uses these very pointers:
 * do not change them.
 */
ZELIEML_API extern const char *KeyFrom;
ZELIEML_API extern const char *KeyTo;
ZELIEML_API extern const char *KeyCc;
ZELIEML_API extern const char *KeySubject;
ZELIEML_API extern const char *KeyReplyTo;
ZELIEML_API extern const char *KeyEncoding;
ZELIEML_API extern const char *KeyMessageID;
ZELIEML_API extern const char *ValCharLf;
ZELIEML_API extern const char *ValCharCrLf;

/* ------------------------------------------------------------------- posting */

/*
 * Posting writes a message into the work directory of an engine and tells the engine by a
 * notification that carries its stock symbol. The engine may run in this process or in another, of
 * the same user or, where the system allows it, of a different one. See the engine below for what
 * becomes of the message.
 *
 * A message is saved as by eml_msg_save, and a subject or a body that there is no memory to encode
 * is sent as an empty text: lack of memory can cost a part of a mail unnoticed.
 *
 * Functions without _with_stocksymbol use the stock symbol "zelieml_stocksymbol".
 */

/*
 * eml_post, eml_post_with_stocksymbol - post a message to an engine
 *
 * workdir       the engine's work directory, without a separator at its end
 * stock_symbol  the engine's stock symbol, not empty
 * msg           the message; stays the caller's, and may be freed right away
 *
 * The message is written to a file in the work directory
 * ("<workdir>/<time>-<microseconds>-<process id>.sme", 254 bytes at most); should that name be
 * taken, to one beside the directory, where only the notification tells of it. Nothing waits for
 * the sending; an engine that is stopped by a debugger or a signal can cost half a second.
 *
 * Returns 0 when the message is saved. That does not say that an engine has heard of it: when none
 * has, an engine that runs for this directory finds the file within half an hour, but one that is
 * started later deletes it unsent. Returns -1 when an argument is null or the message could not be
 * saved; a part of it may then be left in the work directory.
 */
ZELIEML_API int eml_post(const char *workdir, void *msg);
ZELIEML_API int eml_post_with_stocksymbol(const char *workdir, const char *stock_symbol, void *msg);

/*
 * eml_post_sys - post a message to an engine of this process
 *
 * eml  the engine; its work directory and stock symbol are used
 * msg  the message; stays the caller's
 *
 * Returns what eml_post_with_stocksymbol returns, and -1 for a null engine.
 */
ZELIEML_API int eml_post_sys(void *eml, void *msg);

/*
 * eml_post_message_file, eml_post_message_file_with_stocksymbol - announce a message file that
 * exists
 *
 * fullpath      full path of the file, at most 399 bytes (a longer one is not taken up). The engine
 *               reads and sends it from there and deletes it like any other.
 * stock_symbol  the engine's stock symbol
 *
 * Returns 0, whether an engine has heard of it or not. Returns -1 when an argument is null or the
 * stock symbol is empty.
 */
ZELIEML_API int eml_post_message_file(const char *fullpath);
ZELIEML_API int eml_post_message_file_with_stocksymbol(const char *fullpath,
                                                       const char *stock_symbol);

/*
 * eml_post_sync - send a message now, on the caller's thread
 *
 * workdir  the work directory, without a separator at its end. The message is written to a file
 *          there first ("<workdir>/<time>-<microseconds>-<process id>.sme", 254 bytes at most),
 *          and the settings file "zelismes.cf" is read from there.
 * msg      the message; stays the caller's
 * result   receives the result record; free it with eml_cb_delete. Null when there was no memory
 *          for a record.
 *
 * Connects, logs in where the settings say so, hands the mail to the server and waits for its
 * answers. The message file is deleted afterwards, sent or not. No engine has to run, and no
 * callback is called. A thread that is cancelled while it waits leaves the file behind.
 *
 * How long it takes is up to the server: connecting is given up after 30 s, an answer after 15 s
 * without a byte. There is no limit for a server that trickles bytes, does not read what is sent to
 * it, or never closes the connection after the last answer. Looking up the server's name takes as
 * long as the system's resolver does, and "pop_wait_time" is waited for as set.
 *
 * Returns 0 when the server has taken the mail and said goodbye; the record then has the code
 * eml_send_ok. Returns -1 otherwise, with a record that says why: eml_send_error_other and an
 * empty text when the message could not even be saved (a part of it may have been left behind in
 * the work directory if the disk is full), else a code by the step that failed and the server's
 * last answer. Returns -1 without a record when result is null.
 *
 * A server that takes the mail but not the closing command makes this a failure all the same: the
 * code alone does not say that nothing was delivered.
 */
ZELIEML_API int eml_post_sync(const char *workdir, void *msg, void **result);

/* ---------------------------------------------------------------- the engine */

/*
 * An engine has a worker thread that sends the messages of one work directory. It is addressed by
 * its stock symbol. Several engines, each with a work directory and a stock symbol of its own, can
 * run in one process or in several.
 *
 * What becomes of a message:
 *
 * - Starting an engine deletes every message file that lies in its work directory from before:
 *   messages posted while no engine runs are lost when the next one starts.
 * - A posted message is tried within about a second. When that fails, it is tried once more, half
 *   an hour to forty minutes after it was posted. When that fails too, its file is deleted.
 * - An engine keeps 500 messages waiting. One more pushes out, and deletes, the oldest.
 * - Each attempt, good or bad, is reported to the callbacks. A message pushed out is not reported,
 *   unless its attempt was due already: that fails then, for want of the file.
 * - A file that is announced again after it was sent is tried, and reported as failed, twice.
 * - Stopping an engine finishes the attempt it is in and leaves the other files where they are.
 */

/*
 * eml_start, eml_start_with_stocksymbol - start an engine
 *
 * workdir       the work directory, under 256 bytes, without a separator at its end. Message files
 *               that lie in it are deleted.
 * stock_symbol  1 to 254 bytes; "zelieml_stocksymbol" for eml_start
 * eml           receives the engine; give it back with eml_stop or eml_stop_multi
 *
 * The worker thread, and the thread that hears notifications where there is one, have all signals
 * blocked. On macOS notifications arrive through the run loop of the process's main thread,
 * whichever thread called this.
 *
 * A thread that is cancelled meanwhile ends afterwards, the engine running.
 *
 * A child made by fork() has no running engine. It may post, stop its copy of the engine, which
 * only frees memory, and start an engine of its own; it must do nothing else with an inherited one,
 * such as changing its callbacks. A child that a callback forked, and in which that callback
 * returns, ends there with exit status 0.
 *
 * Returns 0 when the engine runs: a message posted from then on is sent. Returns -1, leaving *eml
 * as it was and nothing running, when an argument is null, a name is empty or too long, or the
 * system has no thread or no place for the notifications to give.
 */
ZELIEML_API int eml_start(const char *workdir, void **eml);
ZELIEML_API int eml_start_with_stocksymbol(const char *workdir, const char *stock_symbol,
                                           void **eml);

/*
 * eml_stop - stop an engine and free it
 *
 * eml  the engine; dangling afterwards
 *
 * Waits for the send in progress. From one of the engine's own callbacks it does not wait: the
 * worker ends by itself after the attempt that it is reporting. It still runs the library's code
 * then, so a program that stopped an engine like that must not unload the library.
 *
 * A thread that is cancelled meanwhile ends afterwards, the engine stopped: it waits as long for
 * the send in progress.
 *
 * Returns 0, or -1 for null. On one engine, one thread only.
 */
ZELIEML_API int eml_stop(void *eml);

/*
 * eml_stop_multi - stop an engine that several paths of a program may want to stop
 *
 * eml  points at the handle, which becomes null
 *
 * Stops and frees as eml_stop does. Does nothing when the handle is null already, or while another
 * call is in progress, for this engine or any other: that call is not waited for. It turns away a
 * nested call; it is no lock between threads.
 *
 * Returns 0.
 */
ZELIEML_API int eml_stop_multi(void **eml);

/*
 * eml_set_callback - have a procedure called after every attempt of an engine
 *
 * eml   the engine
 * proc  called on the engine's worker thread with a result record and user; what it returns is not
 *       looked at. The record dies when it returns: keep a copy made with eml_cb_duplicate and
 *       free that with eml_cb_delete. While it runs, nothing else is sent.
 * user  handed back unchanged
 *
 * Procedures are called in the order in which they were registered. One that is registered already
 * stays as it is, with its old user. A procedure may register and remove procedures; that takes
 * effect for the next attempt. Register before posting and remove after stopping.
 *
 * Returns 0, or -1 when eml or proc is null or there is no memory.
 */
ZELIEML_API int eml_set_callback(void *eml, int (*proc)(void *result, void *user), void *user);

/*
 * eml_reset_callback - remove a procedure
 *
 * Returns 0, also when it was not registered; -1 when eml or proc is null or there is no memory.
 * An attempt that is being reported right now may still call it.
 */
ZELIEML_API int eml_reset_callback(void *eml, int (*proc)(void *result, void *user));

/* ------------------------------------------------------------ result records */

/*
 * How sending ended.
 */
typedef enum eml_send_e {
    eml_send_ok = 0,
    /* message not saved or refused, settings for POP3 missing */
    eml_send_error_other = 1,
    /* server not named, not reached, or lost; HELO or QUIT refused */
    eml_send_error_connection = 2,
    /* user, password or way of logging in refused */
    eml_send_error_auth = 3,
    eml_send_32_bits    = 0x7fffffff
} eml_send_e;

/*
 * eml_cb_get_code - read the code of a result record
 *
 * cb    the record
 * code  receives the code
 *
 * Returns 0. Returns -1, leaving *code as it was, when an argument is null.
 */
ZELIEML_API int eml_cb_get_code(void *cb, eml_send_e *code);

/*
 * eml_cb_get_message - copy the text of a result record
 *
 * cb    the record
 * buf   receives the text and its terminating NUL: the server's last answer, all its lines with
 *       their CR LF, or an empty text when there was none
 * size  bytes at buf, the NUL included
 *
 * Returns 0. Returns -1, leaving buf as it was, when an argument is null or the text and its NUL
 * do not fit: nothing is ever cut short.
 */
ZELIEML_API int eml_cb_get_message(void *cb, char *buf, int size);

/*
 * eml_cb_duplicate - copy a result record
 *
 * cb    the record; stays as it is
 * copy  receives a record of its own; free it with eml_cb_delete
 *
 * Returns 0. Returns -1 when an argument is null or there is no memory.
 */
ZELIEML_API int eml_cb_duplicate(void *cb, void **copy);

/*
 * eml_cb_delete - free a result record
 *
 * cb  the record, or null
 *
 * Returns 0.
 */
ZELIEML_API int eml_cb_delete(void *cb);

/* ------------------------------------------------------------------ settings */

/*
 * eml_cf_get_string - read one value of a settings file
 *
 * key     the key; matched anywhere in a line, and the first line that contains it counts: asking
 *         for "smtp_auth" finds a line "smtp_auth_type = ..." that stands above it
 * val     receives the value and its NUL. All *length bytes of it are overwritten, and also when
 *         the line is found but has no value that fits.
 * length  in: bytes at val; a value of v characters needs v + 2. Out: characters in the value; 0
 *         on failure (unchanged when the line has no "=", or for want of memory).
 * path    the settings file, "<workdir>/zelismes.cf"
 *
 * Takes no lock that would keep a writer out: while another thread or process sets a value, a
 * read can fail.
 *
 * Returns 0. Returns -1 when an argument is null, the file cannot be read or is no regular file, no
 * line contains the key, its line has no "=", or the value does not fit.
 */
ZELIEML_API int eml_cf_get_string(const char *key, char *val, unsigned int *length,
                                  const char *path);

/*
 * eml_cf_set_string - set one value in a settings file
 *
 * key   the key; not empty, no "#" at its beginning, no "=" and no line breaks. Every line that
 *       contains it anywhere, comments excepted, is replaced: setting "smtp_auth" in a file that
 *       has "smtp_auth_type" overwrites that line as well. Set the shorter keys first.
 * val   the value; no line breaks, and "<key> = <val>" at most 1022 bytes. Blanks at its beginning
 *       are not read back.
 * path  the settings file; created when it does not exist
 *
 * The file is written anew beside the old one as "<path>.tmp", which then takes its place and its
 * permission bits. "<path>.bak" is deleted if it exists. Two writers at once, on threads or in
 * processes, can fail or lose settings, all of them at worst: allow one writer at a time.
 *
 * Returns 0. Returns -1 when an argument is null or not fit for a line, when the file has a line
 * of over 1023 bytes or is no regular file, or when a file cannot be read, written, removed or
 * renamed. The settings file is then as it was (an empty one may have been made where there was
 * none), unless only the very last step, the renaming, failed: then the settings are in
 * "<path>.tmp".
 */
ZELIEML_API int eml_cf_set_string(const char *key, const char *val, const char *path);

/* ------------------------------------------------------- passwords and hashes */

/*
 * eml_encrypt_passwd - make the form in which a password stands in the settings file
 *
 * password  the password, at least one byte
 *
 * Returns upper-case hex digits, two for each byte of the password, to be freed with
 * eml_encrypt_free_passwd; null for an empty password, for null, and when there is no memory.
 *
 * The key is part of the library: this keeps a password from being read over a shoulder, not from
 * somebody who has the file and the library. Protect the settings file by its permissions.
 */
ZELIEML_API unsigned char *eml_encrypt_passwd(unsigned char *password);
ZELIEML_API void           eml_encrypt_free_passwd(unsigned char *text);

/*
 * eml_decrypt_passwd - the way back
 *
 * text  what eml_encrypt_passwd returned
 *
 * Returns the password, to be freed with eml_decrypt_free_passwd; null for null, for an odd number
 * of digits, and when there is no memory. Characters that are no hex digits count as 0: what comes
 * out then is not a password.
 */
ZELIEML_API unsigned char *eml_decrypt_passwd(unsigned char *text);
ZELIEML_API void           eml_decrypt_free_passwd(unsigned char *text);

/*
 * eml_hash_hexstr - the MD5 digest (RFC 1321) of a text
 *
 * Returns 32 upper-case hex digits, to be freed with eml_hash_free_hexstr; null for null and when
 * there is no memory. A fingerprint for telling texts apart, not a protection.
 */
ZELIEML_API unsigned char *eml_hash_hexstr(const char *text);
ZELIEML_API void           eml_hash_free_hexstr(unsigned char *text);

/* ------------------------------------------- server records and login tests */

/*
 * server_info_create - make a server record
 *
 * server  receives the record; free it with server_info_destroy
 *
 * The record names no servers: set what a call needs before the call. Without it the call fails.
 *
 * Returns 0, or -1 when server is null or there is no memory.
 */
ZELIEML_API int server_info_create(void **server);

/*
 * server_info_destroy - free a server record
 *
 * server  the record, or null. The texts it points at stay the caller's.
 *
 * Returns 0.
 */
ZELIEML_API int server_info_destroy(void *server);

/*
 * server_info_set_pop - name the POP3 server, for test_pop_auth, test_smtp_auth with POP before
 * SMTP, and eml_receive_mails
 *
 * THE TEXTS ARE NOT COPIED. The record keeps these pointers: every text has to stay alive and
 * unchanged until the last call with the record has returned.
 *
 * server     the record
 * host       host name or dotted IPv4 address
 * user       the account
 * password   in clear text
 * auth_type  "pop" for USER and PASS, "apop" for APOP, in lower case. Use no other text: the tests
 *            take it for "apop", receiving takes it for "pop".
 * port       usually 110
 * wait_ms    milliseconds to wait between a login for POP before SMTP and the SMTP session; none
 *            when negative
 *
 * Returns 0, or -1 for a null record. A null text makes the calls with the record fail.
 */
ZELIEML_API int server_info_set_pop(void *server, const char *host, const char *user,
                                    const char *password, const char *auth_type, int port,
                                    int wait_ms);

/*
 * server_info_set_smtp - name the SMTP server, for test_smtp_auth
 *
 * THE TEXTS ARE NOT COPIED, see server_info_set_pop.
 *
 * server    the record
 * host      host name or dotted IPv4 address
 * user      the account; not null, also without authentication
 * password  in clear text; not null, also without authentication
 * auth      "on" or "off", in lower case. It has to agree with the server: the test fails when the
 *           server offers authentication and this is "off", as it does the other way round.
 * port      usually 25 or 587
 *
 * Returns 0, or -1 for a null record. A null text makes the test fail.
 */
ZELIEML_API int server_info_set_smtp(void *server, const char *host, const char *user,
                                     const char *password, const char *auth, int port);

/*
 * test_pop_auth - log in to the POP3 server, and out again
 *
 * server   the record, after server_info_set_pop
 * message  receives the server's last line and its NUL, or an empty text when there was none; may
 *          be null. THE LENGTH IS NOT CHECKED: the server decides how much is written. A line of a
 *          POP3 server has 512 bytes at most if it keeps to the rules (RFC 2449), but nothing here
 *          holds it to them. Pass null for a server that is not trusted.
 *
 * Runs on the caller's thread. No mail is read or deleted. How long it takes is up to the server,
 * as for eml_post_sync.
 *
 * Returns eml_send_ok when the login was accepted. Otherwise eml_send_error_auth when user or
 * password was refused, or not answered, or APOP is not possible; eml_send_error_connection when
 * the server was not found, not reached or did not greet; eml_send_error_other when QUIT was not
 * answered, the record is null or was not set, or there is no memory.
 */
ZELIEML_API eml_send_e test_pop_auth(void *server, char *message);

/*
 * test_smtp_auth - greet the SMTP server, log in, and quit; no mail is sent
 *
 * server           the record, after server_info_set_smtp
 * pop_before_smtp  "on": log in to the record's POP3 server first, and wait as it says. When that
 *                  fails, the SMTP server is not contacted. Any other text, "off" say: do not. The
 *                  record keeps this pointer too.
 * message          receives the server's last reply, all its lines with their CR LF, and its NUL,
 *                  or an empty text when there was none; may be null. THE LENGTH IS NOT CHECKED:
 *                  the server decides how much is written. A reply line has 512 bytes at most if
 *                  the server keeps to the rules (RFC 5321), and a reply has any number of lines.
 *                  Pass null for a server that is not trusted.
 *
 * The strongest of CRAM-MD5, LOGIN and PLAIN that the server offers is used. Runs on the caller's
 * thread. How long it takes is up to the server, as for eml_post_sync.
 *
 * Returns eml_send_ok when the server accepted greeting, login and QUIT. Otherwise
 * eml_send_error_auth when EHLO or the login was refused, or not answered, or the switch does not
 * agree with the server; eml_send_error_connection when the server was not found, not reached, did
 * not greet (message then holds the last line of a POP3 login before it), or did not accept the
 * QUIT; what test_pop_auth returns when the POP3 login failed;
 * eml_send_error_other when an argument but message is null, or there is no memory.
 */
ZELIEML_API eml_send_e test_smtp_auth(void *server, const char *pop_before_smtp, char *message);

/* ----------------------------------------------------------------- receiving */

/*
 * Receiving empties a POP3 mailbox and hands back who wrote and about what. THE MAILS ARE DELETED
 * ON THE SERVER: those that are handed back, those whose sender is not allowed, those too long to
 * be taken (over 2000 lines), and, when receiving fails half way, those that were fetched by then,
 * although none of them is handed back. Use a mailbox that nobody else reads.
 */

/*
 * eml_receive_msg_create - make an empty list of received mails
 *
 * list  receives the list; free it with eml_receive_msg_destroy
 *
 * Returns 0, or -1 when list is null or there is no memory.
 */
ZELIEML_API int eml_receive_msg_create(void **list);

/*
 * eml_receive_msg_destroy - free a list of received mails
 *
 * list  the list, or null
 *
 * Returns 0.
 */
ZELIEML_API int eml_receive_msg_destroy(void *list);

/*
 * eml_receive_msg_count - the number of mails in a list
 *
 * Returns the number, 0 for null.
 */
ZELIEML_API int eml_receive_msg_count(void *list);

/*
 * eml_receive_mails - fetch all mails of a mailbox, and delete them on the server
 *
 * server   a server record, after server_info_set_pop
 * list     receives the mails, in the order of the mailbox; what was in it is dropped
 * domains  the domains whose mails are handed back, separated by commas, blanks removed; null or
 *          empty for all. One matches when it stands anywhere in the sender's domain, with regard
 *          to case: "example.com" also lets "mail.example.com" and "notexample.com" pass, and an
 *          empty entry ("example.com,") lets everything pass. This selects mails; it does not tell
 *          who sent them.
 *
 * Holds one session with the server for each mail, on the caller's thread. How long it takes is up
 * to the server, as for eml_post_sync.
 *
 * A mail that falls silent half way counts as fetched, with the lines that had come.
 *
 * Returns 0 when the server had no further mail; one that it refused to delete can come again.
 * Returns -1 when server or list is null, any session fails, there is no memory, or the server
 * refused to delete in 1000 sessions in a row or showed the very same mailbox in 1000; the list is
 * empty then, and THE MAILS FETCHED BY THEN ARE LOST.
 */
ZELIEML_API int eml_receive_mails(void *server, void *list, const char *domains);

/*
 * eml_receive_msg_get_from, eml_receive_msg_get_subject - copy the sender or the subject of a mail
 *
 * list   the list
 * index  the mail, from 0
 * buf    receives the text and its NUL: what followed "From: " or "Subject: " in the first line of
 *        the mail that contains it, header or body, as the server sent it: encoded words are not
 *        decoded, continuation lines are not joined. Empty when there is no such line.
 * size   bytes at buf. There has to be room for the whole line and a NUL, although the key and what
 *        stands before it are not copied: a text of n characters behind its key needs n + 7 bytes
 *        (From) or n + 10 (Subject). 4096 are always enough.
 *
 * Returns 0. Returns -1, leaving buf as it was, when list or buf is null, there is no such mail, or
 * there is not enough room.
 */
ZELIEML_API int eml_receive_msg_get_from(void *list, int index, char *buf, int size);
ZELIEML_API int eml_receive_msg_get_subject(void *list, int index, char *buf, int size);

#ifdef __cplusplus
}
#endif

#endif
