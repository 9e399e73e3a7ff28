// sock.cpp - TCP connections to mail servers

#include "libsendw/sock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "liblog/trace.h"
#include "libsendw/step.h"
#include "platform/resolver.h"
#include "platform/socket.h"
#include "platform/wait.h"
#include "support/format.h"
#include "support/unique_fd.h"

namespace zelieml
{

namespace
{

constexpr int connect_limit_us = 30 * 1000 * 1000;
constexpr int poll_pause_us    = 5000;
constexpr int max_poll_counter = 3000;
constexpr int max_pieces       = 16;  // a mail with its end mark has 13

enum class connection_end {
    closed,
    left_open,
    close_failed
};

connection_end shut_down(int fd)
{
    if (::shutdown(fd, SHUT_WR) != 0) {
        trace_msg("error:shutdown");
        return connection_end::left_open;
    }

    char unread[1024];
    for (;;) {
        ssize_t const received = platform::receive_bytes(fd, unread, sizeof unread);
        if (received == 0) {
            break;
        }
        if (received < 0) {
            trace_msg("error:recv");
            return connection_end::left_open;
        }
        trace_msg("error:unexpected %d bytes received.");
    }

    trace_msg("shutdown ok!");
    if (close_descriptor(fd) != 0) {
        trace_msg("error:close");
        return connection_end::close_failed;
    }
    return connection_end::closed;
}

// _recv for a socket that is non-blocking already.
int receive(int fd, char* buf, int len, int flags)
{
    ssize_t received = -1;
    int     error    = 0;
    for (int counter = 0; counter <= max_poll_counter; ++counter) {
        received = ::recv(fd, buf, static_cast<std::size_t>(len), flags);
        error    = received < 0 ? errno : 0;
        if (error != EAGAIN) {
            break;
        }
        platform::wait_readable(fd, poll_pause_us);
    }
    if (received < 1) {
        errno = error;
    }
    trace_msg("SleepCounter:%d recv:%d");
    return static_cast<int>(received);
}

// The pieces of strings, from the offset-th byte of the first one on, that are sent together: at
// most max_pieces, and INT_MAX bytes. Returns their number.
int next_pieces(std::vector<std::string> const& strings, std::size_t first, std::size_t offset,
                iovec (&pieces)[max_pieces])
{
    std::size_t room  = std::numeric_limits<int>::max();
    int         count = 0;
    for (std::size_t i = first; i < strings.size() && count < max_pieces; ++i) {
        std::size_t const size = strings[i].size() - offset;
        if (size > room) {
            break;  // for the next call
        }
        // The system does not write to them.
        pieces[count++] = {const_cast<char*>(strings[i].data()) + offset, size};
        room -= size;
        offset = 0;
    }
    return count;
}

// Deliberate, see docs/ODDITIES.md.
void append_up_to_nul(std::string& line, char const* piece, int size)
{
    auto              length = static_cast<std::size_t>(size);
    void const* const nul    = std::memchr(piece, '\0', length);
    if (nul != nullptr) {
        length = static_cast<std::size_t>(static_cast<char const*>(nul) - piece);
    }
    line.append(piece, length);
}

// sock_read with _recv or receive.
int read_all(int fd, char* buf, int len, int (*take)(int, char*, int, int))
{
    int taken = 0;
    while (len - taken >= 1) {
        int const received = take(fd, buf + taken, len - taken, 0);
        if (received < 0) {
            return -1;
        }
        if (received == 0) {
            break;
        }
        taken += received;
    }
    buf[taken] = '\0';
    return taken;
}

}  // namespace

unsigned long sock_look_up_address(char const* name)
{
    trace_msg("look_up_address %s");
    if (name == nullptr) {
        return sock_no_address;
    }

    in_addr_t const dotted = ::inet_addr(name);
    if (dotted != INADDR_NONE) {
        return dotted;
    }

    trace_msg("warning:inet_addr %s");
    std::uint32_t address = 0;
    if (!platform::resolve_ipv4(name, address)) {
        trace_msg("error:gethostbyname %s");
        return sock_no_address;
    }
    return address;
}

int sock_connect(unsigned long addr, unsigned short port)
{
    unique_fd fd(platform::open_stream_socket());
    if (!fd) {
        trace_msg("error:socket INVALID_SOCKET");
        return -1;
    }

    sockaddr_in const peer = platform::ipv4_peer(static_cast<std::uint32_t>(addr), port);
    if (platform::connect_within(fd.get(), peer, connect_limit_us) != 0) {
        int const error = errno;
        trace_msg("error:connect INVALID_SOCKET");
        fd.reset();
        errno = error;
        return -1;
    }
    return fd.release();
}

int sock_connect_host(char const* host, int port, int& fd, connect_steps const& steps)
{
    unsigned long address = sock_no_address;
    return sock_find_host(host, address, steps) == 0
               ? sock_connect_found(host, address, port, fd, steps)
               : -1;
}

int sock_find_host(char const* host, unsigned long& address, connect_steps const& steps)
{
    address = sock_look_up_address(host);
    if (address == sock_no_address) {
        trace_msg("error:invalid host address");
        note_not_found(steps.look_up, host);
        return -1;
    }
    return 0;
}

int sock_connect_found(char const* host, unsigned long address, int port, int& fd,
                       connect_steps const& steps)
{
    trace_msg(steps.trace);
    auto const number = static_cast<std::uint16_t>(port);
    fd                = sock_connect(address, htons(number));
    if (fd == -1) {
        note_not_connected(steps.connect, host, number, errno);
        trace_msg("error:INVALID_SOCKET %d");
        return -1;
    }
    return 0;
}

sock_non_blocking::sock_non_blocking(int fd) : fd_(fd)
{
    int mode  = 1;
    switched_ = ::ioctl(fd_, FIONBIO, &mode) == 0;
    if (!switched_) {
        trace_msg("error:ioctl(mode=1):%d %d");
    }
}

sock_non_blocking::~sock_non_blocking()
{
    int mode = 0;
    if (switched_ && ::ioctl(fd_, FIONBIO, &mode) != 0) {
        trace_msg("error:ioctl(mode=0):%d %d");
    }
}

int _recv(int fd, char* buf, int len, int flags)
{
    sock_non_blocking const connection(fd);
    return connection ? receive(fd, buf, len, flags) : -1;
}

int sock_read(int fd, char* buf, int len)
{
    return read_all(fd, buf, len, _recv);
}

int sock_readline(int fd, std::string& line)
{
    line.clear();
    sock_non_blocking const connection(fd);
    if (!connection) {
        return -1;
    }
    char buf[sock_piece_size + 1];
    bool complete = false;
    while (!complete) {
        int const peeked = receive(fd, buf, sock_piece_size, MSG_PEEK);
        if (peeked < 1) {
            return -1;
        }
        void const* const lf   = std::memchr(buf, '\n', static_cast<std::size_t>(peeked));
        int               take = peeked;
        if (lf != nullptr) {
            take     = static_cast<int>(static_cast<char const*>(lf) - buf) + 1;
            complete = true;
        }
        if (read_all(fd, buf, take, receive) == -1) {
            return -1;
        }
        line += buf;  // up to a NUL: deliberate, see docs/ODDITIES.md
        if (line.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            errno = EMSGSIZE;
            return -1;
        }
    }
    trace_msg("readline = %s");
    return static_cast<int>(line.size());
}

int sock_lines::next(std::string& line)
{
    line.clear();
    if (!connection_) {
        return -1;
    }
    for (bool complete = false; !complete;) {
        char const* lf = find_line_feed();
        if (lf == nullptr) {
            if (look() != 0) {
                return -1;
            }
            lf = find_line_feed();
        }
        complete        = lf != nullptr;
        int       start = given_;
        int const end   = complete ? static_cast<int>(lf - bytes_) + 1 : seen_;
        given_          = end;
        if (given_ == seen_ && take() != 0) {
            return -1;
        }
        for (; start < end; start += sock_piece_size) {
            append_up_to_nul(line, bytes_ + start, std::min(end - start, sock_piece_size));
        }
        if (line.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            errno = EMSGSIZE;
            return -1;
        }
    }
    trace_msg("readline = %s");
    return static_cast<int>(line.size());
}

int sock_lines::take()
{
    int const taken = read_all(connection_.fd(), bytes_, given_, receive);
    given_          = 0;
    seen_           = 0;
    return taken == -1 ? -1 : 0;
}

// Looks at what is in the socket behind the lines that were given.
int sock_lines::look()
{
    if (take() != 0) {
        return -1;
    }
    seen_ = std::max(receive(connection_.fd(), bytes_, view_size, MSG_PEEK), 0);
    return seen_ > 0 ? 0 : -1;
}

// The end of the next line, or null.
char const* sock_lines::find_line_feed() const
{
    auto const size = static_cast<std::size_t>(seen_ - given_);
    return static_cast<char const*>(std::memchr(bytes_ + given_, '\n', size));
}

int sock_write(int fd, char const* data, int len)
{
    int sent = 0;
    while (len - sent > 0) {
        ssize_t const taken =
            platform::send_bytes(fd, data + sent, static_cast<std::size_t>(len - sent));
        if (taken < 1) {
            return -1;
        }
        sent += static_cast<int>(taken);
    }
    return len;
}

std::size_t sock_write_all(int fd, std::vector<std::string> const& strings)
{
    std::size_t done = 0;  // strings
    std::size_t sent = 0;  // bytes of the next one
    for (;;) {
        while (done < strings.size() && sent >= strings[done].size()) {
            sent -= strings[done].size();
            ++done;
        }
        if (done == strings.size()) {
            return done;
        }
        iovec         pieces[max_pieces];
        int const     count = next_pieces(strings, done, sent, pieces);
        ssize_t const taken = platform::send_pieces(fd, pieces, count);
        if (taken < 1) {
            return done;
        }
        sent += static_cast<std::size_t>(taken);
    }
}

int sock_command(int fd, std::string const& line)
{
    if (line.size() > sock_max_command) {
        errno = EMSGSIZE;
        return -1;
    }
    return sock_write(fd, line.data(), static_cast<int>(line.size())) == -1 ? -1 : 0;
}

int sock_shutdown_connection(int fd)
{
    return shut_down(fd) == connection_end::closed ? 0 : -1;
}

int sock_end_connection(int fd)
{
    connection_end const end = shut_down(fd);
    if (end == connection_end::left_open) {
        close_descriptor(fd);
    }
    return end == connection_end::closed ? 0 : -1;
}

std::string get_hostname()
{
    char name[1024] = {};
    if (::gethostname(name, sizeof name - 1) != 0) {
        return "unknown";
    }

    std::uint32_t address = 0;
    if (platform::resolve_ipv4(name, address)) {
        unsigned char bytes[sizeof address];
        std::memcpy(bytes, &address, sizeof bytes);
        format_text(name, "[%u.%u.%u.%u]", bytes[0], bytes[1], bytes[2], bytes[3]);
    }
    return name;
}

}  // namespace zelieml
