// server.h - a mail server for one desk: SMTP and POP3 over one mailbox, on 127.0.0.1
//
// Thread per connection; a thread that is done with its client takes the next.

#ifndef ZELIEML_TOOLS_MAILSERVER_SERVER_H
#define ZELIEML_TOOLS_MAILSERVER_SERVER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "tools/mailserver/options.h"
#include "tools/mailserver/session.h"
#include "tools/mailserver/socket.h"

namespace zelieml::mailserver
{

class server
{
public:
    // Serves from here on. Throws std::runtime_error (std::system_error included) when it cannot
    // listen or the Maildir cannot be made.
    explicit server(options o);

    // finish with no grace.
    ~server();
    server(server const&)            = delete;
    server& operator=(server const&) = delete;

    std::uint16_t smtp_port() const { return smtp_port_; }
    std::uint16_t pop_port() const { return pop_port_; }

    // The mailbox.
    mail_store& store() { return *shared_.store; }

    // Takes no more connections, lets those that are open go on for at most that time, then hangs
    // up on the rest. All threads have ended when it returns. For one thread; more calls do
    // nothing.
    void finish(std::chrono::milliseconds grace);

private:
    struct caller {
        descriptor client;
        protocol   which;
    };

    void accept_callers();
    void take(caller c);
    void serve_callers();
    void serve(caller c, unsigned number);

    service             shared_;
    listener            smtp_;
    listener            pop_;
    std::uint16_t const smtp_port_;
    std::uint16_t const pop_port_;
    stop_signal         closing_;  // no more connections

    std::mutex               guard_;  // of all below
    std::condition_variable  waiting_or_ending_;
    std::condition_variable  all_served_;
    std::deque<caller>       waiting_;
    std::set<stream*>        open_;
    std::size_t              idle_threads_ = 0;
    std::size_t              unfinished_   = 0;  // callers that wait or are served
    unsigned                 sessions_     = 0;
    bool                     ending_       = false;
    std::vector<std::thread> threads_;

    std::thread acceptor_;
};

}  // namespace zelieml::mailserver

#endif
