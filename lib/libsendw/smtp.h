// smtp.h - the client's side of an SMTP session (RFC 5321) with authentication (RFC 4954)
//
// One function per command: it writes one command line and checks the reply. The functions do not
// check the order, which is
//
//     smtp_start_session, smtp_helo or smtp_ehlo, smtp_mailfrom, smtp_rcptto, smtp_start_data,
//     smtp_send_data, smtp_quit, smtp_end_session
//
// A session serves one message. All functions return 0 for success and -1 for failure unless they
// say otherwise; after a failure only smtp_quit and smtp_end_session make sense. A read gives up
// after about 15 s of silence; a write waits without limit. A session belongs to one thread.
//
// On the wire commands are lower case, AUTH is upper case, and a blank follows the colon of MAIL
// and RCPT: deliberate, see docs/ODDITIES.md. A command line of more than 1023 bytes is not sent
// and counts as refused. Whatever fails is noted (support/attempt_note.h).

#ifndef ZELIEML_LIBSENDW_SMTP_H
#define ZELIEML_LIBSENDW_SMTP_H

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "libsendw/session_holder.h"
#include "libsendw/step.h"

namespace zelieml
{

struct _s_smtp {
    int         socket    = 0;      // valid while connected
    std::string reply     = {};     // the last reply, all its lines with their CR LF
    bool        connected = false;  // socket is open and belongs to this session
    pid_t       tunneled  = 0;      // the process that has made socket the end of a tunnel, or 0
    // This host's name, once it was looked up: it may be an empty one.
    std::optional<std::string> own_name = {};
    step_book                  book     = {"the server"};
};

// Where a session keeps this host's name.
inline std::optional<std::string>* own_name_of(_s_smtp& session)
{
    return &session.own_name;
}

// How connecting to an SMTP server is noted and traced.
inline constexpr connect_steps smtp_connecting = {step_name::look_up, step_name::connect,
                                                  "connect IP:%s Port:%d", step_name::tls};

// smtp_start_session - connect and read the greeting
//
// host  host name or dotted IPv4 address
// port  port number
// out   receives the session, null only when there is no memory. The caller ends it with
//       smtp_end_session, or with smtp_abandon_session when the start failed.
// tls   see tunnel_connect_host
//
// Succeeds when the last line of the greeting contains "220".
int smtp_start_session(char const* host, int port, _s_smtp** out, tls_choice const* tls = nullptr);

// smtp_read_greeting - the last step of smtp_start_session
int smtp_read_greeting(_s_smtp* session);

// smtp_abandon_session - close the connection, if there is one, without QUIT, and free the session
//
// session  the session, or null
void smtp_abandon_session(_s_smtp* session);

// An SMTP session that is abandoned unless it is released.
using smtp_holder = session_holder<_s_smtp>;

// smtp_helo - send HELO with this host's name
int smtp_helo(_s_smtp* session);

// smtp_ehlo - send EHLO with this host's name and log in, whatever the server offers
//
// auth_type       the mechanism, see auth()
// user, password  the account, in clear text; null is a failure
int smtp_ehlo(_s_smtp* session, std::string const& auth_type, char const* user,
              char const* password);

// smtp_ehlo2 - send EHLO, and log in if the switch says so
//
// user, password  the account, in clear text; null is a failure, even with the switch off
// auth_switch     exactly "on" or "off". It must agree with the server: a server that offers AUTH
//                 while the switch is off is a failure, as is one that does not while it is on.
int smtp_ehlo2(_s_smtp* session, std::string const& auth_type, char const* user,
               char const* password, char const* auth_switch);

// smtp_mailfrom - send the envelope sender
//
// address  put between angle brackets unchanged; empty for the null sender
int smtp_mailfrom(_s_smtp* session, std::string const& address);

// smtp_rcptto - send the recipients, one command each
//
// addresses  put between angle brackets unchanged, in order. The first one that is refused is a
//            failure, and the rest is not tried. An empty list is a success.
int smtp_rcptto(_s_smtp* session, std::vector<std::string> const& addresses);

// smtp_start_data - send DATA
//
// Both 354 and 250 are accepted: deliberate, see docs/ODDITIES.md.
int smtp_start_data(_s_smtp* session);

// smtp_write_data - send pieces of the text
//
// lines  sent in order and unchanged: they contain their own CR LF, and an opening dot is already
//        doubled (RFC 5321, 4.5.2)
//
// Reads no reply.
int smtp_write_data(_s_smtp* session, std::vector<std::string> const& lines);

// smtp_end_data - end the text with CR LF, a dot and CR LF, and check that the server accepted it
int smtp_end_data(_s_smtp* session);

// smtp_send_text - smtp_write_data in as few segments as the text fills
int smtp_send_text(_s_smtp* session, std::vector<std::string> const& lines);

// smtp_send_data - smtp_write_data and smtp_end_data in as few segments as the text fills
int smtp_send_data(_s_smtp* session, std::vector<std::string> lines);

// smtp_reset - send RSET, which makes the server forget sender and recipients
int smtp_reset(_s_smtp* session);

// smtp_quit - send QUIT
//
// Only "221" is a success.
int smtp_quit(_s_smtp* session);

// smtp_end_session - end the connection in order and free the session
//
// session  freed, and its descriptor closed, whatever the result
//
// Waits until the server has closed its side. A connection that does not end in order is traced and
// counts as a success all the same: deliberate, see docs/ODDITIES.md. Returns -1 only for null.
int smtp_end_session(_s_smtp* session);

// The steps of the commands.

// read_multiline_reply - read one reply (RFC 5321, 4.2.1)
//
// lines  receives the lines, each with its CR LF; emptied first
//
// A line whose fourth character is a blank is the last one; after a bare "250" more is waited for.
// The number of lines is not limited. The session's reply becomes all the lines together.
//
// Returns -1 when the connection is lost or silent; the lines read by then are kept.
int read_multiline_reply(_s_smtp* session, std::vector<std::string>& lines);

// read_reply_and_check_code - read one reply and look for a code
//
// code  searched anywhere in the last line, not just at its start: "550 ... 250 ..." passes for
//       "250". Deliberate, see docs/ODDITIES.md.
int read_reply_and_check_code(_s_smtp* session, char const* code);

// ehlo - send EHLO, without a login
//
// auth_line  receives what find_auth_reponse finds
int ehlo(_s_smtp* session, std::string& auth_line);

// find_auth_reponse - the line of an EHLO reply that offers authentication
//
// Returns the first line that contains "AUTH", in upper case, or an empty string.
std::string find_auth_reponse(std::vector<std::string>& lines);

enum class auth_mechanism {
    cram_md5,
    login,
    plain
};

// choose_mechanism - the mechanism to log in with
//
// auth_type  when it contains "auto": CRAM-MD5 if auth_line contains that, else LOGIN if it
//            contains that, else PLAIN. Otherwise CRAM-MD5 if auth_type contains "cram-md5", else
//            LOGIN if it contains "login", both in lower case only, else PLAIN.
// auth_line  the server's offer; searched in upper case only
auth_mechanism choose_mechanism(std::string const& auth_type, std::string const& auth_line);

// auth - log in with the mechanism of choose_mechanism; when it fails no other one is tried
int auth(_s_smtp* session, std::string const& auth_type, char const* user, char const* password,
         std::string const& auth_line);

// auth_cram_md5 - log in with CRAM-MD5 (RFC 2195)
int auth_cram_md5(_s_smtp* session, char const* user, char const* password);

// auth_login - log in with LOGIN: user and password in Base64; the server's prompts are ignored
int auth_login(_s_smtp* session, char const* user, char const* password);

// auth_login_data - one response of LOGIN
//
// text  the response; sent in Base64
// code  the code that the reply must contain
int auth_login_data(_s_smtp* session, char const* text, char const* code);

// auth_plain - log in with PLAIN (RFC 4616), the response in the command itself
//
// A "^" in user or password is sent as a NUL, so such credentials do not work with PLAIN:
// deliberate, see docs/ODDITIES.md.
int auth_plain(_s_smtp* session, char const* user, char const* password);

}  // namespace zelieml

#endif
