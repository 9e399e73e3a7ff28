// libsendw.h - the send driver: one message file, one delivery
//
// Reads the settings, logs in to the POP3 server first if they say so, and takes one message
// through one SMTP session (RFC 5321): greeting, envelope, text, QUIT. Settings are read anew for
// every message; nothing is kept between messages.
//
// Any thread: no shared state.

#ifndef ZELIEML_LIBSENDW_LIBSENDW_H
#define ZELIEML_LIBSENDW_LIBSENDW_H

#include <string>
#include <vector>

#include "libmsg/message_file.h"

namespace zelieml
{

// What isend::send returns, besides the results of the POP3 step (pop_result).
enum send_result {
    send_ok                = 0,
    send_other_failure     = 100,   // outside the steps below, or POP3 settings missing
    send_no_server         = 1000,  // SMTP server or port missing in the settings
    send_not_connected     = 1001,  // not connected, or not greeted with 220
    send_not_ended         = 1002,  // never returned, see smtp_converse
    send_helo_refused      = 1003,
    send_not_authenticated = 1004,  // EHLO or login refused, or account settings missing
    send_message_refused   = 1005,  // message not loaded, or envelope or text refused
    send_quit_refused      = 1006   // though the message was accepted
};

class isend
{
public:
    // send - deliver one message file
    //
    // msg_fullpath   the message file; it is not deleted
    // conf_fullpath  the settings file
    // result_text    receives the server's last reply, all its lines with their CR LF: the SMTP
    //                server's once that session has started, else the POP3 server's; unchanged when
    //                there was neither
    //
    // Returns a send_result, or the pop_result of a failed POP3 step. Leaves no connection open.
    // Time: the resolver, 30 s for connecting, 15 s of silence for each reply, and the wait after a
    // POP3 login all have an end; a peer that trickles bytes, or does not read or close its side,
    // can hold the call for ever.
    virtual int send(char const* msg_fullpath, char const* conf_fullpath,
                     std::string& result_text) = 0;

protected:
    ~isend() = default;
};

class isendw final : public isend
{
public:
    int send(char const* msg_fullpath, char const* conf_fullpath,
             std::string& result_text) override;

    // send - the same for an open message file
    //
    // message  no file counts as a message that cannot be loaded
    int send(message_file const& message, char const* conf_fullpath, std::string& result_text);
};

// envelope_recipients - the recipients of a mail: To and Cc, each address once
//
// recipients  they are appended, as they are sent
//
// Returns 0, or -1 when there is no recipient.
int envelope_recipients(void* msg, std::vector<std::string>& recipients);

// The sending system as a whole. Nothing has to be set up or shut down: both functions return 0.
class isend_sys
{
public:
    virtual int init() = 0;
    virtual int end()  = 0;

protected:
    ~isend_sys() = default;
};

class isendw_sys final : public isend_sys
{
public:
    int init() override;
    int end() override;
};

}  // namespace zelieml

#endif
