/*
 * zelieml.h - send short status mails from a C program
 *
 * The interface has these parts:
 *
 * - [messages]: fill a message record; save it to a file and load it.
 * - [posting]: hand a message to an engine, or send it at once and wait for the result.
 * - [the engine]: a thread that sends the messages of a work directory, tries a second time after
 *   a failure, and reports each result to callbacks.
 * - [result records]: a result code and the server's last reply.
 * - [settings]: the file "zelismes.cf" of a work directory, with servers, accounts and switches.
 * - [passwords and hashes]: encrypt passwords for the settings file.
 * - [server records and login tests]: name an SMTP and a POP3 server, and try to log in.
 * - [receiving]: empty a POP3 mailbox, and get sender and subject of its mails.
 *
 * Rules that hold for all calls, unless a function says otherwise:
 *
 * - Results are 0 for success and -1 for failure. Nothing is thrown. Lack of memory is a failure
 *   like any other.
 * - A null string, handle or output pointer is a failure where one is needed, never a crash.
 * - Handles are opaque void pointers. The caller owns every handle and every string that a
 *   function hands out, and frees it with the function named there. Freeing null is allowed.
 * - Strings end with a NUL. The library copies the strings that it is given: the caller may free
 *   them right after the call. Server records do not copy them, see server_info_set_pop.
 * - Strings are never truncated. A getter fails and leaves the buffer unchanged if the string and
 *   its NUL do not fit.
 * - Sizes are in bytes.
 * - Every function may be called on any thread. Two threads must not use the same record at the
 *   same time. They may use the same engine, but only one of them may start and stop it.
 * - A thread that is cancelled (pthread_cancel) in a call ends while the call waits for a server.
 *   On macOS, where cancellation runs no C++ destructors, the request takes effect after the call,
 *   as it does for eml_start and eml_stop on every system.
 * - Servers are reached over IPv4 only, at the first address that the system's resolver gives for
 *   the name. If that address does not answer, no other is tried: name a server with one address.
 * - The connections are encrypted only where a setting or zelieml_ext.h asks for TLS.
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
 * The encoding of the subject and the body of a message. The library does not convert them: the
 * caller passes them in this encoding. Any other value counts as UTF-8.
 */
typedef enum eml_encoding {
    /* "UTF-8": the body is sent as Base64 */
    eml_encoding_utf8 = 0,
    /* "ISO-2022-JP": the body is sent as it is, 7bit */
    eml_encoding_iso2022jp = 1,
    eml_encoding_32_bits   = -0x7fffffff - 1 /* so that every 32-bit value may be passed */
} eml_encoding;

/*
 * eml_msg_create - make an empty message record
 *
 * msg  receives the record; free it with eml_msg_destroy
 *
 * All strings of the record are empty, its encoding is UTF-8.
 *
 * Returns 0. Returns -1 when msg is null or there is no memory; *msg is null then.
 */
ZELIEML_API int eml_msg_create(void **msg);

/*
 * eml_msg_destroy - free a message record
 *
 * msg  the record, or null. It is not needed any more once a posting function has returned, which
 *      has copied the message into a file.
 *
 * Returns 0.
 */
ZELIEML_API int eml_msg_destroy(void *msg);

/*
 * eml_msg_set_from, _to, _cc, _subject, _replyto, _messageid - set a header of the message
 *
 * msg      the record
 * from     the From header; it is used for nothing else, and not encoded: pass ASCII
 * to, cc   plain addresses, without names or angle brackets, separated by commas; spaces are
 *          removed. Both get the mail, each address once. An empty cc means that there is no Cc
 *          header. To needs an address even if cc has one. Pass no empty address, such as one after
 *          a last comma: the server is told to deliver to "<>", and refuses that as a rule.
 * subject  the subject, in the encoding of the message
 * replyto  the Reply-To header, and the envelope sender: replies and bounces go to this address.
 *          Empty means the null sender "<>".
 * id       the Message-Id header, sent as it is; empty means that there is none
 *
 * Each replaces the string that was set before. The strings are stored without any check. Do not
 * pass line breaks: in the message file a line break ends the header, and what follows it is read
 * back as another line.
 *
 * If the server refuses one of the addresses, nobody gets the mail.
 *
 * Mail servers may limit lines to 998 bytes (RFC 5322), and each of these headers is one line. A
 * server can accept a longer line and return the mail to replyto later: the result is eml_send_ok
 * then. Keep the subject within 732 bytes in UTF-8 and 726 in ISO-2022-JP (989 if the setting
 * "subject_use_encoding" is "no"), from within 992, replyto within 988 and id within 986. A subject
 * of 39 bytes in UTF-8 or 36 in ISO-2022-JP is also short enough for RFC 2047, which programs that
 * are strict about it need to decode it.
 *
 * Returns 0. Returns -1, leaving the record unchanged, when an argument is null or there is no
 * memory.
 */
