// socket.cpp - SOCK_CLOEXEC, SOCK_NONBLOCK, MSG_NOSIGNAL

#include "platform/socket.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

#include "platform/posix/uninterrupted.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

int open_stream_socket()
{
    constexpr int type = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
    unique_fd     fd   = above_standard(unique_fd(::socket(AF_INET, type, 0)));
    if (fd) {
        int const on = 1;
        ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return fd.release();
}

sockaddr_in ipv4_peer(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in peer     = {};
    peer.sin_family      = AF_INET;
    peer.sin_port        = port;
    peer.sin_addr.s_addr = address;
    return peer;
}

ssize_t send_bytes(int fd, void const* data, std::size_t size)
{
    return uninterrupted([&] { return ::send(fd, data, size, MSG_NOSIGNAL); });
}

ssize_t send_pieces(int fd, iovec* pieces, int count)
{
    msghdr message     = {};
    message.msg_iov    = pieces;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    return uninterrupted([&] { return ::sendmsg(fd, &message, MSG_NOSIGNAL); });
}

int open_local_pair(unique_fd& one, unique_fd& other)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        return -1;
    }
    unique_fd first(pair[0]);
    unique_fd second(pair[1]);
    one   = above_standard(std::move(first));
    other = above_standard(std::move(second));
    return one && other ? 0 : -1;
}

int poll_pair(pollfd* entries, nfds_t count, int ms)
{
    return ::poll(entries, count, ms);
}

void acknowledge_at_once(int fd)
{
    int const on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

}  // namespace zelieml::platform
