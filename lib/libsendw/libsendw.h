// libsendw.h - the send driver: one message file, one delivery
//
// Reads the settings, logs in to the POP3 server first where they say so, and takes one message
// through one SMTP session (RFC 5321): greeting, envelope, text, goodbye. Settings are read afresh
// for every message, nothing is kept between two.
//
// Any thread: no shared state.

#ifndef ZELIEML_LIBSENDW_LIBSENDW_H
#define ZELIEML_LIBSENDW_LIBSENDW_H

#include <string>

namespace zelieml
{

// What isend::send returns, besides 0 and the results of the POP3 step.
enum send_result {
    send_ok                = 0,
    send_other_failure     = 100,   // outside the steps below; POP3 settings missing
    send_no_server         = 1000,  // SMTP server or port missing in the settings
    send_not_connected     = 1001,  // not connected, or no good greeting
    send_not_ended         = 1002,  // the connection could not be ended
    send_helo_refused      = 1003,
    send_not_authenticated = 1004,  // EHLO or authentication refused, or the account missing
    send_message_refused   = 1005,  // message not loaded, or envelope or text refused
    send_quit_refused      = 1006   // although the message was accepted
};

class isend
{
public:
    // send - deliver one message file
    //
    // msg_fullpath   the message file; stays where it is
    // conf_fullpath  the settings file
    // result_text    receives the server's last reply, all its lines with their CR LF: of SMTP
    //                once the session has started, before that of the POP3 step, else as it was
    //
    // Returns a send_result, or what pop_before_smtp returned (pop_result). Nothing is left open.
    // Waits as long as the resolver, connecting (30 s), the replies (15 s of silence each), the
    // wait after a POP3 login, and a peer that trickles, does not read or does not close (for ever)
    // take.
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
};

// The sending system as a whole. Nothing has to be set up or taken down: both return 0.
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