ZELIEML_API int eml_msg_set_from(void *msg, const char *from);
ZELIEML_API int eml_msg_set_to(void *msg, const char *to);
ZELIEML_API int eml_msg_set_cc(void *msg, const char *cc);
ZELIEML_API int eml_msg_set_subject(void *msg, const char *subject);
ZELIEML_API int eml_msg_set_replyto(void *msg, const char *replyto);
ZELIEML_API int eml_msg_set_messageid(void *msg, const char *id);

/*
 * eml_msg_set_body - set the body of the message
 *
 * msg   the record
 * body  the body, less than 1 GiB, in the encoding of the message. Its lines may end in LF, CR or
 *       CR LF; they are stored with CR LF. A body of nothing but lone LFs or CRs is stored as it
 *       is, and so is one that there is no memory to convert.
 *
 * Every message is sent from its file, where the body follows the headers. Two things are not read
 * back from there as they were written:
 *
 * - A line that begins with the key of a header ("to: ", for example; see KeyFrom) is taken as that
 *   header, and is missing from the body.
 * - Empty lines at the start of the body are lost.
 *
 * The body of a message in ISO-2022-JP is sent line by line as it is: break its lines after 998
 * bytes at most, see eml_msg_set_subject. In UTF-8 lines may have any length.
 *
 * Returns 0. Returns -1, leaving the record unchanged, when an argument is null, the body is too
 * long, or there is no memory.
 */
ZELIEML_API int eml_msg_set_body(void *msg, const char *body);

/*
 * eml_msg_set_encoding - say how subject and body are encoded
 *
 * msg  the record
 * enc  the encoding
 *
 * Returns 0. Returns -1, leaving the record unchanged, when msg is null or there is no memory.
 */
ZELIEML_API int eml_msg_set_encoding(void *msg, eml_encoding enc);

/*
 * eml_msg_get_from, _to, _cc, _subject, _replyto, _encoding, _body, _messageid - copy a string of
 * the message
 *
 * msg   the record
 * buf   receives the string and its NUL
 * size  bytes at buf, the NUL included
 *
 * eml_msg_get_encoding gives "UTF-8" or "ISO-2022-JP", or whatever a loaded file says.
 *
 * Returns 0. Returns -1, leaving buf unchanged, when an argument is null or the string and its NUL
 * do not fit. The length cannot be asked for: try again with a larger buffer.
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
 * eml_msg_save - save a message to a file
 *
 * msg   the record
 * path  the file; created (mode 0666 minus the umask) or overwritten, through links too. See
 *       docs/FORMATS.md for its format.
 *
 * While the file is written, a lock (flock) keeps an engine's half-hourly look from sending it.
 *
 * Returns 0. Returns -1 when an argument is null, or the file cannot be opened or not be written
 * completely; what was written by then stays in the file.
 *
 * Lack of memory is not reported: each line is written through a buffer of its own, and a line for
 * which there is none is missing from the file. A line without memory to remove its CRs keeps them.
 */
ZELIEML_API int eml_msg_save(void *msg, const char *path);

/*
 * eml_msg_load - make a message record from a message file
 *
 * msg   receives the record; free it with eml_msg_destroy
 * path  the file; links are followed
 *
 * Returns 0. Returns -1 when an argument is null, there is no memory, or the file cannot be read or
 * is not a regular file. *msg can hold a record even then: set it to null before the call, and free
 * it after the call whatever the result.
 */
ZELIEML_API int eml_msg_load(void **msg, const char *path);

/*
 * The keys of the headers in a message file, and the line ends. Each key includes the space that
 * belongs to it: KeyTo is "to: ". ValCharLf, "\n", ends each line of the file; ValCharCrLf, "\r\n",
 * separates the body lines of a record. They are for programs that write or read message files
 * themselves, see docs/FORMATS.md. The library uses these very pointers: do not change them.
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
 * eml_post, eml_post_sys and eml_post_message_file hand a message to an engine: a file in its work
 * directory, and a notification with its stock symbol that names the file. The engine sends the
 * mail later, see [the engine]. It may run in this process or in another one, of the same user or,
 * where the system allows it, of a different user (see docs/ENGINE.md). eml_post_sync sends the
 * mail itself and needs no engine.
 *
 * Functions without _with_stocksymbol use the stock symbol "zelieml_stocksymbol".
 *
 * Lack of memory can cost a part of a mail without any failure: a line that is not saved, see
 * eml_msg_save, is missing, and a subject or a body that cannot be encoded is sent empty.
 */

