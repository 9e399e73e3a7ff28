// smtp.cpp - the client's side of an SMTP session (RFC 5321) with authentication (RFC 4954)

#include "libsendw/smtp.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "libbase64/libbase64.h"
#include "libcryptw/libcryptw.h"
#include "liblog/trace.h"
#include "libsendw/digest_text.h"
#include "libsendw/sock.h"
#include "support/attempt_note.h"

namespace zelieml
{

namespace
{

bool contains(std::string const& text, char const* part)
{
    return text.find(part) != std::string::npos;
}

// Writes a command line.
int send_command(_s_smtp* session, std::string const& line)
{
    if (sock_command(session->socket, line) != 0) {
        note_lost(session->book, errno);
        return -1;
    }
    return 0;
}

// Writes a line of the step that is on and checks the reply; traces error when either fails.
int send_and_check(_s_smtp* session, std::string const& line, char const* code, char const* error)
{
    if (send_command(session, line) != 0 || read_reply_and_check_code(session, code) != 0) {
        trace_msg(error);
        return -1;
    }
    return 0;
}

// A step of one command.
int command(_s_smtp* session, step const& now, std::string const& line, char const* code,
            char const* error)
{
    session->book.now = now;
    return send_and_check(session, line, code, error);
}

// This host's name, looked up once.
std::string const& own_name(_s_smtp* session)
{
    if (!session->own_name) {
        session->own_name = get_hostname();
    }
    return *session->own_name;
}

// An address as a reason names it.
char const* name_of(std::string const& address)
{
    return address.empty() ? "<>" : address.c_str();
}

int _smtp_rcptto(_s_smtp* session, std::string const& address)
{
    return command(session, {step_name::recipient, "RCPT", "the recipient ", name_of(address)},
                   "rcpt to: <" + address + ">\r\n", "250", "error:smtp rcpt to");
}

constexpr step text_step = {step_name::text, "the text", "the text"};

constexpr char end_mark[] = "\r\n.\r\n";

bool is_too_long(std::string const& line)
{
    return line.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

int _smtp_write_data(_s_smtp* session, std::string const& line)
{
    if (is_too_long(line)) {
        trace_msg("error:malloc");  // the trace for a line too long, though nothing is allocated
        note_failure(eml_cause_message, step_name::text, "a line of the text is too long");
        return -1;
    }
    int const length = static_cast<int>(line.size());
    if (sock_write(session->socket, line.data(), length) != length) {
        note_lost(session->book, errno);
        return -1;
    }
    return 0;
}

// Sends lines of the text together. Returns how many were sent as a whole.
std::size_t send_lines(_s_smtp* session, std::vector<std::string> const& lines)
{
    session->book.now      = text_step;
    std::size_t const sent = sock_write_all(session->socket, lines);
    if (sent < lines.size()) {
        note_lost(session->book, errno);
    }
    return sent;
}

// Reads one reply, and gives each of its lines to take, which may change it. Returns 0 or -1.
template <class Take>
int read_reply(_s_smtp* session, Take&& take)
{
    session->reply.clear();
    sock_lines  reply(session->socket);
    std::string line;
    for (;;) {
        bool const came    = reply.next(line) != -1;
        bool const is_last = came && line.size() >= 4 && line[3] == ' ';
        if (!came || (is_last && reply.take() != 0)) {
            note_lost(session->book, errno);
            return -1;
        }
        session->reply += line;
        take(line);
        if (is_last) {
            return 0;
        }
    }
}

// Reads one reply; last receives its last line.
int read_last_line(_s_smtp* session, std::string& last)
{
    last.clear();
    if (read_reply(session, [&](std::string& line) { last.swap(line); }) != 0) {
        trace_msg("error:read_multiline_reply");
        return -1;
    }
    // A complete reply has a line, and a line its line feed: this cannot happen.
    if (last.empty()) {
        trace_msg("error:no reply line");
        note_refused(session->book, "");
        return -1;
    }
    return 0;
}

// Sends a command that starts an AUTH exchange; the reply must contain 334.
int start_exchange(_s_smtp* session, char const* line, std::string& reply)
{
    if (send_command(session, line) != 0) {
        trace_msg("error:not 334");
        return -1;
    }
    if (read_last_line(session, reply) != 0) {
        return -1;
    }
    if (!contains(reply, "334")) {
        trace_msg("error:not 334");
        note_refused(session->book, session->reply);
        return -1;
    }
    return 0;
}

// Sends the line before + response in Base64 of an AUTH exchange. The reply must contain the code.
int respond(_s_smtp* session, char const* before, std::string const& response, char const* code,
            char const* error)
{
    base64_buffer const encoded(
        base64_encode(reinterpret_cast<unsigned char const*>(response.data()),
                      static_cast<int>(response.size()), false));
    if (!encoded) {
        trace_msg("error:base64_encode");
        note_no_memory(session->book.now.name);
        return -1;
    }
    session->book.response = reinterpret_cast<char const*>(encoded.get());
    return send_and_check(session, before + session->book.response + "\r\n", code, error);
}

// The step of a login; from now on nothing that is quoted contains the password.
void begin_login(_s_smtp* session, char const* command, char const* user, char const* password)
{
    session->book.now      = {step_name::login, command, "the login of ", user};
    session->book.password = password;
}

// The response of CRAM-MD5 to a reply "334 <challenge in Base64>".
int cram_md5_response(step_book const& book, std::string const& reply, char const* user,
                      char const* password, std::string& response)
{
    std::string const   coded = reply.substr(reply.find(' ') + 1);
    base64_buffer const challenge(base64_decode(
        reinterpret_cast<unsigned char const*>(coded.data()), static_cast<int>(coded.size())));
    if (!challenge) {
        trace_msg("error:base64_decode");
        note_reply(book, eml_cause_protocol, "sent a challenge that is not Base64", reply);
        return -1;
    }

    auto text_size = [](unsigned char const* text) {
        return std::strlen(reinterpret_cast<char const*>(text));
    };
    auto const* const   key = reinterpret_cast<unsigned char const*>(password);
    digest_buffer const digest(
        icryptw().hmac_md5(key, text_size(key), challenge.get(), text_size(challenge.get())));
    if (!digest) {
        trace_msg("error:hmac_md5");
        note_failure(eml_cause_memory, book.now.name,
                     "the response to CRAM-MD5 cannot be computed");
        return -1;
    }
    response = std::string(user) + " " + digest_text(digest);
    return 0;
}

}  // namespace

int smtp_start_session(char const* host, int port, _s_smtp** out, tls_choice const* tls)
{
    if (connect_session(host, port, out, smtp_connecting, tls, tunnel_protocol::smtp) != 0) {
        return -1;
    }
    return smtp_read_greeting(*out);
}

int smtp_read_greeting(_s_smtp* session)
{
    trace_msg("connect done.");
    own_name(session);  // while the server makes its greeting
    if (read_reply_and_check_code(session, "220") != 0) {
        trace_msg("error:smtp start session");
        return -1;
    }
    return 0;
}

void smtp_abandon_session(_s_smtp* session)
{
    abandon_session(session);
}

int smtp_helo(_s_smtp* session)
{
    return command(session, {step_name::helo, "HELO", "HELO"}, "helo " + own_name(session) + "\r\n",
                   "250", "error:smtp helo");
}

int smtp_ehlo(_s_smtp* session, std::string const& auth_type, char const* user,
              char const* password)
{
    std::string auth_line;
    if (user == nullptr || password == nullptr) {
        note_failure(eml_cause_settings, step_name::login, "no account or no password is given");
        return -1;
    }
    if (ehlo(session, auth_line) != 0) {
        return -1;
    }
    return auth(session, auth_type, user, password, auth_line);
}

int smtp_ehlo2(_s_smtp* session, std::string const& auth_type, char const* user,
               char const* password, char const* auth_switch)
{
    std::string auth_line;
    if (user == nullptr || password == nullptr || auth_switch == nullptr) {
        note_failure(eml_cause_settings, step_name::login,
                     "no account, no password or no switch for AUTH is given");
        return -1;
    }
    if (ehlo(session, auth_line) != 0) {
        return -1;
    }
    bool const offered = contains(auth_line, "AUTH");
    // A setting that disagrees with the server is an error, both ways: deliberate, see
    // docs/ODDITIES.md.
    if (std::strcmp(auth_switch, offered ? "on" : "off") != 0) {
        trace_msg("error:smtp incorrect");
        note_failure(eml_cause_settings, step_name::ehlo,
                     "the server offers %s, but the record says \"%s\"",
                     offered ? "AUTH" : "no AUTH", auth_switch);
        return -1;
    }
    return offered ? auth(session, auth_type, user, password, auth_line) : 0;
}

int smtp_mailfrom(_s_smtp* session, std::string const& address)
{
    return command(session, {step_name::sender, "MAIL", "the sender ", name_of(address)},
                   "mail from: <" + address + ">\r\n", "250", "error:smtp mail from");
}

int smtp_rcptto(_s_smtp* session, std::vector<std::string> const& addresses)
{
    for (std::string const& address : addresses) {
        if (_smtp_rcptto(session, address) != 0) {
            return -1;
        }
    }
    return 0;
}

int smtp_start_data(_s_smtp* session)
{
    session->book.now = {step_name::data, "DATA", "DATA"};
    if (send_command(session, "data\r\n") != 0) {
        trace_msg("error:smtp data start");
        return -1;
    }
    std::vector<std::string> lines;
    if (read_multiline_reply(session, lines) != 0) {
        trace_msg("error:smtp start data");
        return -1;
    }
    // Some servers skip 354 and answer with 250.
    if (!contains(lines.back(), "354") && !contains(lines.back(), "250")) {
        trace_msg("error:can not find code 354 250");
        note_refused(session->book, session->reply);
        return -1;
    }
    return 0;
}

int smtp_write_data(_s_smtp* session, std::vector<std::string> const& lines)
{
    session->book.now = text_step;
    for (std::string const& line : lines) {
        if (_smtp_write_data(session, line) != 0) {
            trace_msg("error:_smtp_write_data");
            return -1;
        }
    }
    return 0;
}

int smtp_end_data(_s_smtp* session)
{
    return command(session, text_step, end_mark, "250", "error:smtp end data");
}

int smtp_send_text(_s_smtp* session, std::vector<std::string> const& lines)
{
    if (std::any_of(lines.begin(), lines.end(), is_too_long)) {
        return smtp_write_data(session, lines);  // sends the lines before it, and fails
    }
    if (send_lines(session, lines) < lines.size()) {
        trace_msg("error:_smtp_write_data");
        return -1;
    }
    return 0;
}

int smtp_send_data(_s_smtp* session, std::vector<std::string> lines)
{
    if (std::any_of(lines.begin(), lines.end(), is_too_long)) {
        return smtp_write_data(session, lines);
    }
    lines.emplace_back(end_mark);
    std::size_t const sent = send_lines(session, lines);
    if (sent + 1 < lines.size()) {
        trace_msg("error:_smtp_write_data");
        return -1;
    }
    if (sent < lines.size() || read_reply_and_check_code(session, "250") != 0) {
        trace_msg("error:smtp end data");
        return -1;
    }
    return 0;
}

int smtp_reset(_s_smtp* session)
{
    return command(session, {step_name::reset, "RSET", "RSET"}, "rset\r\n", "250",
                   "error:smtp rset");
}

int smtp_quit(_s_smtp* session)
{
    return command(session, {step_name::quit, "QUIT", "QUIT"}, "quit\r\n", "221",
                   "error:smtp quit");
}

int smtp_end_session(_s_smtp* session)
{
    return end_session(session);
}

int read_multiline_reply(_s_smtp* session, std::vector<std::string>& lines)
{
    lines.clear();
    return read_reply(session, [&](std::string& line) { lines.push_back(std::move(line)); });
}

int read_reply_and_check_code(_s_smtp* session, char const* code)
{
    std::string line;
    if (read_last_line(session, line) != 0) {
        return -1;
    }
    // Anywhere in the line: deliberate, see docs/ODDITIES.md.
    if (!contains(line, code)) {
        trace_msg("error:can not find code (%s)");
        note_refused(session->book, session->reply);
        return -1;
    }
    return 0;
}

int ehlo(_s_smtp* session, std::string& auth_line)
{
    std::vector<std::string> lines;
    session->book.now = {step_name::ehlo, "EHLO", "EHLO"};
    if (send_command(session, "ehlo " + own_name(session) + "\r\n") != 0 ||
        read_multiline_reply(session, lines) != 0) {
        trace_msg("error:read_multiline_reply");
        return -1;
    }
    auth_line = find_auth_reponse(lines);
    if (!contains(lines.back(), "250")) {
        trace_msg("error:not 250");
        note_refused(session->book, session->reply);
        return -1;
    }
    return 0;
}

std::string find_auth_reponse(std::vector<std::string>& lines)
{
    for (std::string const& line : lines) {
        if (contains(line, "AUTH")) {
            return line;
        }
    }
    return {};
}

auth_mechanism choose_mechanism(std::string const& auth_type, std::string const& auth_line)
{
    // The offer is searched in upper case, the setting in lower case: deliberate, see
    // docs/ODDITIES.md.
    bool const         from_server = contains(auth_type, "auto");
    std::string const& choice      = from_server ? auth_line : auth_type;
    if (contains(choice, from_server ? "CRAM-MD5" : "cram-md5")) {
        return auth_mechanism::cram_md5;
    }
    return contains(choice, from_server ? "LOGIN" : "login") ? auth_mechanism::login
                                                             : auth_mechanism::plain;
}

int auth(_s_smtp* session, std::string const& auth_type, char const* user, char const* password,
         std::string const& auth_line)
{
    switch (choose_mechanism(auth_type, auth_line)) {
    case auth_mechanism::cram_md5:
        return auth_cram_md5(session, user, password);
    case auth_mechanism::login:
        return auth_login(session, user, password);
    default:
        return auth_plain(session, user, password);
    }
}

int auth_cram_md5(_s_smtp* session, char const* user, char const* password)
{
    trace_msg("auth_cram_md5 in");
    std::string reply;
    std::string response;
    begin_login(session, "AUTH CRAM-MD5", user, password);
    if (start_exchange(session, "AUTH CRAM-MD5\r\n", reply) != 0 ||
        cram_md5_response(session->book, reply, user, password, response) != 0 ||
        respond(session, "", response, "235", "error:not 235") != 0) {
        return -1;
    }
    trace_msg("auth_cram_md5 out");
    return 0;
}

int auth_login(_s_smtp* session, char const* user, char const* password)
{
    trace_msg("auth_login in");
    std::string prompt;
    begin_login(session, "AUTH LOGIN", user, password);
    if (start_exchange(session, "AUTH LOGIN\r\n", prompt) != 0 ||
        auth_login_data(session, user, "334") != 0 ||
        auth_login_data(session, password, "235") != 0) {
        return -1;
    }
    trace_msg("auth_login out");
    return 0;
}

int auth_login_data(_s_smtp* session, char const* text, char const* code)
{
    return respond(session, "", text, code, "error:auth_login_data %s for %s");
}

int auth_plain(_s_smtp* session, char const* user, char const* password)
{
    trace_msg("auth_plain in");
    std::string response = std::string("^") + user + "^" + password;
    // Every "^" becomes a NUL, also in user and password: deliberate, see docs/ODDITIES.md.
    std::replace(response.begin(), response.end(), '^', '\0');
    begin_login(session, "AUTH PLAIN", user, password);
    if (respond(session, "AUTH PLAIN ", response, "235", "error:not 235") != 0) {
        return -1;
    }
    trace_msg("auth_plain out");
    return 0;
}

}  // namespace zelieml
