// tunnel_thread.cpp - the thread between a connection and its session

#include "plugins/tls/tunnel_thread.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

#include "platform/socket.h"
#include "plugins/tls/connection.h"
#include "plugins/tls/failure.h"
#include "plugins/tls/tls_session.h"

namespace zelieml::tls
{

namespace
{

constexpr std::size_t piece_size       = 16384;  // the text of a record
constexpr int         quit_patience_ms = 2000;

// Bytes on their way in one direction.
class buffer
{
public:
    bool        empty() const { return begin_ == end_; }
    char const* data() const { return bytes_ + begin_; }
    std::size_t size() const { return end_ - begin_; }

    // For an empty buffer: room, and then how much of it was filled.
    char* room() { return bytes_; }
    void  fill(std::size_t size)
    {
        begin_ = 0;
        end_   = size;
    }

    void drop(std::size_t size) { begin_ += size; }

private:
    std::size_t begin_ = 0;
    std::size_t end_   = 0;
    char        bytes_[piece_size];
};

// Notices QUIT as the last line that was said.
class quit_watch
{
public:
    void heard(char const* data, std::size_t size)
    {
        constexpr std::size_t kept = sizeof quit - 1;
        tail_.append(data + (size > kept ? size - kept : 0), size > kept ? kept : size);
        tail_.erase(0, tail_.size() > kept ? tail_.size() - kept : 0);
    }

    bool has_quit() const { return tail_ == quit; }

private:
    static constexpr char quit[] = "quit\r\n";

    std::string tail_;
};

// Carries bytes between a server and a session.
class carrier
{
public:
    carrier(tls_session& server, int tcp, int session)
        : server_(server), tcp_(tcp), session_(session)
    {
    }

    // first  what the session hears first
    void carry(std::string_view first)
    {
        first_ = first;
        while (take_from_session() && take_from_server()) {
            if (!wait()) {
                break;
            }
        }
    }

    // Whether the session may go on to speak: it has neither ended nor said QUIT.
    bool session_speaks() const { return !session_ended_ && !watch_.has_quit(); }

private:
    // Each returns false when all is over; otherwise it has done what can be done without waiting.
    bool take_from_session();
    bool take_from_server();
    bool wait();

    bool say_goodbye();