/*
 * eml_post, eml_post_with_stocksymbol - post a message to an engine
 *
 * workdir       the engine's work directory: an absolute path, the same as was passed to eml_start,
 *               without a separator at its end. 218 bytes always fit. The engine gets this path: it
 *               finds a relative one only from the same current directory.
 * stock_symbol  the engine's stock symbol; with an empty one no engine is notified
 * msg           the message; stays the caller's, and may be freed right after the call
 *
 * Saves the message as "<workdir>/<time>-<microseconds>-<process id>.sme", which must not exceed
 * 254 bytes, and notifies the engine. If that file exists already, the message is saved beside the
 * work directory instead, where an engine that misses the notification does not find it.
 *
 * Does not wait until the mail is sent. An engine that is stopped by a debugger or a signal can
 * delay the call by half a second.
 *
 * Returns 0 when the message is saved, whether an engine was notified or not. If none was, an
 * engine that runs for this directory finds the file within half an hour, but one that is started
 * later deletes it unsent. Returns -1 when an argument is null or the message could not be saved.
 * If the disk is full, a part of it may then be left in the work directory, and an engine that runs
 * for this directory sends that part.
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
 * eml_post_message_file, eml_post_message_file_with_stocksymbol - post an existing message file
 *
 * fullpath      absolute path of the file, 399 bytes at most: the engine ignores a longer one. The
 *               engine reads the file where it is, and deletes it like any other message file. It
 *               sends only a regular file with one name, and no link. A path that is queued already
 *               is not queued again.
 * stock_symbol  the engine's stock symbol
 *
 * Notifies the engine and does not look at the file. The engine compares queued paths as strings: a
 * file that is announced by two paths, through a linked directory for instance, is queued twice.
 * For a file in the work directory pass "<workdir>/<name>", with workdir as it was passed to
 * eml_start: so the engine calls what it finds there itself.
 *
 * Returns 0, whether an engine was notified or not. Returns -1 when an argument is null, the stock
 * symbol is empty, or there is no memory.
 */
ZELIEML_API int eml_post_message_file(const char *fullpath);
ZELIEML_API int eml_post_message_file_with_stocksymbol(const char *fullpath,
                                                       const char *stock_symbol);

/*
 * eml_post_sync - send a message now and wait for the result
 *
 * workdir  the work directory, without a separator at its end. The settings are read from its file
 *          "zelismes.cf".
 * msg      the message; stays the caller's
 * result   receives the result record; free it with eml_cb_delete. Null when there was no memory
 *          for a record.
 *
 * Saves the message to a file as eml_post does, connects to the server, logs in if the settings say
 * so, hands over the mail and waits for the server's replies. The file is deleted afterwards,
 * whether the mail was sent or not. No engine is needed, and no callback is called. A lock (flock)
 * keeps an engine's half-hourly look from sending the file too. If the thread is cancelled while it
 * waits, and ends there, the file stays.
 *
 * Runs on the caller's thread, and the server decides how long: use a thread that can wait.
 * Connecting is given up after 30 s, a reply after 15 s without a byte, and the beginning of TLS, if
 * the settings ask for it, after 30 s more and 15 s for each reply before it. There is no limit for
 *
 * - a server that trickles bytes, or does not read what it is sent,
 * - closing: once the server has greeted, the call waits until the server closes the connection,
 *   also after a reply that did not come. A server that hangs holds the call until it is ended.
 * - looking up names, which takes as long as the system's resolver does: the server's, and this
 *   machine's own.
 *
 * The setting "pop_wait_time" is waited for in full.
 *
 * Returns 0 when the server has taken the mail and confirmed the end of the session; the code of
 * the record is then eml_send_ok. Otherwise returns -1, and the record says why:
 *
 * - A code that depends on the step that failed, and the server's last reply.
 * - eml_send_error_other and an empty string when the message could not be saved. A part of it may
 *   be left in the work directory if the disk is full.
 * - No record when result is null.
 *
 * -1 does not mean that nothing was delivered: a server can take the mail and refuse only the end
 * of the session.
 */
ZELIEML_API int eml_post_sync(const char *workdir, void *msg, void **result);

/* ---------------------------------------------------------------- the engine */

