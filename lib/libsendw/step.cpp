// step.cpp - which step of a conversation is on, and the reason when it fails

#include "libsendw/step.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/error_text.h"
#include "support/ascii.h"

namespace zelieml
{

namespace
{

// The bytes of a secret that stands at text, or 0.
std::size_t size_of(std::string const& secret, char const* text)
{
    return std::strncmp(text, secret.c_str(), secret.size()) == 0 ? secret.size() : 0;
}

// The bytes at text that must not be quoted.
std::size_t size_of_secret(step_book const& book, char const* text)
{
    return std::max(size_of(book.response, text), size_of(book.password, text));
}

constexpr char hidden[] = "***";

// The last line of a reply, without what is blank at its end. A lone CR ends no line, as it ends
// none where replies are read.
std::string_view last_line(std::string const& reply)
{
    std::size_t const end = reply.find_last_not_of(" \t\r\n") + 1;  // 0 for none
    std::size_t const at  = reply.rfind('\n', end - 1) + 1;         // likewise
    return at < end ? std::string_view(reply).substr(at, end - at) : std::string_view();
}

bool begins_with(std::string_view text, std::string_view start)
{
    return equal_ignoring_case(text.substr(0, start.size()), start);
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Whether a command line that is too long to be sent is so because of the settings.
bool is_login(step const& now)
{
    return now.name == step_name::login || now.name == step_name::pop_login;
}

// Copies the last line of a reply, after a colon and a blank, with "***" for what must not be
// quoted. Nothing when the line is empty; as much as fits.
void quote(step_book const& book, std::string const& reply, char (&out)[reason_capacity])
{
    std::string_view const line = last_line(reply);
    std::size_t            at   = 0;
    std::size_t            size = 0;
    auto const             put  = [&](char c) { out[size++] = c; };
    if (!line.empty()) {
        put(':');
        put(' ');
    }
    while (at < line.size() && size < sizeof out - sizeof hidden) {
        char const* const text   = line.data() + at;
        std::size_t const secret = size_of_secret(book, text);
        if (secret > 0) {
            std::memcpy(out + size, hidden, sizeof hidden - 1);
            size += sizeof hidden - 1;
            at += secret;
        } else {
            put(*text);
            ++at;
        }
    }
    out[size] = '\0';
}

void note_greeting(step_book const& book)
{
    if (!book.greeting.empty()) {
        note_reply(book, cause_of_reply(book.greeting), "refused the connection", book.greeting);
    }
}

}  // namespace

void note_lost(step_book const& book, int error)
{
    step const&       now     = book.now;
    char const* const command = now.command != nullptr ? now.command : "";
    char const* const of      = *now.whose != '\0' ? " for " : "";
    if (error == EMSGSIZE) {
        note_failure(is_login(now) ? eml_cause_settings : eml_cause_message, now.name,
                     "the command line of %s is longer than 1023 bytes and was not sent%s%s",
                     command, *of != '\0' ? ": " : "", now.whose);
        return;
    }
    note_greeting(book);
    if (error == EAGAIN && now.command == nullptr) {
        note_failure(eml_cause_lost, now.name, "no greeting from %s within 15 s", book.server);
    } else if (error == EAGAIN) {
        note_failure(eml_cause_lost, now.name, "no answer to %s%s%s within 15 s", command, of,
                     now.whose);
    } else if (error == 0 && now.command == nullptr) {
        note_failure(eml_cause_lost, now.name, "%s closed the connection without a greeting",
                     book.server);
    } else if (error == 0) {
        note_failure(eml_cause_lost, now.name, "%s closed the connection after %s%s%s", book.server,
                     command, of, now.whose);
    } else {
        note_failure(eml_cause_lost, now.name, "the connection to %s broke%s%s%s%s: %s",
                     book.server, *command != '\0' ? " after " : " before the greeting", command,
                     of, now.whose, platform::error_text(error).c_str());
    }
}

void note_refused(step_book const& book, std::string const& reply)
{
    note_greeting(book);
    step const& now = book.now;
    char        line[reason_capacity];
    quote(book, reply, line);
    note_failure(cause_of_reply(reply), now.name, "%s refused %s%s%s", book.server, now.refused,
                 now.whose, line);
}

void note_reply(step_book const& book, eml_cause cause, char const* what, std::string const& reply)
{
    char line[reason_capacity];
    quote(book, reply, line);
    note_failure(cause, book.now.name, "%s %s%s", book.server, what, line);
}

eml_cause cause_of_reply(std::string const& reply)
{
    std::string_view const     line  = last_line(reply);
    constexpr std::string_view error = "-ERR";
    if (begins_with(line, error)) {
        std::size_t const      blanks = line.find_first_not_of(" \t", error.size());
        std::string_view const text   = line.substr(std::min(blanks, line.size()));
        for (std::string_view const code : {"[IN-USE", "[LOGIN-DELAY", "[SYS/TEMP"}) {
            char const end = text.size() > code.size() ? text[code.size()] : '\0';
            if (begins_with(text, code) && (end == ']' || end == '/')) {
                return eml_cause_refused_now;
            }
        }
        return eml_cause_refused;
    }
    bool const is_reply = line.size() >= 3 && is_digit(line[1]) && is_digit(line[2]) &&
                          (line.size() == 3 || line[3] == ' ' || line[3] == '-' || line[3] == '\t');
    if (is_reply && line[0] == '4') {
        return eml_cause_refused_now;
    }
    return is_reply && line[0] == '5' ? eml_cause_refused : eml_cause_protocol;
}

std::string without_secrets(step_book const& book, std::string const& reply)
{
    std::string shown;
    for (char const* text = reply.c_str(); *text != '\0';) {
        std::size_t const secret = size_of_secret(book, text);
        shown.append(secret > 0 ? hidden : text, secret > 0 ? sizeof hidden - 1 : 1);
        text += secret > 0 ? secret : 1;
    }
    return shown;
}

void note_not_found(char const* name, char const* host)
{
    if (host == nullptr) {
        note_failure(eml_cause_settings, name, "no host is given");
    } else {
        note_failure(eml_cause_unreachable, name, "the host %s was not found", host);
    }
}

void note_not_connected(char const* name, char const* host, int port, int error)
{
    eml_cause const cause =
        error == ENOMEM || error == ENOBUFS ? eml_cause_memory : eml_cause_unreachable;
    note_failure(cause, name, "connect to %s:%d: %s", host, port,
                 error == ETIMEDOUT ? "no answer within 30 s"
                                    : platform::error_text(error).c_str());
}

}  // namespace zelieml
