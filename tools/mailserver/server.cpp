#include "tools/mailserver/server.h"

#include <new>
#include <poll.h>
#include <system_error>
#include <utility>

#include "tools/mailserver/pop_session.h"
#include "tools/mailserver/smtp_session.h"

namespace zelieml::mailserver
{

namespace
{

constexpr auto out_of_descriptors_pause = std::chrono::milliseconds(10);

constexpr auto busy_patience = std::chrono::seconds(1);

char const* busy_answer(protocol which)
{
    return which == protocol::smtp ? "421 4.3.2 too many connections\r\n"
                                   : "-ERR too many connections\r\n";
}

}  // namespace

server::server(options o)
    : shared_(std::move(o)), smtp_(shared_.settings.smtp_port), pop_(shared_.settings.pop_port),
      smtp_port_(smtp_.port()), pop_port_(pop_.port()),
      acceptor_(start_thread([this] { accept_callers(); }))
{
}

server::~server()
{
    finish(std::chrono::milliseconds(0));
}

void server::finish(std::chrono::milliseconds grace)
{
    if (!acceptor_.joinable()) {
        return;
    }
    closing_.raise();
    acceptor_.join();
    smtp_.close();
    pop_.close();
    {
        std::unique_lock<std::mutex> hold(guard_);
        all_served_.wait_for(hold, grace, [this] { return unfinished_ == 0; });
        ending_ = true;
        waiting_.clear();
        for (stream* const peer : open_) {
            peer->hang_up();
        }
    }
    shared_.stop.raise();
    waiting_or_ending_.notify_all();
    for (std::thread& t : threads_) {
        t.join();
    }
}

void server::accept_callers()
{
    pollfd entries[] = {
        {smtp_.fd(), POLLIN, 0}, {pop_.fd(), POLLIN, 0}, {closing_.fd(), POLLIN, 0}};
    for (;;) {
        // No signal reaches this thread, so nothing interrupts the wait.
        ::poll(entries, 3, -1);
        if (entries[2].revents != 0) {
            return;
        }
        for (protocol const which : {protocol::smtp, protocol::pop}) {
            bool const smtp = which == protocol::smtp;
            if (entries[smtp ? 0 : 1].revents == 0) {
                continue;
            }
            descriptor client = (smtp ? smtp_ : pop_).accept();
            if (client) {
                take({std::move(client), which});
            } else {
                closing_.wait(out_of_descriptors_pause);
            }
        }
    }
}

void server::take(caller c)
{
    std::unique_lock<std::mutex> hold(guard_);
    if (unfinished_ >= shared_.settings.max_sessions) {
        hold.unlock();
        stream(std::move(c.client), busy_patience).write(busy_answer(c.which));
        return;
    }
    ++unfinished_;
    waiting_.push_back(std::move(c));
    if (idle_threads_ < waiting_.size()) {
        try {
            threads_.push_back(start_thread([this] { serve_callers(); }));
        } catch (std::system_error const&) {
            // No more threads to be had: the caller waits until one is free.
        }
    }
    waiting_or_ending_.notify_one();
}

void server::serve_callers()
{
    std::unique_lock<std::mutex> hold(guard_);
    for (;;) {
        ++idle_threads_;
        waiting_or_ending_.wait(hold, [this] { return ending_ || !waiting_.empty(); });
        --idle_threads_;
        if (ending_) {
            return;
        }
        caller c = std::move(waiting_.front());
        waiting_.pop_front();
        unsigned const number = ++sessions_;
        hold.unlock();
        serve(std::move(c), number);
        hold.lock();
        if (--unfinished_ == 0) {
            all_served_.notify_all();
        }
    }
}

void server::serve(caller c, unsigned number)
{
    {
        stream peer(std::move(c.client), shared_.settings.idle_limit);
        {
            std::lock_guard<std::mutex> hold(guard_);
            if (ending_) {
                return;
            }
            open_.insert(&peer);
        }
        try {
            if (c.which == protocol::smtp) {
                smtp_session(shared_, peer, number).run();
            } else {
                pop_session(shared_, peer, number).run();
            }
        } catch (std::bad_alloc const&) {
            // One client asked for too much: it alone is dismissed.
        }
        std::lock_guard<std::mutex> hold(guard_);
        open_.erase(&peer);
    }
    shared_.session_ended();
}

}  // namespace zelieml::mailserver