/*
 * An engine is a worker thread that sends the messages of one work directory. Other threads and
 * processes reach it by its stock symbol, see [posting]. A process can run several engines. Give
 * each engine a work directory and a stock symbol of its own.
 *
 * What becomes of a message:
 *
 * - Starting an engine deletes every message file that is in its work directory, unsent. What was
 *   posted while no engine ran is lost then: start the engine first.
 * - A posted message is tried within about a second. If that fails, it is tried once more, 30 to 40
 *   minutes after it was posted. If that fails too, its file is deleted. Mails are sent one at a
 *   time: while a server keeps the engine waiting, all others wait too, also beyond these times.
 * - At most 500 messages wait. For one more, the engine deletes the oldest.
 * - The result of each attempt is reported to the callbacks, see eml_set_callback. A message that
 *   was deleted to make room is not reported, unless its attempt was already due: that attempt
 *   fails, because the file is missing.
 * - A file that is posted again after it was sent makes two failed attempts, and both are reported.
 * - Stopping an engine completes the attempt in progress and leaves all other files where they are.
 *   The next start deletes them.
 *
 * See docs/ENGINE.md for posting between users and known limits, docs/EMBEDDING.md for daemons and
 * main loops.
 */

/*
 * eml_start, eml_start_with_stocksymbol - start an engine
 *
 * workdir       the work directory: an absolute path of less than 256 bytes, without a separator at
 *               its end. ALL MESSAGE FILES IN IT ARE DELETED. If the directory does not exist, the
 *               engine starts all the same, and posting fails until you create it.
 * stock_symbol  1 to 254 bytes; "zelieml_stocksymbol" for eml_start
 * eml           receives the engine; stop and free it with eml_stop or eml_stop_multi
 *
 * Threads: the worker thread, and the thread that receives notifications if there is one, block all
 * signals. On macOS notifications arrive through the run loop of the process's main thread,
 * whichever thread makes this call; that run loop has to run. If the calling thread is cancelled
 * during the call, that takes effect afterwards, when the engine runs.
 *
 * fork(): in a child process no engine runs. With an inherited engine a child may only post, or
 * stop it, which merely frees memory; anything else, such as changing its callbacks, can hang. Nor
 * may it use a record that another thread was changing during the fork. On Linux it may do
 * everything else, such as send, receive, and start an engine of its own. On macOS, if the parent
 * has posted, sent, started an engine, or used a stored password or an MD5 digest, the child may
 * neither start an engine nor send before it calls exec, and what it posts is found only at the
 * engine's half-hourly look. If a callback forks and then returns in the child, the child ends
 * there with exit status 0: end it with _exit instead.
 *
 * Returns 0 when the engine runs: a message that is posted from then on is sent. On macOS the
 * system may take a moment before it tells the engine of what other processes post: such a message
 * waits for the half-hourly look.
 *
 * Returns -1, leaving *eml unchanged and nothing running, when an argument is null, the stock symbol
 * is empty, workdir or stock symbol is too long, there is no memory for the engine, or the system
 * provides no thread or no place for the notifications. Lack of memory for the engine's queue alone
 * is not reported: the call returns 0, and the engine sends nothing.
 */
ZELIEML_API int eml_start(const char *workdir, void **eml);
ZELIEML_API int eml_start_with_stocksymbol(const char *workdir, const char *stock_symbol,
                                           void **eml);

/*
 * eml_stop - stop an engine and free it
 *
 * eml  the engine; the handle is invalid afterwards. Only one thread may stop an engine, and only
 *      once.
 *
 * Waits for the attempt in progress and its callbacks, and begins no other. See eml_post_sync for
 * how long an attempt can take, and docs/ENGINE.md for what to do if the program has to end sooner.
 * If the calling thread is cancelled meanwhile, that takes effect afterwards, when the engine is
 * stopped.
 *
 * In a callback of this engine it does not wait: the worker thread ends by itself after the attempt
 * that is being reported. It still runs code of the library until then, and nothing tells when it
 * has ended. A program that stops an engine in a callback must not unload the library.
 *
 * Returns 0, or -1 for null.
 */
ZELIEML_API int eml_stop(void *eml);

/*
 * eml_stop_multi - stop an engine that several paths of a program may want to stop
 *
 * eml  points to the handle, which is set to null
 *
 * Stops and frees the engine as eml_stop does. Does nothing if the handle is null. Does nothing
 * either while another call of eml_stop_multi is in progress in this process, for this engine or
 * any other: it leaves the handle as it is and does not wait. This turns away nested calls; it is
 * not a lock between threads.
 *
 * Returns 0 in all cases.
 */
