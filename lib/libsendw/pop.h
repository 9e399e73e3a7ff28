// pop.h - a POP3 client (RFC 1939)
//
// One function per command: it writes one line, in lower case, and reads one line of reply. All
// functions return 0 for success and -1 for failure unless they say otherwise. A read gives up
// after about 15 s of silence; a write waits without limit. A session belongs to one thread.
//
// A reply counts as an error when it contains "-ERR", "-err" or "error" anywhere; a positive status
// is not required: deliberate, see docs/ODDITIES.md. A command line of more than 1023 bytes is not
// sent and counts as refused. Whatever fails is noted (support/attempt_note.h).

#ifndef ZELIEML_LIBSENDW_POP_H
#define ZELIEML_LIBSENDW_POP_H

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "libsendw/session_holder.h"
#include "libsendw/step.h"

namespace zelieml
{

// What pop_before_smtp returns. Two numbers have a code of eml_send_e but are never returned:
// pop_not_resolved, since a host that is not found counts as pop_start_failed, and pop_end_failed.
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
    int         socket    = 0;      // valid while connected
    std::string reply     = {};     // the last line read, with its line end
    bool        connected = false;  // socket is open and belongs to this session
    pid_t       tunneled  = 0;      // the process that has made socket the end of a tunnel, or 0
    step_book   book = {"the POP3 server", {step_name::pop_greeting, nullptr, "the connection"}};
};

// It does not need this host's name.
inline std::optional<std::string>* own_name_of(_s_pop& /*session*/)
{
    return nullptr;
}

// How connecting to a POP3 server is noted and traced.
inline constexpr connect_steps pop_connecting = {step_name::pop_look_up, step_name::pop_connect,
                                                 "IP:%s Port:%d", step_name::pop_tls};

// pop_start_session - connect and read the greeting
//
// host  host name or dotted IPv4 address
// port  port number
// out   receives the session, null only when there is no memory. The caller ends it with
//       pop_end_session, or with pop_abandon_session when the start failed.
// tls   see tunnel_connect_host
//
// The greeting is kept as the last reply, where pop_apop looks for its time stamp. Its status is
// not checked: deliberate, see docs/ODDITIES.md.
int pop_start_session(char const* host, int port, _s_pop** out, tls_choice const* tls = nullptr);

// pop_read_greeting - the last step of pop_start_session
int pop_read_greeting(_s_pop* session);

// pop_check_greeting - whether the server greeted as one of POP3, for a caller that wants to know
//
// session  whose greeting is the last reply
//
// Returns 0 when it begins with "+OK" or "-ERR", in upper or lower case, otherwise -1.
int pop_check_greeting(_s_pop const* session);

// pop_abandon_session - close the connection, if there is one, without QUIT, and free the session
//
// session  the session, or null
void pop_abandon_session(_s_pop* session);

// A POP3 session that is abandoned unless it is released.
using pop_holder = session_holder<_s_pop>;

// pop_user, pop_passwd - log in with USER and PASS
int pop_user(_s_pop* session, char const* user);
int pop_passwd(_s_pop* session, char const* password);

// pop_apop - log in with APOP, right after the greeting
//
// The time stamp goes from the first "<" of the greeting to the first ">", both included. Fails
// when one is missing or they are in the wrong order.
int pop_apop(_s_pop* session, char const* user, char const* password);

// pop_log_in - log in with APOP if apop, otherwise with USER and PASS
//
// Returns pop_ok, or which step was refused: pop_apop_refused, pop_user_refused, pop_pass_refused.
int pop_log_in(_s_pop* session, char const* user, char const* password, bool apop);

// pop_stat - ask for the number and size of the mails
//
// count, size  receive the number of messages and of bytes. A missing number leaves its argument
//              unchanged, and the call succeeds; a number out of range becomes the nearest int.
//              Fails for a reply of 1024 bytes or more.
int pop_stat(_s_pop* session, int* count, int* size);

// pop_retr - ask for a message; reads only the status line
int pop_retr(_s_pop* session, int number);

// pop_retr_alllines - fetch a message
//
// lines  the status line and the lines of the message are appended, without line ends. The last one
//        is "."; a line that begins with two dots keeps both.
// over   receives whether the message has more than 2000 lines: then the first 2001 are appended,
//        without the ".", and the rest stays unread on the connection
//
// Succeeds even when the connection is lost after the status line: deliberate, see
// docs/ODDITIES.md.
int pop_retr_alllines(_s_pop* session, int number, std::vector<std::string>& lines, bool& over);

// pop_dele - mark a message as deleted
int pop_dele(_s_pop* session, int number);

// pop_quit - send QUIT; any line of reply is a success
int pop_quit(_s_pop* session);

// pop_end_session - end the connection in order and free the session
//
// session  freed, and its descriptor closed, whatever the result
//
// Waits until the server has closed its side. A connection that does not end in order is traced and
// counts as a success all the same: deliberate, see docs/ODDITIES.md. Returns -1 only for null.
int pop_end_session(_s_pop* session);

// pop_free - free the session without touching its connection; no other unit calls it
//
// Returns 0, or -1 for null.
int pop_free(_s_pop* session);

// pop_before_smtp - log in to a POP3 server, so that its SMTP server knows this host
//
// server, port    of the POP3 server
// user, password  the account, clear text; null counts as refused
// apop            log in with APOP rather than USER and PASS
// wait_ms         milliseconds to wait after a successful login, once the session has ended; a
//                 negative number is none
// reply           receives the server's last line
// tls             see tunnel_connect_host
//
// Returns a pop_result. After a refused login no QUIT is sent: deliberate, see docs/ODDITIES.md.
int pop_before_smtp(char const* server, int port, char const* user, char const* password, bool apop,
                    int wait_ms, std::string& reply, tls_choice const* tls = nullptr);

// The steps of the commands.

// login_data - a command word, a blank, an argument
int login_data(_s_pop* session, char const* word, char const* argument);

// pop_error - whether a reply line reports an error
bool pop_error(std::string const& line);

// read_multiline_reply - read the lines that follow a status line, up to the line "."
//
// lines, over  as for pop_retr_alllines
//
// Returns -1 when the connection is lost or silent, and notes it; the lines read by then are kept.
int read_multiline_reply(_s_pop* session, std::vector<std::string>& lines, bool& over);

// remove_nr - a line without its line end
//
// Drops one LF and then one CR, each only from a string of more than one byte: a line of just CR LF
// becomes a lone CR. A line of more than 4095 bytes becomes empty. Deliberate, see
// docs/ODDITIES.md.
std::string remove_nr(std::string const& line);

// remove_end_char - drop the last byte of a string of more than one byte if it is end
void remove_end_char(char* text, char end);

}  // namespace zelieml

#endif
