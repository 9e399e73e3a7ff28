// socket.cpp - SO_NOSIGPIPE, FD_CLOEXEC, O_NONBLOCK, sin_len, POLLHUP

#include "platform/socket.h"

#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

#include "platform/posix/uninterrupted.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

namespace
{

constexpr int glance_ms = 250;

bool has_peer(int fd)
{
    sockaddr  peer = {};
    socklen_t size = sizeof peer;
    return ::getpeername(fd, &peer, &size) == 0;
}

}  // namespace

int open_stream_socket()
{
    unique_fd fd = above_standard(unique_fd(::socket(AF_INET, SOCK_STREAM, 0)));
    int const on = 1;
    if (!fd) {
        return -1;
    }
    // The system cannot set these in one step: a program that another thread starts in between
    // inherits the descriptor.
    if (::fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        ::fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0 ||
        ::setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) != 0) {
        int const error = errno;
        fd.reset();
        errno = error;
        return -1;
    }
    ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd.release();
}

sockaddr_in ipv4_peer(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in peer     = {};
    peer.sin_len         = sizeof peer;
    peer.sin_family      = AF_INET;
    peer.sin_port        = port;
    peer.sin_addr.s_addr = address;
    return peer;
}

// open_stream_socket has switched SIGPIPE off.
ssize_t send_bytes(int fd, void const* data, std::size_t size)
{
    return uninterrupted([&] { return ::send(fd, data, size, 0); });
}

ssize_t send_pieces(int fd, iovec* pieces, int count)
{
    msghdr message     = {};
    message.msg_iov    = pieces;
    message.msg_iovlen = count;
    return uninterrupted([&] { return ::sendmsg(fd, &message, 0); });
}

int open_local_pair(unique_fd& one, unique_fd& other)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
        return -1;
    }
    unique_fd first(pair[0]);
    unique_fd second(pair[1]);
    one          = above_standard(std::move(first));
    other        = above_standard(std::move(second));
    int const on = 1;
    for (int const fd : {one.get(), other.get()}) {
        if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0 ||
            ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) != 0) {
            return -1;
        }
    }
    return 0;
}

// The system says POLLHUP already when the other end sends no more, and may say nothing where no
// event is asked for: poll does not look there then.
int poll_pair(pollfd* entries, nfds_t count, int ms)
{
    pollfd&   own = entries[0];
    int const fd  = own.fd;
    for (int left = ms;; left -= left < 0 ? 0 : glance_ms) {
        bool const glances = own.events == 0 && (left < 0 || left > glance_ms);
        own.fd             = own.events == 0 ? -1 : fd;
        int const ready    = ::poll(entries, count, glances ? glance_ms : left);
        own.fd             = fd;
        if (ready < 0) {
            return ready;
        }
        if (!has_peer(fd)) {
            own.revents |= POLLHUP;
            return 1;
        }
        own.revents = static_cast<short>(own.revents & ~POLLHUP);
        if (ready > 0 || !glances) {
            return ready;
        }
    }
}

void acknowledge_at_once(int /*fd*/) {}

}  // namespace zelieml::platform
