// smtp.h - the client's side of an SMTP session (RFC 5321) with authentication (RFC 4954)
//
// One function per command: it writes one command line and checks the reply. The functions keep no
// state machine and trust the order
//
//     smtp_start_session, smtp_helo or smtp_ehlo, smtp_mailfrom, smtp_rcptto, smtp_start_data,
//     smtp_write_data, smtp_end_data, smtp_quit, smtp_end_session
//
// A session serves one message. All functions return 0 for success and -1 for failure unless they
// say otherwise; after a failure only smtp_quit and smtp_end_session make sense. A read gives up
// after about 15 s of silence, writes wait for ever. A session belongs to one thread.
//
// On the wire commands are lower case, AUTH is upper case, and a blank follows the colon of MAIL
// and RCPT: deliberate, see docs/ODDITIES.md. A command line of more than 1023 bytes is not sent
// and counts as refused.

#ifndef ZELIEML_LIBSENDW_SMTP_H
#define ZELIEML_LIBSENDW_SMTP_H

#include <string>
#include <vector>

#include "libsendw/session_holder.h"

namespace zelieml
{

struct _s_smtp {
    int         socket    = 0;      // meaningful while connected
    std::string reply     = {};     // the last reply, all its lines with their CR LF
    bool        connected = false;  // socket is a descriptor of this session
};

// smtp_start_session - connect and read the greeting
//
// host  host name or dotted IPv4 text
// port  port number
// out   receives the session, also when the start failed after it was made; null only when there
//       is no memory. End a started session with smtp_end_session, one whose start failed with
//       smtp_abandon_session.
//
// Succeeds when the last line of the greeting contains "220".
int smtp_start_session(char const* host, int port, _s_smtp** out);

// smtp_abandon_session - close the connection at once, if there is one, and free the session
//
// session  the session, or null
void smtp_abandon_session(_s_smtp* session);

// An SMTP session that is abandoned unless it is released.
using smtp_holder = session_holder<_s_smtp>;

// smtp_helo - greet with HELO and this host's name
int smtp_helo(_s_smtp* session);

// smtp_ehlo - greet with EHLO and this host's name, and authenticate in any case
//
// auth_type       which mechanism, see auth()
// user, password  the account, clear text; null is a failure
int smtp_ehlo(_s_smtp* session, std::string const& auth_type, char const* user,
              char const* password);

// smtp_ehlo2 - greet with EHLO, and authenticate if the switch says so
//
// user, password  the account, clear text; null is a failure, also while the switch is off
// auth_switch  "on" or "off", exactly. It has to agree with the server: one that offers AUTH
//              while the switch is off fails as well as one that offers none while it is on.
int smtp_ehlo2(_s_smtp* session, std::string const& auth_type, char const* user,
               char const* password, char const* auth_switch);

// smtp_mailfrom - name the sender
//
// address  put between angle brackets as it is; empty for the null sender
int smtp_mailfrom(_s_smtp* session, std::string const& address);

// smtp_rcptto - name the recipients, one command each
//
// addresses  put between angle brackets as they are, in order. The first one that is refused ends
//            it: those after it are not tried. An empty list is a success.
int smtp_rcptto(_s_smtp* session, std::vector<std::string> const& addresses);

// smtp_start_data - ask to send the text
//
// Servers that answer 250 instead of 354 are accepted.
int smtp_start_data(_s_smtp* session);

// smtp_write_data - send pieces of the text
//
// lines  sent in order exactly as they are: they bring their own CR LF, and lines that begin with
//        a dot have it doubled already (RFC 5321, 4.5.2)
//
// No reply is read. The last segment may wait in the system until smtp_end_data.
int smtp_write_data(_s_smtp* session, std::vector<std::string> const& lines);

// smtp_end_data - end the text with CR LF, a dot and CR LF, and hear whether the server has it
int smtp_end_data(_s_smtp* session);

// smtp_quit - say goodbye
//
// Only "221" is a success.
int smtp_quit(_s_smtp* session);

// smtp_end_session - end the connection in order and free the session
//
// session  gone afterwards, its descriptor too, whatever the result
//
// Waits until the server has closed. A connection that does not end in order is traced, and is a
// success all the same. Returns -1 only for null.
int smtp_end_session(_s_smtp* session);

// The steps of the commands.

// read_multiline_reply - read one reply (RFC 5321, 4.2.1)
//
// lines  receives the lines, each with its CR LF; emptied first
//
// A line whose fourth character is a blank is the last: a bare "250" is not, and the reader waits
// for more. There is no limit to the number of lines. The session's reply is the same text.
//
// Returns -1 when the connection is lost or silent; what had come by then is kept.
int read_multiline_reply(_s_smtp* session, std::vector<std::string>& lines);

// read_reply_and_check_code - read one reply and look for a code
//
// code  searched anywhere in the last line, not just at its start: "550 ... 250 ..." passes for
//       "250"
int read_reply_and_check_code(_s_smtp* session, char const* code);

// find_auth_reponse - the line of an EHLO reply that offers authentication
//
// Returns the first line that contains "AUTH" in upper case, or an empty text.
std::string find_auth_reponse(std::vector<std::string>& lines);

// auth - log in by one mechanism; there is no second one if it fails
//
// auth_type  contains "auto": the first of CRAM-MD5 and LOGIN that auth_line contains, else PLAIN.
//            Otherwise the first of "cram-md5" and "login" that it contains itself, in lower case
//            only, else PLAIN.
// auth_line  the server's offer, upper case
int auth(_s_smtp* session, std::string const& auth_type, char const* user, char const* password,
         std::string const& auth_line);

// auth_cram_md5 - log in by CRAM-MD5 (RFC 2195)
int auth_cram_md5(_s_smtp* session, char const* user, char const* password);

// auth_login - log in by LOGIN: user and password in Base64, the server's prompts are not looked at
int auth_login(_s_smtp* session, char const* user, char const* password);

// auth_login_data - one answer of LOGIN
//
// text  sent in Base64
// code  what the reply has to contain
int auth_login_data(_s_smtp* session, char const* text, char const* code);

// auth_plain - log in by PLAIN (RFC 4616), the response in the command itself
//
// A "^" in user or password is sent as a NUL: such credentials cannot be used with PLAIN.
int auth_plain(_s_smtp* session, char const* user, char const* password);

}  // namespace zelieml

#endif
