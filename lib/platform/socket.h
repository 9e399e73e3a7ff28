// socket.h - TCP sockets where the systems differ
//
// lib/platform/macos/socket.cpp, lib/platform/linux/socket.cpp; for connect_within and
// receive_bytes lib/platform/posix/connect.cpp and receive.cpp, the same on both systems.

#ifndef ZELIEML_PLATFORM_SOCKET_H
#define ZELIEML_PLATFORM_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/uio.h>

#include "support/unique_fd.h"

namespace zelieml::platform
{

// open_stream_socket - an unconnected TCP socket
//
// It does not block until connect_within has connected it. It is never 0, 1 or 2, is closed on
// exec, is not delayed by Nagle's algorithm, and raises no SIGPIPE when written to with send_bytes.
//
// Returns the descriptor, which the caller closes, or -1 with errno.
int open_stream_socket();

// ipv4_peer - a socket address
//
// address, port  both in network byte order
sockaddr_in ipv4_peer(std::uint32_t address, std::uint16_t port);

// connect_within - connect with a time limit
//
// fd      socket of open_stream_socket; blocking on success; after a failure it can only be closed
// peer    the address to connect to
// max_us  time limit in microseconds
//
// Returns 0 when connected, else -1 with errno (ETIMEDOUT when given up). Signals do not end the
// attempt.
int connect_within(int fd, sockaddr_in const& peer, int max_us);

// send_bytes - send without SIGPIPE
//
// Returns the number of bytes sent, or -1 with errno. Waits for a peer that does not read; signals
// do not end the wait.
ssize_t send_bytes(int fd, void const* data, std::size_t size);

// receive_bytes - receive from a blocking socket
//
// Returns the number of bytes received, 0 at the end, or -1 with errno. Waits without limit;
// signals do not end the wait.
ssize_t receive_bytes(int fd, void* data, std::size_t size);

// send_pieces - send_bytes for several pieces, which the system joins into full segments
//
// pieces, count  not empty all together, and of at most INT_MAX bytes; unchanged
ssize_t send_pieces(int fd, iovec* pieces, int count);

// open_local_pair - two stream sockets of this process that are connected to each other
//
// Like those of open_stream_socket: never 0, 1 or 2, closed on exec, no SIGPIPE. They block.
//
// Returns 0, or -1 with errno.
int open_local_pair(unique_fd& one, unique_fd& other);

// poll_pair - poll for a socket of open_local_pair, and others
//
// entries  that socket's first. It has POLLHUP when the other end is closed, and not yet when that
//          only sends no more; soon also where no event is asked for it.
//
// Otherwise as poll.
int poll_pair(pollfd* entries, nfds_t count, int ms);

// acknowledge_at_once - have the system confirm what a TCP socket has received without delay, for
// now; nothing where the system decides alone
void acknowledge_at_once(int fd);

}  // namespace zelieml::platform

#endif
