// pop.cpp - a POP3 client (RFC 1939)

#include "libsendw/pop.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "liblog/trace.h"
#include "libsendw/digest_text.h"
#include "libsendw/sock.h"
#include "platform/sleep.h"
#include "support/ascii.h"
#include "support/attempt_note.h"
#include "support/number.h"

namespace zelieml
{

namespace
{

constexpr int         max_line_counter = 2000;
constexpr std::size_t max_line_length  = 4095;
constexpr std::size_t max_stat_length  = 1023;

int send_command(_s_pop* session, std::string const& line)
{
    if (sock_command(session->socket, line) != 0) {
        note_lost(session->book, errno);
        trace_msg("error:sock_write");
        return -1;
    }
    return 0;
}

int read_reply(_s_pop* session)
{
    if (sock_readline(session->socket, session->reply) == -1) {
        note_lost(session->book, errno);
        trace_msg("error:sock_readline");
        return -1;
    }
    return 0;
}

// Sends the command of the step that is on; its reply, one line, must not be an error.
int send_and_check(_s_pop* session, std::string const& line)
{
    if (send_command(session, line) != 0 || read_reply(session) != 0) {
        return -1;
    }
    if (pop_error(session->reply)) {
        note_refused(session->book, session->reply);
        return -1;
    }
    session->book.greeting.clear();  // the server serves
    return 0;
}

// A step of one command.
int command(_s_pop* session, step const& now, std::string const& line)
{
    session->book.now = now;
    return send_and_check(session, line);
}

void note_no_account()
{
    note_failure(eml_cause_settings, step_name::pop_login, "no account or no password is given");
}

// A step of the login.
int log_in(_s_pop* session, step const& now, char const* word, char const* argument)
{
    if (argument == nullptr) {
        note_no_account();
        return -1;
    }
    session->book.now = now;
    return login_data(session, word, argument);
}

// PASS
int send_password(_s_pop* session, step const& now, char const* password)
{
    session->book.password = password != nullptr ? password : "";
    return log_in(session, now, "pass", password);
}

// Takes the lines that were read. A last one that cannot be taken does not count.
int take(_s_pop* session, sock_lines& reply, std::vector<std::string>& lines)
{
    if (reply.take() != 0) {
        note_lost(session->book, errno);
        lines.pop_back();
        return -1;
    }
    return 0;
}

// The time stamp of an APOP greeting, with its angle brackets.
int find_challenge(std::string const& greeting, std::string& challenge)
{
    std::size_t const spos = greeting.find('<');
    if (spos == std::string::npos) {
        trace_msg("error:challenge spos %s");
        return -1;
    }
    std::size_t const epos = greeting.find('>');
    if (epos == std::string::npos) {
        trace_msg("error:challenge epos %s");
        return -1;
    }
    if (spos >= epos) {
        trace_msg("error:challenge spos, epos %s");
        return -1;
    }
    challenge = greeting.substr(spos, epos - spos + 1);
    return 0;
}

// Reads a token of a STAT reply as a number; a missing token leaves the number unchanged.
void store_number(char const* token, int* number)
{
    if (token == nullptr) {
        trace_msg("error:token");
        return;
    }
    *number = text_to_int(token);
}

}  // namespace

int pop_start_session(char const* host, int port, _s_pop** out, tls_choice const* tls)
{
    return connect_session(host, port, out, pop_connecting, tls, tunnel_protocol::pop) == 0
               ? pop_read_greeting(*out)
               : -1;
}

int pop_read_greeting(_s_pop* session)
{
    if (read_reply(session) != 0) {
        return -1;
    }
    // No failure yet: the login may succeed all the same.
    if (cause_of_reply(session->reply) != eml_cause_protocol) {
        session->book.greeting = session->reply;
    }
    return 0;
}

int pop_check_greeting(_s_pop const* session)
{
    for (std::string_view const status : {"+OK", "-ERR"}) {
        if (equal_ignoring_case(std::string_view(session->reply).substr(0, status.size()),
                                status)) {
            return 0;
        }
    }
    note_reply(session->book, eml_cause_protocol, "does not greet as one", session->reply);
    return -1;
}

void pop_abandon_session(_s_pop* session)
{
    abandon_session(session);
}

int pop_user(_s_pop* session, char const* user)
{
    return log_in(session, {step_name::pop_login, "USER", "the user ", user}, "user", user);
}

int pop_passwd(_s_pop* session, char const* password)
{
    return send_password(session, {step_name::pop_login, "PASS", "the password"}, password);
}

int login_data(_s_pop* session, char const* word, char const* argument)
{
    if (argument == nullptr) {
        return -1;
    }
    return send_and_check(session, std::string(word) + " " + argument + "\r\n");
}

int pop_apop(_s_pop* session, char const* user, char const* password)
{
    trace_msg("pop_apop in");
    if (user == nullptr || password == nullptr) {
        note_no_account();
        return -1;
    }
    session->book.password = password;
    std::string text;
    session->book.now = {step_name::pop_login, "APOP", "APOP for ", user};
    if (find_challenge(session->reply, text) != 0) {
        // Without a time stamp the settings are wrong, unless the greeting is a refusal.
        eml_cause const cause = cause_of_reply(session->reply);
        note_reply(session->book, cause != eml_cause_protocol ? cause : eml_cause_settings,
                   "offers no APOP", session->reply);
        return -1;
    }
    text += password;

    digest_buffer const digest(
        icryptw().md5(reinterpret_cast<unsigned char const*>(text.data()), text.size()));
    if (!digest) {
        trace_msg("error:crypt::md5");
        note_failure(eml_cause_memory, step_name::pop_login,
                     "the response to APOP cannot be computed");
        return -1;
    }
    session->book.response = digest_text(digest);
    if (send_and_check(session,
                       std::string("apop ") + user + " " + session->book.response + "\r\n") != 0) {
        return -1;
    }
    trace_msg("pop_apop out");
    return 0;
}

int pop_log_in(_s_pop* session, char const* user, char const* password, bool apop)
{
    if (apop) {
        return pop_apop(session, user, password) == 0 ? pop_ok : pop_apop_refused;
    }
    if (pop_user(session, user) != 0) {
        return pop_user_refused;
    }
    int const passed =
        send_password(session, {step_name::pop_login, "PASS", "the password of ", user}, password);
    return passed == 0 ? pop_ok : pop_pass_refused;
}

int pop_stat(_s_pop* session, int* count, int* size)
{
    if (command(session, {step_name::stat, "STAT", "STAT"}, "stat\r\n") != 0) {
        return -1;
    }
    if (session->reply.size() > max_stat_length) {
        trace_msg("error:BufLen");
        note_failure(eml_cause_protocol, step_name::stat, "the answer to STAT is too long");
        return -1;
    }

    std::string text  = session->reply;
    char*       state = nullptr;
    ::strtok_r(text.data(), " ", &state);  // the status word
    store_number(::strtok_r(nullptr, " ", &state), count);
    store_number(::strtok_r(nullptr, " ", &state), size);
    return 0;
}

int pop_retr(_s_pop* session, int number)
{
    return command(session, {step_name::retr, "RETR", "RETR"},
                   "retr " + std::to_string(number) + "\r\n");
}

int pop_retr_alllines(_s_pop* session, int number, std::vector<std::string>& lines, bool& over)
{
    over = false;
    if (pop_retr(session, number) != 0) {
        trace_msg("error:pop_retr");
        return -1;
    }
    trace_msg("pop.response %s");
    lines.push_back(remove_nr(session->reply));
    read_multiline_reply(session, lines, over);  // a message cut short counts as fetched
    return 0;
}

int pop_dele(_s_pop* session, int number)
{
    return command(session, {step_name::dele, "DELE", "DELE"},
                   "dele " + std::to_string(number) + "\r\n");
}

int pop_quit(_s_pop* session)
{
    session->book.now = {step_name::pop_quit, "POP3 QUIT", "QUIT"};
    return send_command(session, "quit\r\n") == 0 ? read_reply(session) : -1;
}

int pop_end_session(_s_pop* session)
{
    return end_session(session);
}

int pop_free(_s_pop* session)
{
    if (session == nullptr) {
        return -1;
    }
    delete session;
    return 0;
}

bool pop_error(std::string const& line)
{
    // Anywhere, also in a positive reply: deliberate, see docs/ODDITIES.md.
    for (char const* sign : {"-ERR", "-err", "error"}) {
        if (line.find(sign) != std::string::npos) {
            trace_msg("error:-ERR");
            return true;
        }
    }
    return false;
}

int read_multiline_reply(_s_pop* session, std::vector<std::string>& lines, bool& over)
{
    sock_lines reply(session->socket);
    for (int counter = 0; counter <= max_line_counter; ++counter) {
        if (reply.next(session->reply) == -1) {
            note_lost(session->book, errno);
            return -1;
        }
        lines.push_back(remove_nr(session->reply));
        if (session->reply == ".\r\n") {
            return take(session, reply, lines);  // the "." stays among the lines
        }
    }
    if (take(session, reply, lines) != 0) {
        return -1;
    }
    trace_msg("warning: POP MAX LINE COUNT");
    over = true;
    return 0;
}

std::string remove_nr(std::string const& line)
{
    if (line.size() > max_line_length) {
        trace_msg("error:buffer over flow");
        return {};
    }
    char text[max_line_length + 1];
    std::memcpy(text, line.c_str(), line.size() + 1);
    remove_end_char(text, '\n');
    remove_end_char(text, '\r');
    return text;
}

void remove_end_char(char* text, char end)
{
    std::size_t const length = std::strlen(text);
    if (length > 1 && text[length - 1] == end) {
        text[length - 1] = '\0';
    }
}

int pop_before_smtp(char const* server, int port, char const* user, char const* password, bool apop,
                    int wait_ms, std::string& reply, tls_choice const* tls)
{
    trace_msg("pop_before_smtp in");
    pop_holder session;
    if (pop_start_session(server, port, session.out(), tls) != 0) {
        trace_msg("pop_start_session");
        if (session.get() != nullptr) {
            reply = session->reply;
        }
        return pop_start_failed;
    }

    int code = pop_log_in(session.get(), user, password, apop);
    if (code == pop_ok && pop_quit(session.get()) != 0) {
        trace_msg("error: pop_quit");  // the blank is deliberate, see docs/ODDITIES.md
        code = pop_quit_failed;
    }

    reply = session->reply;
    // Only a null session fails to end, so 2003 is never returned: deliberate, see
    // docs/ODDITIES.md.
    if (pop_end_session(session.release()) != 0) {
        trace_msg("error:smtp_end_session");  // the text of SMTP, deliberately
        return pop_end_failed;
    }

    if (code == pop_ok) {
        trace_msg("sleep start %d");
        platform::sleep_microseconds(std::int64_t{wait_ms} * 1000);
        trace_msg("sleep end");
    }
    trace_msg("pop_before_smtp out %d");
    return code;
}

}  // namespace zelieml
