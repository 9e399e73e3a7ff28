// socket.cpp - SO_NOSIGPIPE, FD_CLOEXEC, sin_len

#include "platform/socket.h"

#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "support/unique_fd.h"

namespace zelieml::platform
{

int open_stream_socket()
{
    unique_fd fd(::socket(AF_INET, SOCK_STREAM, 0));
    int const on = 1;
    if (!fd) {
        return -1;
    }
    // A program started by another thread between these two lines inherits the descriptor: the
    // system has no way to make it in one step.
    if (::fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0 ||
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

// open_stream_socket has seen to SIGPIPE.
ssize_t send_bytes(int fd, void const* data, std::size_t size)
{
    return ::send(fd, data, size, 0);
}

// Nothing is joined. Taking TCP_NOPUSH back does not send here what it held back: that waits for
// the next write, or some seconds, and the next write is the command after the server's answer.
void join_small_writes(int /*fd*/, bool /*on*/) {}

}  // namespace zelieml::platform
