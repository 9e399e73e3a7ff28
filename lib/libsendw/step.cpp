// step.cpp - which step of a conversation is on, and the reason when it fails

#include "libsendw/step.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/error_text.h"
#include "support/attempt_note.h"

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

// Copies the last line of a reply, after a colon and a blank, with "***" for what must not be
// quoted. Nothing when the line is empty; as much as fits.
void quote(step_book const& book, std::string const& reply, char (&out)[reason_capacity])
{
    std::size_t const end  = reply.find_last_not_of(" \t\r\n") + 1;    // 0 for none
    std::size_t       at   = reply.find_last_of("\r\n", end - 1) + 1;  // likewise
    std::size_t       size = 0;
    auto const        put  = [&](char c) { out[size++] = c; };
    if (at < end) {
        put(':');
        put(' ');
    }
    while (at < end && size < sizeof out - sizeof hidden) {
        char const* const text   = reply.c_str() + at;
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

}  // namespace

void note_lost(step_book const& book, int error)
{
    step const&       now     = book.now;
    char const* const command = now.command != nullptr ? now.command : "";
    char const* const of      = *now.whose != '\0' ? " for " : "";
    if (error == EMSGSIZE) {
        note_reason("the command line of %s is longer than 1023 bytes and was not sent%s%s",
                    command, *of != '\0' ? ": " : "", now.whose);
    } else if (error == EAGAIN && now.command == nullptr) {
        note_reason("no greeting from %s within 15 s", book.server);
    } else if (error == EAGAIN) {
        note_reason("no answer to %s%s%s within 15 s", command, of, now.whose);
    } else if (error == 0 && now.command == nullptr) {
        note_reason("%s closed the connection without a greeting", book.server);
    } else if (error == 0) {
        note_reason("%s closed the connection after %s%s%s", book.server, command, of, now.whose);
    } else {
        note_reason("the connection to %s broke%s%s%s%s: %s", book.server,
                    *command != '\0' ? " after " : " before the greeting", command, of, now.whose,
                    platform::error_text(error).c_str());
    }
}

void note_refused(step_book const& book, std::string const& reply)
{
    step const& now = book.now;
    char        line[reason_capacity];
    quote(book, reply, line);
    note_reason("%s refused %s%s%s", book.server, now.refused, now.whose, line);
}

void note_reply(step_book const& book, char const* what, std::string const& reply)
{
    char line[reason_capacity];
    quote(book, reply, line);
    note_reason("%s %s%s", book.server, what, line);
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

void note_not_found(char const* host)
{
    if (host == nullptr) {
        note_reason("no host is given");
    } else {
        note_reason("the host %s was not found", host);
    }
}

void note_not_connected(char const* host, int port, int error)
{
    note_reason("connect to %s:%d: %s", host, port,
                error == ETIMEDOUT ? "no answer within 30 s" : platform::error_text(error).c_str());
}

}  // namespace zelieml