ZELIEML_API int eml_stop_multi(void **eml);

/*
 * eml_set_callback - register a callback for the results of an engine
 *
 * eml   the engine
 * proc  the callback; what it returns is ignored
 * user  passed to the callback unchanged; what it points to stays the caller's
 *
 * After each attempt the engine calls proc on its worker thread with a result record and user. The
 * record is valid until the callback returns: keep a copy that is made with eml_cb_duplicate. While
 * a callback runs, nothing is sent. An attempt is not reported if there is no memory for its
 * record.
 *
 * The worker thread blocks all signals, and a program that a callback starts inherits that: it could
 * not be ended with SIGTERM. Start it by posix_spawn with POSIX_SPAWN_SETSIGMASK, or call
 * sigprocmask in the child between fork and exec. system and popen cannot do that: call them on a
 * thread of your own.
 *
 * Callbacks are called in the order in which they were registered. One that is registered already
 * keeps its place and its first user. A callback may register and remove callbacks; that takes
 * effect with the next attempt.
 *
 * Register before anything is posted. There is no need to remove a callback before eml_stop, and
 * afterwards the engine does not exist any more. What user points to is needed until eml_stop has
 * returned or, when a callback stops the engine, until the callback has returned.
 *
 * Returns 0, or -1 when eml or proc is null or there is no memory.
 */
ZELIEML_API int eml_set_callback(void *eml, int (*proc)(void *result, void *user), void *user);

/*
 * eml_reset_callback - remove a callback from an engine
 *
 * eml   the engine
 * proc  the callback
 *
 * An attempt that is being reported at this moment may still call it.
 *
 * Returns 0, also when the callback was not registered. Returns -1 when eml or proc is null or
 * there is no memory.
 */
ZELIEML_API int eml_reset_callback(void *eml, int (*proc)(void *result, void *user));

/* ------------------------------------------------------------ result records */

/*
 * How a sending attempt or a login test ended. The step that failed decides. A step fails if the
 * server refuses it or does not answer, or if the connection is lost.
 */
typedef enum eml_send_e {
    /* the server accepted everything */
    eml_send_ok = 0,
    /* message not saved, not readable or not accepted; POP3 settings missing; POP3 QUIT failed; no
       memory */
    eml_send_error_other = 1,
    /* SMTP server not in the settings; server not found or not reached; no greeting; HELO or SMTP
       QUIT failed */
    eml_send_error_connection = 2,
    /* EHLO or login failed (user, password, way of logging in); no SMTP account or password in the
       settings */
    eml_send_error_auth = 3,
    eml_send_32_bits    = 0x7fffffff
} eml_send_e;

/*
 * eml_cb_get_code - get the code of a result record
 *
 * cb    the record
 * code  receives the code
 *
 * Returns 0. Returns -1, leaving *code unchanged, when an argument is null.
 */
ZELIEML_API int eml_cb_get_code(void *cb, eml_send_e *code);

/*
 * eml_cb_get_message - copy the server's last reply from a result record
 *
 * cb    the record
 * buf   receives the reply to the last command and its NUL: all its lines with their CR LF, or an
 *       empty string if none came. A greeting that was not accepted is not given: if there was no
 *       SMTP session, this is the last line of the POP3 login before it, or an empty string.
 * size  bytes at buf, the NUL included
 *
 * Returns 0. Returns -1, leaving buf unchanged, when an argument is null or the reply and its NUL
 * do not fit. The length cannot be asked for: try again with a larger buffer.
 */
ZELIEML_API int eml_cb_get_message(void *cb, char *buf, int size);

/*
 * eml_cb_duplicate - copy a result record
 *
 * cb    the record; stays as it is
 * copy  receives the copy; free it with eml_cb_delete
 *
 * Returns 0. Returns -1, leaving *copy unchanged, when an argument is null or there is no memory.
 */
ZELIEML_API int eml_cb_duplicate(void *cb, void **copy);

/*
 * eml_cb_delete - free a result record
 *
 * cb  a record from eml_post_sync or eml_cb_duplicate, or null. The engine frees the record that it
 *     passes to a callback.
 *
 * Returns 0.
 */
ZELIEML_API int eml_cb_delete(void *cb);

/* ------------------------------------------------------------------ settings */

/*
 * The settings file of a work directory is "<workdir>/zelismes.cf". See docs/FORMATS.md for its
 * keys and values, and eml_encrypt_passwd for the passwords in it.
 *
 * Each line ends in CR LF. In a line without CR the last character of the value is lost. A line may
 * have 1023 bytes, with its CR and without its LF. A longer one, also a comment, hides all lines
 * from there on, and no key can be set: shorten it with an editor.
 */

