// sock.h - TCP connections to mail servers
//
// IPv4 look-up, connect, reads that give up on a silent peer, line reads, complete writes, an
// orderly end, and the name with which a client greets (RFC 5321, 4.1.1.1). Descriptors are plain
// ints. No TLS, no IPv6.
//
// Any thread; a descriptor belongs to one caller.

#ifndef ZELIEML_LIBSENDW_SOCK_H
#define ZELIEML_LIBSENDW_SOCK_H

#include <cstddef>
#include <string>

namespace zelieml
{

// What sock_look_up_address returns for a host that it does not find.
constexpr unsigned long sock_no_address = 0xFFFFFFFF;

// The longest command line, its CR LF included.
constexpr std::size_t sock_max_command = 1023;

// sock_look_up_address - the IPv4 address of a host
//
// name  dotted IPv4 text, taken as it is, or a host name, looked up by the system's resolver.
//       The text "255.255.255.255" is looked up as a name.
//
// Returns the address in network byte order, in the low 32 bits, or sock_no_address.
unsigned long sock_look_up_address(char const* name);

// sock_connect - connect to a server
//
// addr  IPv4 address in the low 32 bits, network byte order
// port  network byte order
//
// Returns a connected, blocking descriptor, the caller's to end with sock_end_connection or to
// close, or -1 when there is no socket, the peer refuses, or 30 s have passed.
int sock_connect(unsigned long addr, unsigned short port);

// sock_connect_host - look a server up and connect
//
// host  as for sock_look_up_address
// port  port number; the low 16 bits count
// fd    out: the connected descriptor, the caller's; -1 when the connection failed; as it was when
//       the host was not found
// step  trace text given between look-up and connect
//
// Returns 0 or -1.
int sock_connect_host(char const* host, int port, int& fd, char const* step);

// sock_non_blocking - a descriptor that does not block while the object lives
//
// What is read line by line is mostly switching to and fro: one switch is enough for many lines.
class sock_non_blocking
{
public:
    // fd  connected descriptor, blocking; stays the caller's, and open until the object is gone
    explicit sock_non_blocking(int fd);
    ~sock_non_blocking();
    sock_non_blocking(sock_non_blocking const&)            = delete;
    sock_non_blocking& operator=(sock_non_blocking const&) = delete;

    // Whether it could be switched.
    explicit operator bool() const { return switched_; }
    int      fd() const { return fd_; }

private:
    int  fd_;
    bool switched_ = false;
};

// _recv - one receive that gives up on a silent peer
//
// fd     connected descriptor; non-blocking during the call, blocking afterwards
// buf    receives up to len bytes
// flags  for recv, MSG_PEEK for one
//
// Tries 3001 times, and waits after each try for up to 5 ms until something has come: a silent
// peer is given up after about 15 s.
//
// Returns what the last recv returned: the number of bytes, 0 when the peer closed, or -1.
int _recv(int fd, char* buf, int len, int flags);

// sock_read - read a number of bytes
//
// buf  receives them and a NUL: len + 1 bytes
//
// Returns the number of bytes, fewer than len only when the peer closed, or -1 when a receive
// failed or nothing came for about 15 s; the 15 s start afresh with every piece.
int sock_read(int fd, char* buf, int len);

// sock_readline - read one line, its terminator included
//
// fd    connected descriptor; stays the caller's
// line  out: all bytes up to and including the line feed. On failure it holds what had arrived
//       before. A NUL byte hides what stands behind it in the same piece of up to 1023 bytes.
//
// Returns the length in bytes, or -1 when the peer closed, the read failed, or nothing came for
// about 15 s. The 15 s start afresh with every piece, so there is no deadline for the whole line;
// nor is there a limit to its length short of the largest int.
//
// Takes nothing past the line feed: a second reply in the same segment waits in the socket for the
// next call.
int sock_readline(int fd, std::string& line);

// sock_readline - the same for a descriptor that was switched beforehand
int sock_readline(sock_non_blocking const& connection, std::string& line);

// sock_write - write all of some bytes
//
// Returns len, or -1 when the connection is lost; some bytes may have left by then. Waits as long
// as a peer that does not read lets it. Raises no SIGPIPE.
int sock_write(int fd, char const* data, int len);

// sock_command - write one command line
//
// line  the command, its CR LF included
//
// Returns 0. Returns -1 when the connection is lost, or when the line is longer than
// sock_max_command: nothing is sent then.
int sock_command(int fd, std::string const& line);

// sock_shutdown_connection - end a connection in order
//
// fd  connected descriptor; closed on success. It stays open, and the caller's, when shutting down
//     or draining failed.
//
// Says that nothing more will be written, reads and drops what the peer still sends until he
// closes, and closes. Waits for that as long as the peer takes.
//
// Returns 0, or -1 when one of the steps failed.
int sock_shutdown_connection(int fd);

// sock_end_connection - the end of a session: sock_shutdown_connection, and no descriptor is left
//
// fd  connected descriptor; closed in any case
//
// Returns what sock_shutdown_connection returns.
int sock_end_connection(int fd);

// get_hostname - the name under which this host greets
//
// Returns the address literal of the host name's IPv4 address, as "[192.0.2.10]"; the plain host
// name when it does not resolve; "unknown" when the host has no name.
std::string get_hostname();

}  // namespace zelieml

#endif
