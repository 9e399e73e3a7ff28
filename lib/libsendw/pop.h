// pop.h - a POP3 client (RFC 1939)
//
// One function per command: it writes one line, in lower case, and reads one line of reply. All
// functions return 0 for success and -1 for failure unless they say otherwise. A read gives up
// after about 15 s of silence, writes wait for ever. A session belongs to one thread.
//
// A reply counts as an error when it contains "-ERR", "-err" or "error" anywhere, also in good
// news; no positive status is asked for. A command line over 1023 bytes is not sent and counts as
// refused.

#ifndef ZELIEML_LIBSENDW_POP_H
#define ZELIEML_LIBSENDW_POP_H

#include <string>
#include <vector>

#include "libsendw/session_holder.h"

namespace zelieml
{

// What pop_before_smtp returns, but for two numbers that only have a code: pop_not_resolved, since
// a host that is not found is pop_start_failed, and pop_end_failed.
enum pop_result {
    pop_ok           = 0,
    pop_quit_failed  = 100,
    pop_not_resolved = 2001,
    pop_start_failed = 2002,
    pop_end_failed   = 2003,
    pop_user_refused = 2004,
    pop_pass_refused = 2005,
    pop_apop_refused = 2006
};

struct _s_pop {
    int         socket    = 0;      // meaningful while connected
    std::string reply     = {};     // the last line read, with its line end
    bool        connected = false;  // socket is a descriptor of this session
};

// pop_start_session - connect and read the greeting
//
// host  host name or dotted IPv4 text
// port  port number
// out   receives the session, also when the start failed after it was made; null only when there
//       is no memory. End a started session with pop_end_session, one whose start failed with
//       pop_abandon_session.
//
// The greeting is kept as the last reply, where pop_apop looks for its time stamp. It is not
// checked for a positive status.
int pop_start_session(char const* host, int port, _s_pop** out);

// pop_abandon_session - close the connection at once, if there is one, and free the session
//
// session  the session, or null
void pop_abandon_session(_s_pop* session);

// A POP3 session that is abandoned unless it is released.
using pop_holder = session_holder<_s_pop>;

// pop_user, pop_passwd - log in by USER and PASS
int pop_user(_s_pop* session, char const* user);
int pop_passwd(_s_pop* session, char const* password);

// pop_apop - log in by APOP, right after the greeting
//
// Takes the time stamp from the first "<" of the greeting to the first ">", both included, and
// fails when one is missing or they stand the other way round.
int pop_apop(_s_pop* session, char const* user, char const* password);

// pop_log_in - log in by APOP, or else by USER and PASS
//
// Returns pop_ok, or which step was refused: pop_apop_refused, pop_user_refused, pop_pass_refused.
int pop_log_in(_s_pop* session, char const* user, char const* password, bool apop);

// pop_stat - ask for the size of the mailbox
//
// count, size  receive the number of messages and of bytes. A number that is missing leaves its
//              argument as it was, and the call succeeds; one out of range comes as the nearest
//              int. Fails for a reply of 1024 bytes and more.
int pop_stat(_s_pop* session, int* count, int* size);

// pop_retr - ask for a message; reads the status line only
int pop_retr(_s_pop* session, int number);

// pop_retr_alllines - fetch a message
//
// lines  the status line and then the message's lines are appended, without their line ends; the
//        last one is ".". A line that begins with two dots keeps both.
// over   out: the message has more than 2000 lines. The first 2001 are appended, without the ".";
//        the rest stays unread on the connection.
//
// Succeeds also when the connection is lost after the status line.
int pop_retr_alllines(_s_pop* session, int number, std::vector<std::string>& lines, bool& over);

// pop_dele - mark a message as deleted
int pop_dele(_s_pop* session, int number);

// pop_quit - say goodbye; any line is a good answer
int pop_quit(_s_pop* session);

// pop_end_session - end the connection in order and free the session
//
// session  gone afterwards, its descriptor too, whatever the result
//
// Waits until the server has closed. A connection that does not end in order is traced, and is a
// success all the same. Returns -1 only for null.
int pop_end_session(_s_pop* session);

// pop_free - free the session without touching its connection; no other unit calls it
//
// Returns 0, or -1 for null.
int pop_free(_s_pop* session);

// pop_before_smtp - log in to a POP3 server, so that its SMTP server knows this host
//
// server, port    of the POP3 server
// user, password  the account, clear text; null counts as refused
// apop            log in by APOP rather than USER and PASS
// wait_ms         milliseconds to wait after a good login and the end of the session; none when
//                 negative
// reply           receives the server's last line
//
// Returns a pop_result. A refused login ends without QUIT.
int pop_before_smtp(char const* server, int port, char const* user, char const* password, bool apop,
                    int wait_ms, std::string& reply);

// The steps of the commands.

// login_data - a command word, a blank, an argument
int login_data(_s_pop* session, char const* word, char const* argument);

// pop_error - whether a reply line reports an error
bool pop_error(std::string const& line);

// read_multiline_reply - read the lines that follow a status line, up to the line "."
//
// lines, over  as for pop_retr_alllines
//
// Returns -1 when the connection is lost or silent; what had come by then is kept.
int read_multiline_reply(_s_pop* session, std::vector<std::string>& lines, bool& over);

// remove_nr - a line without its line end
//
// Drops one LF and then one CR, each only from a text of more than one byte: a line of CR LF
// becomes a lone CR. A line of more than 4095 bytes becomes empty.
std::string remove_nr(std::string const& line);

// remove_end_char - drop the last byte of a text of more than one byte if it is this one
void remove_end_char(char* text, char end);

}  // namespace zelieml

#endif
