// step.h - which step of a conversation is on, and the reason when it fails
//
// A session says at each step what it is doing. When the step fails, that and what went wrong become
// one sentence (support/attempt_note.h). What the client said never gets into it: a line of AUTH
// holds a password.

#ifndef ZELIEML_LIBSENDW_STEP_H
#define ZELIEML_LIBSENDW_STEP_H

#include <string>

#include "support/attempt_note.h"
#include "support/step_names.h"

namespace zelieml
{

// A step. The strings must stay while it is on.
struct step {
    char const* name;        // of step_names.h
    char const* command;     // "RCPT"; null for the greeting
    char const* refused;     // what the server does not take: "the recipient ", or "DATA"
    char const* whose = "";  // the address or the account; "" when there is none
};

// The steps of a session and what must not be quoted.
struct step_book {
    char const* server;  // "the server", or which one
    step        now      = {step_name::greeting, nullptr, "the connection"};
    std::string password = {};  // these two are hidden in what is quoted
    std::string response = {};  // to a challenge, or with a password in it, as it was sent
    // A greeting that was a refusal, which is the reason when the next command fails; or empty.
    std::string greeting = {};
};

// note_lost - the reason when a step's command could not be sent or had no reply
//
// error  as errno, see sock.h
void note_lost(step_book const& book, int error);

// note_refused - the reason when a step was refused
//
// reply  the server's, one line or several; the last one is quoted, and is the cause
void note_refused(step_book const& book, std::string const& reply);

// note_reply - a reason of its own, with the last line of a reply
void note_reply(step_book const& book, eml_cause cause, char const* what, std::string const& reply);

// cause_of_reply - what the last line of a reply says to a command that was not carried out
//
// Returns eml_cause_refused_now, eml_cause_refused, or eml_cause_protocol for a line that is no
// refusal: neither of SMTP (RFC 5321, 4.2.1) nor of POP3 (RFC 1939, 3; RFC 2449, 8; RFC 3206).
eml_cause cause_of_reply(std::string const& reply);

// without_secrets - a reply up to its first NUL, with "***" for what must not be quoted
std::string without_secrets(step_book const& book, std::string const& reply);

// The reasons when there is no connection; name as in step.
void note_not_found(char const* name, char const* host);
void note_not_connected(char const* name, char const* host, int port, int error);

}  // namespace zelieml

#endif
