// sock.h - TCP connections to mail servers
//
// IPv4 look-up, connecting, reads that give up on a silent peer, line reads, complete writes, an
// orderly end, and the host name for HELO (RFC 5321, 4.1.1.1). Sockets are plain descriptors. No
// TLS, no IPv6.
//
// A -1 comes with errno: EAGAIN for a silent peer, 0 for one that closed, otherwise what the system
// says. See also libsendw/step.h.
//
// Any thread, but only one at a time for one socket.

#ifndef ZELIEML_LIBSENDW_SOCK_H
#define ZELIEML_LIBSENDW_SOCK_H

#include <cstddef>
#include <string>
#include <vector>

namespace zelieml
{

// What sock_look_up_address returns when the host is not found.
constexpr unsigned long sock_no_address = 0xFFFFFFFF;

// The longest command line, its CR LF included.
constexpr std::size_t sock_max_command = 1023;

// Lines are read in pieces of up to so many bytes.
constexpr int sock_piece_size = 1023;

// sock_look_up_address - the IPv4 address of a host
//
// name  dotted IPv4 address, or a host name, which the system's resolver looks up.
//       "255.255.255.255" is looked up as a name: deliberate, see docs/ODDITIES.md.
//
// Returns the address in network byte order, in the low 32 bits, or sock_no_address.
unsigned long sock_look_up_address(char const* name);

// sock_connect - connect to a server
//
// addr  IPv4 address in the low 32 bits, network byte order
// port  network byte order
//
// Returns a connected, blocking socket, which the caller ends with sock_end_connection or closes.
// Returns -1 when there is no socket to be had, the peer refuses, or 30 s have passed.
int sock_connect(unsigned long addr, unsigned short port);

// What connecting to a server of one kind is called.
struct connect_steps {
    char const* look_up;   // of step_names.h
    char const* connect;   // likewise
    char const* trace;     // given between the two
    char const* tls = "";  // of step_names.h, for tunnel.h
};

// sock_connect_host - look a server up and connect
//
// host  as for sock_look_up_address
// port  port number; only the low 16 bits are used
// fd    receives the connected socket, which the caller closes; -1 when connecting failed;
//       unchanged when the host was not found
//
// Returns 0. Returns -1 with the reason noted.
int sock_connect_host(char const* host, int port, int& fd, connect_steps const& steps);

// sock_find_host, sock_connect_found - the two halves of sock_connect_host
//
// address  of the host, as sock_look_up_address returns it; host is for the reason
int sock_find_host(char const* host, unsigned long& address, connect_steps const& steps);
int sock_connect_found(char const* host, unsigned long address, int port, int& fd,
                       connect_steps const& steps);

// sock_non_blocking - makes a socket non-blocking for the lifetime of the object
class sock_non_blocking
{
public:
    // fd  connected, blocking socket; the caller keeps it open until the object is gone
    explicit sock_non_blocking(int fd);
    ~sock_non_blocking();
    sock_non_blocking(sock_non_blocking const&)            = delete;
    sock_non_blocking& operator=(sock_non_blocking const&) = delete;

    // Whether the socket could be switched.
    explicit operator bool() const { return switched_; }
    int      fd() const { return fd_; }

private:
    int  fd_;
    bool switched_ = false;
};

// _recv - one receive that gives up on a silent peer
//
// fd     connected socket; non-blocking during the call, blocking afterwards
// buf    receives up to len bytes
// flags  for recv, such as MSG_PEEK
//
// Tries 3001 times and waits up to 5 ms for data after each try: a silent peer is given up after
// about 15 s.
//
// Returns what the last recv returned: the number of bytes, 0 when the peer closed, or -1.
int _recv(int fd, char* buf, int len, int flags);

// sock_read - read a number of bytes
//
// buf  receives them and a NUL: len + 1 bytes
//
// Returns the number of bytes, fewer than len only when the peer closed. Returns -1 when a receive
// failed or nothing came for about 15 s; the 15 s start anew with every piece.
int sock_read(int fd, char* buf, int len);

// sock_readline - read one line, its terminator included
//
// fd    connected socket; the caller keeps it
// line  receives all bytes up to and including the line feed; on failure what had arrived before. A
//       NUL byte hides the rest of the piece, of up to 1023 bytes, that it arrived in: deliberate,
//       see docs/ODDITIES.md.
//
// Returns the length in bytes, or -1 when the peer closed, the read failed, or nothing came for
// about 15 s. The 15 s start anew with every piece, so there is no deadline for the whole line. Its
// length is limited only by the largest int.
//
// Reads nothing past the line feed: a second reply in the same segment stays in the socket for the
// next call.
int sock_readline(int fd, std::string& line);

// sock_lines - reads the lines of one reply
//
// Gives the lines that sock_readline gives, with fewer system calls: what has arrived is looked at
// together, and the lines that were given are taken from the socket together.
class sock_lines
{
public:
    // fd  connected socket, non-blocking while the object lives; the caller keeps it
    explicit sock_lines(int fd) : connection_(fd) {}

    // next - the next line; arguments and result as for sock_readline
    int next(std::string& line);

    // take - take the lines given so far from the socket, and nothing past them
    //
    // To be called after the last line. After a failure the connection is of no more use.
    //
    // Returns 0, or -1 when the connection is lost.
    int take();

private:
    // Whole pieces, so that a NUL hides as much as it does from sock_readline.
    static constexpr int view_size = 4 * sock_piece_size;

    int         look();
    char const* find_line_feed() const;

    sock_non_blocking const connection_;
    int                     given_ = 0;  // of the bytes seen
    int                     seen_  = 0;  // still in the socket
    char                    bytes_[view_size + 1];
};

// sock_write - write all len bytes
//
// Returns len, or -1 when the connection is lost; some bytes may have been sent by then. Waits
// without limit for a peer that does not read. Raises no SIGPIPE.
int sock_write(int fd, char const* data, int len);

// sock_write_all - write several strings, one after the other, in as few segments as they fill
//
// Each string is shorter than INT_MAX. Waits as sock_write does.
//
// Returns how many strings were written whole: all, unless the connection is lost.
std::size_t sock_write_all(int fd, std::vector<std::string> const& strings);

// sock_command - write one command line
//
// line  the command, its CR LF included
//
// Returns 0. Returns -1 when the connection is lost, or, without sending anything and with errno
// EMSGSIZE, when the line is longer than sock_max_command.
int sock_command(int fd, std::string const& line);

// sock_shutdown_connection - end a connection in order
//
// fd  connected socket; closed on success. When shutting down or draining failed it stays open and
//     the caller's.
//
// Shuts down the sending side, reads and drops what the peer still sends until it closes, and
// closes. Waits for the peer without limit.
//
// Returns 0, or -1 when one of the steps failed.
int sock_shutdown_connection(int fd);

// sock_end_connection - sock_shutdown_connection at the end of a session; leaves no descriptor open
//
// fd  connected socket; closed whatever the result
//
// Returns what sock_shutdown_connection returns.
int sock_end_connection(int fd);

// get_hostname - the name that this host gives in HELO and EHLO
//
// Returns the IPv4 address of the host name as an address literal, such as "[192.0.2.10]"; the host
// name itself when it does not resolve; "unknown" when the host has no name.
std::string get_hostname();

}  // namespace zelieml

#endif
