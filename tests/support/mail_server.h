// mail_server.h - a whole mail server inside a test
//
// The engine of the loopback mail server (tools/mailserver) on free ports of 127.0.0.1: what a
// client sends it by SMTP, or a test puts in, can be fetched by POP3. Where a test is about the
// words of a conversation, scripted_server.h is the better server.
//
//     mailserver::options options;
//     options.users               = {{"tim", "tanstaaftanstaaf"}};
//     options.smtp_login_required = true;
//     mail_server server(options);
//     ... a client sends to server.smtp_port() ...
//     ASSERT_EQ(server.mails().size(), 1u);
//     EXPECT_EQ(server.mails()[0].recipients, ...);

#ifndef ZELIEML_TESTS_SUPPORT_MAIL_SERVER_H
#define ZELIEML_TESTS_SUPPORT_MAIL_SERVER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "tools/mailserver/server.h"

namespace zelieml::test
{

// Methods may be called on any thread.
class mail_server
{
public:
    // Serves until the object goes. Ports and faults are as in the options; on_line, on_mail and
    // on_session_end are this object's own. Throws std::runtime_error when it cannot serve.
    explicit mail_server(mailserver::options const& options = {});

    std::uint16_t smtp_port() const { return server_.smtp_port(); }
    std::uint16_t pop_port() const { return server_.pop_port(); }

    // The mails that came by SMTP, in order: envelope and bytes.
    std::vector<mailserver::mail> mails() const;

    // True when so many mails have come, or come within the limit.
    bool wait_for_mails(std::size_t               count,
                        std::chrono::milliseconds limit = std::chrono::seconds(20));

    // Puts a mail into the mailbox; lines are to end with CR LF.
    void put(std::string const& text);

    // What is in the mailbox, the oldest first.
    std::vector<std::string> mailbox();

    // The transcripts of the sessions of both protocols, in the order of their beginning: lines
    // "S: ..." and "C: ...", the first one "C: (connects)". Waits until the sessions that have
    // begun are over, but no longer than 20 s.
    std::vector<std::string> sessions() const;

private:
    mailserver::options with_hooks(mailserver::options options);

    mutable std::mutex              guard_;
    mutable std::condition_variable changed_;
    std::vector<mailserver::mail>   mails_;
    std::vector<std::string>        sessions_;
    std::size_t                     ended_ = 0;

    mailserver::server server_;
};

}  // namespace zelieml::test

#endif
