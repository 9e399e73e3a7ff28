#include "fuzz/support/mail_server.h"

#include <cerrno>
#include <sys/socket.h>

#include "fuzz/support/fuzz.h"
#include "platform/sleep.h"
#include "platform/socket.h"
#include "platform/wait.h"
#include "support/unique_fd.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/fake_resolver.h"

namespace zelieml
{

namespace fuzz
{

namespace
{

class played_server
{
public:
    void begin(std::string const& bytes)
    {
        connections_ = bytes;
        more_        = true;
        silent_      = false;
        was_silent_  = false;
        sent_.clear();
    }

    void end() { socket_.reset(); }

    // Returns the client's end, or -1.
    int open()
    {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            return -1;
        }
        socket_.reset(ends[1]);
        return ends[0];
    }

    bool accept()
    {
        if (!more_) {
            return false;
        }
        std::size_t const end = connections_.find(next_connection);
        bytes_                = connections_.substr(0, end);
        more_                 = end != std::string::npos;
        connections_.erase(0, more_ ? end + 1 : end);
        silent_ = false;
        sent_.emplace_back();
        say_piece();
        return true;
    }

    // The client waits for more.
    void waited_for()
    {
        if (silent_) {
            return;
        }
        if (bytes_.empty()) {
            socket_.reset();
        } else {
            say_piece();
        }
    }

    // The client ends the connection: what is left is said, and the server closes.
    void finish()
    {
        while (!bytes_.empty()) {
            say_piece();
        }
        socket_.reset();
    }

    ssize_t hear(void const* data, std::size_t size)
    {
        if (!socket_) {
            errno = EPIPE;
            return -1;
        }
        sent_.back().emplace_back(static_cast<char const*>(data), size);
        return static_cast<ssize_t>(size);
    }

    std::vector<sent_strings> const& sent() const { return sent_; }

private:
    void say_piece()
    {
        constexpr char    ends[] = {next_piece, silence, '\0'};
        std::size_t const end    = bytes_.find_first_of(ends);
        std::string const piece  = bytes_.substr(0, end);
        if (end != std::string::npos && bytes_[end] == silence && !was_silent_) {
            silent_     = true;
            was_silent_ = true;
        }
        bytes_.erase(0, end != std::string::npos ? end + 1 : end);
        ssize_t const taken = ::send(socket_.get(), piece.data(), piece.size(), MSG_DONTWAIT);
        require(taken == static_cast<ssize_t>(piece.size()), "a socket takes all of a server");
    }

    std::string               connections_;  // those to come
    bool                      more_ = false;
    std::string               bytes_;  // of this connection, not yet said
    unique_fd                 socket_;
    bool                      silent_     = false;
    bool                      was_silent_ = false;
    std::vector<sent_strings> sent_;
};

played_server server;

}  // namespace

mail_servers::mail_servers(std::string const& bytes)
{
    server.begin(bytes);
    test::set_host_name("client.test");
    test::clear_hosts();
    test::add_host("client.test", "192.0.2.10");
    test::add_host(server_name, "127.0.0.1");
}

mail_servers::~mail_servers()
{
    server.end();
}

std::vector<sent_strings> const& mail_servers::sent() const
{
    return server.sent();
}

void require_command_line(std::string const& sent)
{
    require(sent.size() <= 1023, "a command has at most 1023 bytes");
    require(sent.size() >= 2 && sent.find('\n') == sent.size() - 1 && sent[sent.size() - 2] == '\r',
            "a command is one line, ended by CR LF");
}

}  // namespace fuzz

namespace platform
{

int open_stream_socket()
{
    return fuzz::server.open();
}

sockaddr_in ipv4_peer(std::uint32_t /*address*/, std::uint16_t /*port*/)
{
    return {};
}

int connect_within(int /*fd*/, sockaddr_in const& /*peer*/, int /*max_us*/)
{
    if (fuzz::server.accept()) {
        return 0;
    }
    errno = ECONNREFUSED;
    return -1;
}

ssize_t send_bytes(int /*fd*/, void const* data, std::size_t size)
{
    return fuzz::server.hear(data, size);
}

// The client has shut its side down, and waits for the server's without limit.
ssize_t receive_bytes(int fd, void* data, std::size_t size)
{
    fuzz::server.finish();
    return ::recv(fd, data, size, 0);
}

void join_small_writes(int /*fd*/, bool /*on*/) {}

void wait_readable(int /*fd*/, int /*max_us*/)
{
    fuzz::server.waited_for();
}

bool wait_writable(int /*fd*/, int /*max_us*/)
{
    return true;
}

void sleep_microseconds(std::int64_t /*us*/) {}

}  // namespace platform
}  // namespace zelieml
