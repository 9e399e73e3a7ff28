#include "tools/mailserver/socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>

#include "tools/mailserver/quiet.h"

namespace zelieml::mailserver
{

namespace
{

[[noreturn]] void fail(std::string const& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void close_on_exec(int fd)
{
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

template <class Value>
void set_option(int fd, int level, int name, Value const& value)
{
    ::setsockopt(fd, level, name, &value, sizeof value);
}

int milliseconds_of(std::chrono::milliseconds time)
{
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, 1 << 30));
}

}  // namespace

stop_signal::stop_signal()
{
    int ends[2];
    if (::pipe(ends) != 0) {
        fail("no pipe");
    }
    read_  = descriptor(ends[0]);
    write_ = descriptor(ends[1]);
    close_on_exec(read_.get());
    close_on_exec(write_.get());
}

void stop_signal::raise()
{
    [[maybe_unused]] auto const written = ::write(write_.get(), "", 1);
}

bool stop_signal::wait(std::chrono::milliseconds time) const
{
    pollfd entry = {read_.get(), POLLIN, 0};
    return ::poll(&entry, 1, milliseconds_of(time)) > 0;
}

listener::listener(std::uint16_t port) : fd_(::socket(AF_INET, SOCK_STREAM, 0))
{
    std::string const what = "cannot listen on 127.0.0.1:" + std::to_string(port);
    if (!fd_) {
        fail(what);
    }
    close_on_exec(fd_.get());
    keep_quiet(fd_.get());
    // A client that goes between poll and accept must not leave accept waiting for the next.
    ::fcntl(fd_.get(), F_SETFL, O_NONBLOCK);
    set_option(fd_.get(), SOL_SOCKET, SO_REUSEADDR, int{1});

    sockaddr_in address     = {};
    address.sin_family      = AF_INET;
    address.sin_port        = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length        = sizeof address;
    auto*     generic       = reinterpret_cast<sockaddr*>(&address);
    if (::bind(fd_.get(), generic, length) != 0 || ::listen(fd_.get(), SOMAXCONN) != 0 ||
        ::getsockname(fd_.get(), generic, &length) != 0) {
        fail(what);
    }
    port_ = ntohs(address.sin_port);
}

descriptor listener::accept() const
{
    descriptor client(::accept(fd_.get(), nullptr, nullptr));
    if (client) {
        close_on_exec(client.get());
        // Some systems hand the listener's mode on.
        ::fcntl(client.get(), F_SETFL, 0);
        set_option(client.get(), IPPROTO_TCP, TCP_NODELAY, int{1});
    }
    return client;
}

bool wait_for_client(listener const& door, stop_signal const& stop, std::chrono::milliseconds time)
{
    pollfd entries[] = {{door.fd(), POLLIN, 0}, {stop.fd(), POLLIN, 0}};
    return ::poll(entries, 2, milliseconds_of(time)) > 0 && entries[0].revents != 0;
}

stream::stream(descriptor fd, std::chrono::milliseconds patience)
    : fd_(std::move(fd)), buffer_(new char[max_piece_bytes])
{
    // A time of 0 would mean no limit.
    auto const wait = std::max(patience, std::chrono::milliseconds(1));
    timeval    time = {};
    time.tv_sec     = static_cast<time_t>(wait.count() / 1000);
    time.tv_usec    = static_cast<suseconds_t>(wait.count() % 1000 * 1000);
    set_option(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, time);
    set_option(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, time);
}

stream::arrival stream::receive()
{
    if (begin_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    for (;;) {
        auto const got = ::recv(fd_.get(), buffer_.get() + end_, max_piece_bytes - end_, 0);
        if (got > 0) {
            end_ += static_cast<std::size_t>(got);
            return arrival::line;
        }
        if (got == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
            return arrival::closed;
        }
        if (errno != EINTR) {
            return arrival::silent;
        }
    }
}

stream::piece stream::read_line()
{
    std::size_t searched = 0;
    for (;;) {
        std::string_view const here(buffer_.get() + begin_, end_ - begin_);
        std::size_t const      lf = here.find('\n', searched);
        if (lf != std::string_view::npos) {
            begin_ += lf + 1;
            return {arrival::line, here.substr(0, lf + 1)};
        }
        searched = here.size();
        // Only a full buffer hands out a line that is not at its end.
        arrival const what = searched == max_piece_bytes ? arrival::line : receive();
        if (what != arrival::line || searched == max_piece_bytes) {
            std::string_view const rest(buffer_.get() + begin_, end_ - begin_);
            begin_ = end_;
            return {what, rest};
        }
    }
}

stream::piece stream::read_some(std::size_t max)
{
    arrival const what = begin_ < end_ ? arrival::line : receive();
    if (what != arrival::line) {
        return {what, {}};
    }
    std::string_view const here(buffer_.get() + begin_, std::min(max, end_ - begin_));
    begin_ += here.size();
    return {what, here};
}

bool stream::speaks_within(std::chrono::milliseconds time)
{
    if (begin_ < end_) {
        return true;
    }
    pollfd entry = {fd_.get(), POLLIN, 0};
    char   byte  = 0;
    return ::poll(&entry, 1, milliseconds_of(time)) > 0 &&
           ::recv(fd_.get(), &byte, 1, MSG_PEEK) > 0;
}

bool stream::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        auto const sent = ::send(fd_.get(), bytes.data(), bytes.size(), 0);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void stream::end_writing()
{
    ::shutdown(fd_.get(), SHUT_WR);
}

void stream::hang_up()
{
    ::shutdown(fd_.get(), SHUT_RDWR);
}

void stream::break_when_closed()
{
    set_option(fd_.get(), SOL_SOCKET, SO_LINGER, linger{1, 0});
}

}  // namespace zelieml::mailserver
