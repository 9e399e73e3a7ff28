// socket.h - TCP sockets where the systems differ
//
// lib/platform/macos/socket.cpp, lib/platform/linux/socket.cpp, and for connect_within
// lib/platform/posix/connect.cpp, the same on both systems.

#ifndef ZELIEML_PLATFORM_SOCKET_H
#define ZELIEML_PLATFORM_SOCKET_H

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <sys/types.h>

namespace zelieml::platform
{

// open_stream_socket - an unconnected TCP socket
//
// Closed in programs that the process starts, never delayed by Nagle's algorithm, and writing to
// it raises no SIGPIPE (together with send_bytes).
//
// Returns the descriptor, the caller's to close, or -1 with errno.
int open_stream_socket();

// ipv4_peer - a socket address
//
// address, port  both in network byte order
sockaddr_in ipv4_peer(std::uint32_t address, std::uint16_t port);

// connect_within - connect, but not for ever
//
// fd      socket of open_stream_socket; blocking again on success, good for closing only on failure
// peer    where to
// max_us  microseconds after which the attempt is given up
//
// Returns 0 when connected, -1 with errno otherwise (ETIMEDOUT when given up). Signals do not end
// the attempt.
int connect_within(int fd, sockaddr_in const& peer, int max_us);

// send_bytes - send, without SIGPIPE
//
// Returns the number of bytes taken, or -1 with errno.
ssize_t send_bytes(int fd, void const* data, std::size_t size);

// join_small_writes - let the system gather what is written into full segments
//
// on  true: a partial segment waits for more; false: what waits leaves at once
//
// Only speed depends on it: a failure is not reported, and macOS joins nothing.
void join_small_writes(int fd, bool on);

}  // namespace zelieml::platform

#endif
