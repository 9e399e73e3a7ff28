// options.h - how a loopback mail server is set up

#ifndef ZELIEML_TOOLS_MAILSERVER_OPTIONS_H
#define ZELIEML_TOOLS_MAILSERVER_OPTIONS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/mailserver/credentials.h"
#include "tools/mailserver/fault.h"

namespace zelieml::mailserver
{

// A mail as SMTP brought it.
struct mail {
    std::string              sender;      // without angle brackets
    std::vector<std::string> recipients;  // likewise, in order, repeated ones included
    std::string              user;        // who had logged in; empty: nobody
    std::string              text;        // dots unstuffed, the last CR LF included
};

// One line of the transcript of a session.
struct transcript_line {
    unsigned    session;  // counted from 1 over both protocols
    protocol    which;
    std::string text;  // "S: ..." or "C: ...", made visible (text.h)
};

struct options {
    // Ports of 127.0.0.1; 0 takes a free one.
    std::uint16_t smtp_port = 0;
    std::uint16_t pop_port  = 0;

    // Who may log in. All of them share the one mailbox, and anyone may send to it.
    accounts users = {{"user", "password"}};

    // What EHLO offers, in this order: CRAM-MD5, LOGIN, PLAIN. Empty: no authentication.
    std::vector<std::string> smtp_mechanisms = {"CRAM-MD5", "LOGIN", "PLAIN"};
    // Mail is taken only from clients that have logged in.
    bool smtp_login_required = false;

    // Which logins POP3 takes. Without APOP the banner has no time stamp.
    bool pop_user = true;
    bool pop_apop = true;

    // RCPT for one of these addresses, in upper or lower case, is refused.
    std::vector<std::string> rejected_recipients;

    std::vector<fault> faults;

    // Where mails are kept; empty: in memory.
    std::string maildir;

    // The challenge of CRAM-MD5 and the time stamp of the POP3 banner; empty: a fresh one each
    // time. For the published examples.
    std::string time_stamp;

    // A longer mail is refused.
    std::size_t max_mail_bytes = std::size_t{64} << 20U;
    // A client that says nothing for so long is dismissed.
    std::chrono::milliseconds idle_limit = std::chrono::minutes(5);
    // Clients beyond so many at the same time are turned away.
    std::size_t max_sessions = 256;

    // The transcript shows so many lines of each mail; 0 shows all.
    std::size_t shown_mail_lines = 0;

    // Called on the server's threads, one call at a time; must neither throw nor call the server.
    std::function<void(transcript_line const&)> on_line;
    // Called when the mail is in the mailbox, before the client hears of it.
    std::function<void(mail const&)> on_mail;
    // Called when a session is over and its connection closed.
    std::function<void()> on_session_end;
};

}  // namespace zelieml::mailserver

#endif