/*
 * eml_cf_get_string - read one value of a settings file
 *
 * key     the key. It is found anywhere in a line, and the first line that contains it counts: if
 *         "smtp_auth_type = auto" comes before "smtp_auth = yes", the value of "smtp_auth" is read
 *         as "auto". Write the shorter key first.
 * val     receives the value and its NUL. Once a line with the key is found, all *length bytes are
 *         overwritten, even if the call fails.
 * length  in: bytes at val; a value of v characters needs v + 2. Out: characters in the value, or 0
 *         on failure; unchanged if the line has no "=" or there is no memory.
 * path    the settings file
 *
 * Nothing keeps writers out: the call can fail while another thread or process sets a value. Try
 * again then.
 *
 * Returns 0. Returns -1 when an argument is null, the file cannot be read or is not a regular file,
 * no line contains the key, the line has no "=", the value does not fit, or there is no memory.
 */
ZELIEML_API int eml_cf_get_string(const char *key, char *val, unsigned int *length,
                                  const char *path);

/*
 * eml_cf_set_string - set one value in a settings file
 *
 * key   the key: not empty, no "#" at its beginning, no "=" and no line breaks. Every line that
 *       contains it anywhere is replaced, except comments: setting "smtp_auth" also overwrites
 *       "smtp_auth_type". Set the shorter key first.
 * val   the value: no line breaks, and "<key> = <val>" is 1022 bytes at most. Spaces and tabs at
 *       its beginning are lost when it is read.
 * path  the settings file. If it does not exist, it is created with mode 0600, whatever the umask;
 *       if root creates it, it belongs to the owner and group of its directory. chmod it once to
 *       share it with another user's engine.
 *
 * The new settings are written to a new file "<path>.tmp", which then takes the place of the old
 * one and keeps its owner, group, permission bits and access list. If the caller cannot keep the
 * owner, the call fails; if he cannot keep the group or the access list, only the owner keeps his
 * rights. A symbolic link is replaced by a file; one that leads nowhere makes the call fail.
 * "<path>.tmp" and "<path>.bak" are deleted if they exist.
 *
 * Allow only one writer at a time. Two writers, on threads or in processes, can fail, or lose
 * settings, in the worst case all of them.
 *
 * Returns 0. Returns -1 when an argument is null, key or val is not allowed, the file has a line of
 * more than 1023 bytes or is not a regular file, its owner cannot be kept, a file cannot be read,
 * written, removed or renamed, or there is no memory. The settings file is then unchanged (if there
 * was none, an empty one may be there), unless the very last step failed, the renaming: then there
 * is no settings file, and all settings are in "<path>.tmp". Rename that to "<path>" before you set
 * anything: the next call would delete it and begin with an empty file.
 */
ZELIEML_API int eml_cf_set_string(const char *key, const char *val, const char *path);

/* ------------------------------------------------------- passwords and hashes */

/*
 * eml_encrypt_passwd, eml_encrypt_free_passwd - encrypt a password for the settings file
 *
 * password  the password in clear text, at least one byte
 * text      the result, to be freed; or null
 *
 * The key is part of the library: the password cannot be read over a shoulder, but anybody who has
 * the file and the library can decrypt it. Protect the settings file by its permissions.
 *
 * Returns upper-case hex digits, two for each byte of the password; free them with
 * eml_encrypt_free_passwd. Returns null when the password is null or empty, or there is no memory.
 */
ZELIEML_API unsigned char *eml_encrypt_passwd(unsigned char *password);
ZELIEML_API void           eml_encrypt_free_passwd(unsigned char *text);

/*
 * eml_decrypt_passwd, eml_decrypt_free_passwd - decrypt a password
 *
 * text  what eml_encrypt_passwd returned; for eml_decrypt_free_passwd the result, to be freed, or
 *       null
 *
 * Returns the password in clear text; free it with eml_decrypt_free_passwd. Returns null when text
 * is null or has an odd number of digits, or there is no memory. Characters that are not hex digits
 * count as 0: the result is then not the password, and no failure is reported.
 */
ZELIEML_API unsigned char *eml_decrypt_passwd(unsigned char *text);
ZELIEML_API void           eml_decrypt_free_passwd(unsigned char *text);

/*
 * eml_hash_hexstr, eml_hash_free_hexstr - the MD5 digest (RFC 1321) of a string
 *
 * text  the string; for eml_hash_free_hexstr the result, to be freed, or null
 *
 * A fingerprint to tell strings apart. It protects nothing.
 *
 * Returns 32 upper-case hex digits; free them with eml_hash_free_hexstr. Returns null when text is
 * null or there is no memory.
 */
