// connection.cpp - a connection to a server, before TLS and while it begins

#include "plugins/tls/connection.h"

#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

#include "platform/error_text.h"
#include "platform/socket.h"
#include "plugins/tls/failure.h"

namespace zelieml::tls
{

namespace
{

using std::chrono::steady_clock;

constexpr std::size_t longest_line = 4096;

// "no answer to STARTTLS", or for the greeting with other words.
std::string about(std::string const& command, char const* what, char const* greeting)
{
    return command.empty() ? greeting : what + command;
}

}  // namespace

connection::connection(unique_fd tcp, int tunnel, int reply_ms)
    : tcp_(std::move(tcp)), tunnel_(tunnel), reply_limit_(reply_ms)
{
    int on = 1;
    if (::ioctl(tcp_.get(), FIONBIO, &on) != 0) {
        throw failure{eml_cause_tls, platform::error_text(errno).c_str()};
    }
}

// Closing would not end it while a forked child has a copy. With bytes unread it would reset the
// connection, and the server would not hear what was said last.
connection::~connection()
{
    char unread[4096];
    int  pieces = 16;
    while (pieces > 0 && ::recv(tcp_.get(), unread, sizeof unread, 0) > 0) {
        --pieces;
    }
    ::shutdown(tcp_.get(), SHUT_RDWR);
}

void connection::wait(short events, steady_clock::time_point until, std::string const& late)
{
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now());
        if (left.count() <= 0) {
            throw failure{eml_cause_lost, late};
        }
        // The session says nothing before TLS works: what comes from it is its end.
        pollfd    both[] = {{tcp_.get(), events, 0}, {tunnel_, POLLIN, 0}};
        int const ready  = ::poll(both, 2, static_cast<int>(left.count()));
        if (ready > 0 && both[1].revents != 0) {
            throw failure{eml_cause_lost, "the session has ended"};
        }
        if (ready > 0) {
            return;
        }
    }
}

void connection::expect(char const* command)
{
    command_ = command;
    until_   = steady_clock::now() + reply_limit_;
}

// Byte by byte: what stands behind the line stays in the socket.
std::string connection::read_line()
{
    std::string line;
    while (line.empty() || line.back() != '\n') {
        char          c;
        ssize_t const got = ::recv(tcp_.get(), &c, 1, 0);
        if (got == 1 && line.size() < longest_line) {
            line += c;
        } else if (got == 1) {
            throw failure{eml_cause_protocol,
                          about(command_, "the server said a line of more than 4096 bytes after ",
                                "the server greets with a line of more than 4096 bytes")};
        } else if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            long long const seconds = std::chrono::ceil<std::chrono::seconds>(reply_limit_).count();
            wait(POLLIN, until_,
                 about(command_, "no answer to ", "no greeting from the server") + " within " +
                     std::to_string(seconds) + " s");
        } else {
            throw failure{eml_cause_lost,
                          about(command_, "the server closed the connection after ",
                                "the server closed the connection without a greeting")};
        }
    }
    return line;
}

// The line is short, and nothing else waits to be sent: there is room for it.
void connection::write_line(std::string const& line)
{
    if (platform::send_bytes(tcp_.get(), line.data(), line.size()) !=
        static_cast<ssize_t>(line.size())) {
        throw failure{eml_cause_lost, "the connection to the server broke before " + command_};
    }
}

bool connection::has_more()
{
    char c;
    return ::recv(tcp_.get(), &c, 1, MSG_PEEK) > 0;
}

}  // namespace zelieml::tls
