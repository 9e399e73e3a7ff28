// socket.cpp - SO_NOSIGPIPE, FD_CLOEXEC, O_NONBLOCK, sin_len

#include "platform/socket.h"

#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "platform/posix/uninterrupted.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

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

}  // namespace zelieml::platform