    tls_session&     server_;
    int              tcp_;
    int              session_;
    std::string_view first_;  // what is left of it
    buffer           up_;
    buffer           down_;
    quit_watch       watch_;
    short            up_waits_for_   = 0;  // events of the connection, for sending
    short            down_waits_for_ = 0;  // and for receiving
    bool             session_ended_  = false;
    bool             goodbye_said_   = false;
    bool             is_patient_     = true;  // with a server that does not close after QUIT
};

bool carrier::take_from_session()
{
    up_waits_for_ = 0;
    for (;;) {
        if (up_.empty() && !session_ended_) {
            ssize_t const got = ::recv(session_, up_.room(), piece_size, 0);
            if (got > 0) {
                up_.fill(static_cast<std::size_t>(got));
                watch_.heard(up_.data(), up_.size());
            } else if (got == 0) {
                session_ended_ = true;
            } else {
                return errno == EAGAIN || errno == EINTR;
            }
        }
        if (up_.empty()) {
            return say_goodbye();
        }
        ssize_t const sent = server_.send(up_.data(), up_.size());
        if (sent == tls_session::over) {
            take_from_server();  // it may have said why it closed
            return false;
        }
        if (sent == tls_session::not_now) {
            up_waits_for_ = server_.waits_for();
            return true;
        }
        up_.drop(static_cast<std::size_t>(sent));
    }
}

// A server that is told of the end while it still speaks may drop the commands that it has not
// carried out, DELE and QUIT among them. After QUIT it ends by itself: it is told only when it is
// silent for long.
bool carrier::say_goodbye()
{
    if (goodbye_said_ || (watch_.has_quit() && is_patient_)) {
        return true;
    }
    if (!server_.say_goodbye()) {
        up_waits_for_ = server_.waits_for();
        return true;
    }
    goodbye_said_ = true;
    ::shutdown(tcp_, SHUT_WR);
    return true;
}

bool carrier::take_from_server()
{
    down_waits_for_ = 0;
    for (;;) {
        if (down_.empty() && !first_.empty()) {
            down_.fill(first_.copy(down_.room(), piece_size));
            first_.remove_prefix(down_.size());
        }
        if (down_.empty()) {
            ssize_t const got = server_.receive(down_.room(), piece_size);
            if (got == tls_session::over) {
                return false;
            }
            if (got == tls_session::not_now) {
                down_waits_for_ = server_.waits_for();
                return true;
            }
            down_.fill(static_cast<std::size_t>(got));
        }
        ssize_t const sent = platform::send_bytes(session_, down_.data(), down_.size());
        if (sent < 0) {
            return errno == EAGAIN;
        }
        down_.drop(static_cast<std::size_t>(sent));
    }
}

// Waits until something can be done. Returns false when the session has gone.
bool carrier::wait()
{
    pollfd server  = {tcp_, static_cast<short>(up_waits_for_ | down_waits_for_), 0};
    pollfd session = {session_, 0, 0};
    if (up_.empty() && !session_ended_) {
        session.events |= POLLIN;
    }
    if (!down_.empty()) {
        session.events |= POLLOUT;
    }
    if (server.events == 0) {
        server.fd = -1;  // its end would wake this thread again and again
    }
    bool const held_back = session_ended_ && !goodbye_said_ && is_patient_;
    // Otherwise a mail waits 40 ms for the confirmation of what comes with TLS 1.3's handshake.
    platform::acknowledge_at_once(tcp_);
    pollfd    both[] = {session, server};
    int const ready  = platform::poll_pair(both, 2, held_back ? quit_patience_ms : -1);
    if (ready == 0) {
        is_patient_ = false;
    }
    return (ready >= 0 || errno == EINTR) &&
           (both[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

void shake_hands(tls_session& tls, connection& server, int limit_ms)
{
    std::chrono::milliseconds const limit(limit_ms);
    auto const                      until = std::chrono::steady_clock::now() + limit;
    while (!tls.shake_hands()) {
        server.wait(tls.waits_for(), until,
                    "TLS did not begin within " +
                        std::to_string(std::chrono::ceil<std::chrono::seconds>(limit).count()) +
                        " s");
    }
}

// What is said before TLS. Returns the greeting, or nothing when there is none.
std::string talk(connection& server, tunnel_work const& work)
{
    switch (work.before) {
    case zelieml_tls_smtp:
        return ask_smtp(server, work.own_name);
    case zelieml_tls_pop:
        return ask_pop(server);
    case zelieml_tls_nothing:
        break;
    }
    return "";
}

bool serve(tunnel_work& work)
{
    connection        server(std::move(work.tcp), work.tunnel.get(), work.reply_ms);
    std::string const greeting = talk(server, work);
    tls_session       tls(server.fd(), work.host, work.ca_file);
    shake_hands(tls, server, work.handshake_ms);

    int on = 1;
    if (::ioctl(work.tunnel.get(), FIONBIO, &on) != 0) {
        return false;
    }
    std::string const first = char(zelieml_tls_works) + greeting;
    carrier           between(tls, server.fd(), work.tunnel.get());
    between.carry(first);
    tls.say_goodbye();  // if it goes without waiting
    return between.session_speaks();
}

// Tells the session, which waits for it: there is room in the tunnel.
void report(int tunnel, eml_cause cause, char const* why)
{
    char const head[] = {zelieml_tls_failed, static_cast<char>(cause)};
    platform::send_bytes(tunnel, head, sizeof head);
    platform::send_bytes(tunnel, why, std::strlen(why));
}

// A dot at the end makes a name complete for the resolver. Certificates have none.
std::string without_dot(std::string name)
{
    if (!name.empty() && name.back() == '.') {
        name.pop_back();
    }
    return name;
}

}  // namespace

tunnel_work::tunnel_work(unique_fd the_tcp, unique_fd the_tunnel, zelieml_tls_ask const& ask)
    : tcp(std::move(the_tcp)), tunnel(std::move(the_tunnel)), host(without_dot(ask.host)),
      ca_file(ask.ca_file != nullptr ? ask.ca_file : ""), own_name(ask.own_name),
      before(ask.before), reply_ms(ask.reply_ms), handshake_ms(ask.handshake_ms)
{
}

bool run(tunnel_work& work)
{
    try {
        return serve(work);
    } catch (failure const& failed) {
        report(work.tunnel.get(), failed.cause, failed.why.c_str());
    } catch (std::exception const&) {
        report(work.tunnel.get(), eml_cause_memory, "there is not enough memory");
    }
    return false;
}

}  // namespace zelieml::tls