ZELIEML_API unsigned char *eml_hash_hexstr(const char *text);
ZELIEML_API void           eml_hash_free_hexstr(unsigned char *text);

/* ------------------------------------------- server records and login tests */

/*
 * server_info_create - make a server record
 *
 * server  receives the record; free it with server_info_destroy
 *
 * The record names no servers yet. Call server_info_set_pop or server_info_set_smtp, or both,
 * before a call that needs them: without it that call fails.
 *
 * Returns 0. Returns -1, leaving *server unchanged, when server is null or there is no memory.
 */
ZELIEML_API int server_info_create(void **server);

/*
 * server_info_destroy - free a server record
 *
 * server  the record, or null. The strings that it points to stay the caller's.
 *
 * Returns 0.
 */
ZELIEML_API int server_info_destroy(void *server);

/*
 * server_info_set_pop - set the POP3 server of a server record
 *
 * THE STRINGS ARE NOT COPIED. The record keeps the pointers: leave every string valid and unchanged
 * until the last call with the record has returned.
 *
 * server     the record
 * host       host name or dotted IPv4 address. A number with a leading 0 is octal:
 *            10.0.0.010 is 10.0.0.8
 * user       the account
 * password   the password in clear text
 * auth_type  "pop" for USER and PASS, "apop" for APOP, both in lower case. Pass nothing else: the
 *            login tests take any other string as "apop", eml_receive_mails takes it as "pop".
 * port       usually 110. It is not checked, and only its low 16 bits count: 65646 is 110
 * wait_ms    milliseconds that test_smtp_auth waits after a POP3 login before it connects to the
 *            SMTP server; a negative number is 0
 *
 * Used by test_pop_auth, eml_receive_mails, and test_smtp_auth with POP before SMTP.
 *
 * Returns 0, or -1 for a null record. A null string is stored, and makes those calls fail.
 */
ZELIEML_API int server_info_set_pop(void *server, const char *host, const char *user,
                                    const char *password, const char *auth_type, int port,
                                    int wait_ms);

/*
 * server_info_set_smtp - set the SMTP server of a server record
 *
 * THE STRINGS ARE NOT COPIED, see server_info_set_pop.
 *
 * server    the record
 * host      host name or dotted IPv4 address, see server_info_set_pop
 * user      the account; not null, even without authentication
 * password  the password in clear text; not null, even without authentication
 * auth      "on" or "off", in lower case. It has to agree with the server: test_smtp_auth fails if
 *           the server offers authentication and this is "off", and the other way round.
 * port      usually 25 or 587, see server_info_set_pop
 *
 * Used by test_smtp_auth.
 *
 * Returns 0, or -1 for a null record. A null string is stored, and makes the test fail.
 */
ZELIEML_API int server_info_set_smtp(void *server, const char *host, const char *user,
                                     const char *password, const char *auth, int port);

/*
 * test_pop_auth - try to log in to the POP3 server
 *
 * server   the record, after server_info_set_pop
 * message  receives the server's last line and its NUL, or an empty string if there was none; may
 *          be null. THE LENGTH IS NOT CHECKED: the server decides how much is written. A server
 *          that keeps to RFC 2449 sends lines of 512 bytes at most, but nothing enforces that. Pass
 *          null for a server that you do not trust.
 *
 * Logs in and out. No mail is read or deleted. Runs on the caller's thread; see eml_post_sync for
 * how long it can take.
 *
 * Returns eml_send_ok when the server accepted the login. Otherwise one of these:
 *
 * - eml_send_error_auth: user or password was refused or not answered, or APOP is not
 *   possible with this server.
 * - eml_send_error_connection: the server was not found, not reached, or did not greet.
 * - eml_send_error_other: QUIT was not answered, the record is null or has no POP3 server, or there
 *   is no memory.
 */
ZELIEML_API eml_send_e test_pop_auth(void *server, char *message);

