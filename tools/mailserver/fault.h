// fault.h - misbehaviour on request
//
// A fault says at which step of a conversation the server misbehaves, and how:
//
//     rcpt=refuse:550 5.1.1 no such user    data=close    quit=delay:2000    greeting=trickle:50

#ifndef ZELIEML_TOOLS_MAILSERVER_FAULT_H
#define ZELIEML_TOOLS_MAILSERVER_FAULT_H

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelieml::mailserver
{

enum class protocol {
    smtp,
    pop,
};

// "smtp" or "pop".
char const* name_of(protocol which);

struct fault {
    enum class action {
        refuse,   // answer with the text, or with the protocol's plain refusal; do nothing
        close,    // close instead of answering
        reset,    // break the connection instead of answering
        silent,   // never answer again
        delay,    // do as asked, but answer so many milliseconds later
        trickle,  // do as asked, but answer byte by byte with so many milliseconds between
        cut,      // do as asked, but close after so many bytes of the answer
    };

    std::string step;  // a step of either protocol, or with "smtp." or "pop." before it
    action      what   = action::close;
    int         amount = 0;   // milliseconds or bytes
    std::string text   = {};  // for refuse, without line end; empty: the plain refusal
    int         times  = -1;  // how often; negative: every time
};

// The steps of a protocol that a fault can name, in the order of a conversation.
//
// SMTP's "answer" is the server's verdict on each of the client's lines in an authentication
// exchange, "text" the one on the mail text, "unknown" is any command that is none of the others.
std::vector<std::string_view> steps_of(protocol which);

// Understands "step=action" and "step=action:argument". Throws std::invalid_argument with an
// explanation for a reader.
fault parse_fault(std::string const& text);

// The faults of a server, counted over all its sessions. Any thread.
class fault_table
{
public:
    explicit fault_table(std::vector<fault> faults) : faults_(std::move(faults)) {}

    // What goes wrong now, if anything: the first fault for that step that has times left.
    std::optional<fault> take(protocol which, std::string_view step);

private:
    std::mutex         guard_;
    std::vector<fault> faults_;
};

}  // namespace zelieml::mailserver

#endif