/*
 * test_smtp_auth - try to log in to the SMTP server
 *
 * server           the record, after server_info_set_smtp
 * pop_before_smtp  "on": log in to the record's POP3 server first and wait wait_ms milliseconds,
 *                  see server_info_set_pop. If that login fails, the SMTP server is not contacted.
 *                  Any other string: log in to the SMTP server only. The record keeps this pointer
 *                  too.
 * message          receives the server's last reply, all its lines with their CR LF, and its NUL,
 *                  or an empty string if there was none; may be null. THE LENGTH IS NOT CHECKED:
 *                  the server decides how much is written. A server that keeps to RFC 5321 sends
 *                  lines of 512 bytes at most, but any number of them. Pass null for a server that
 *                  you do not trust.
 *
 * Greets the server, logs in with the strongest of CRAM-MD5, LOGIN and PLAIN that it offers, and
 * ends the session. No mail is sent. Runs on the caller's thread; see eml_post_sync for how long it
 * can take.
 *
 * Returns eml_send_ok when the server accepted greeting, login and QUIT. If the POP3 login failed,
 * returns what test_pop_auth returns. Otherwise one of these:
 *
 * - eml_send_error_auth: EHLO or the login was refused or not answered, or the authentication
 *   switch of the record does not agree with the server.
 * - eml_send_error_connection: the server was not found, not reached, did not greet, or did not
 *   accept QUIT, or the record has no SMTP server. If no SMTP session was started, message holds
 *   the last line of the POP3 login, if there was one.
 * - eml_send_error_other: server or pop_before_smtp is null, or there is no memory.
 */
ZELIEML_API eml_send_e test_smtp_auth(void *server, const char *pop_before_smtp, char *message);

/* ----------------------------------------------------------------- receiving */

/*
 * Receiving empties a POP3 mailbox and hands back the senders and subjects of its mails. THE MAILS
 * ARE DELETED ON THE SERVER, and not only those that are handed back:
 *
 * - mails whose sender is not in an allowed domain,
 * - mails of more than 2000 lines, which are too long to be taken,
 * - when receiving fails half way, all mails fetched by then, of which none is handed back.
 *
 * Use a mailbox that nobody else reads.
 */

/*
 * eml_receive_msg_create - make an empty list of received mails
 *
 * list  receives the list; free it with eml_receive_msg_destroy
 *
 * Returns 0. Returns -1, leaving *list unchanged, when list is null or there is no memory.
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
 * list  the list
 *
 * Returns the number, 0 for null.
 */
ZELIEML_API int eml_receive_msg_count(void *list);

/*
 * eml_receive_mails - fetch all mails of a mailbox, and delete them on the server
 *
 * server   a server record, after server_info_set_pop
 * list     receives the mails, in the order of the mailbox; its previous contents are dropped
 * domains  the allowed sender domains, separated by commas; spaces are removed. Null or empty
 *          allows all. A domain matches anywhere in the sender's domain, case-sensitively:
 *          "example.com" also allows "mail.example.com" and "notexample.com". An empty entry, as in
 *          "example.com,", allows everything. This selects mails; it does not prove who sent them.
 *
 * Opens one session with the server for each mail, on the caller's thread; see eml_post_sync for
 * how long each can take. A mail that the server does not send to its end counts as fetched, with
 * the lines that arrived.
 *
 * Returns 0 when the server has no further mail. A mail that it refused to delete can be in the
 * list more than once.
 *
 * Returns -1, with an empty list, when any session fails, there is no memory, or the server does not
 * delete: 1000 sessions in a row brought the same mail again while the number of mails reached no
 * new low. THE MAILS FETCHED BY THEN ARE LOST. Returns -1 without contacting the server when server
 * or list is null. Does not return while a server goes on sending mails it invents: that cannot be
 * told from a full mailbox.
 */
ZELIEML_API int eml_receive_mails(void *server, void *list, const char *domains);

/*
 * eml_receive_msg_get_from, eml_receive_msg_get_subject - copy the sender or the subject of a mail
 *
 * list   the list
 * index  the mail, from 0
 * buf    receives the string and its NUL: what follows "From: " or "Subject: " in the first line of
 *        the mail that contains it, be it a header or a line of the body. It is what the server
 *        sent: encoded words are not decoded, continuation lines are not joined. Lines of more than
 *        4095 bytes, CR LF included, are passed over: if the From header is one, the next line that
 *        contains "From: " counts. Empty if there is no such line.
 * size   bytes at buf. There has to be room for the whole line and a NUL, although "From: " or
 *        "Subject: " and what comes before it are not copied: for a string of n characters at least
 *        n + 7 bytes (sender) or n + 10 (subject). 4096 are always enough.
 *
 * Returns 0. Returns -1, leaving buf unchanged, when list or buf is null, there is no such mail, or
 * there is not enough room.
 */
ZELIEML_API int eml_receive_msg_get_from(void *list, int index, char *buf, int size);
ZELIEML_API int eml_receive_msg_get_subject(void *list, int index, char *buf, int size);

#ifdef __cplusplus
}
#endif

#endif
