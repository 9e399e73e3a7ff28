#include "tests/support/fake_mail_server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <utility>

#include "platform/sleep.h"
#include "platform/socket.h"
#include "platform/wait.h"
#include "support/unique_fd.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/fake_resolver.h"

namespace zelieml
{

namespace test
{

namespace
{

class player
{
public:
    void begin(std::vector<played_server> servers)
    {
        servers_ = std::move(servers);
        next_    = 0;
        record_  = {};
    }

    void end() { socket_.reset(); }

    // Returns the client's end, or -1.
    int open()
    {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            return -1;
        }
        // Both sides need room for all that a server says: some systems give 8 KB only.
        constexpr int room = 1 << 20;
        ::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        ::setsockopt(ends[0], SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        socket_.reset(ends[1]);
        return ends[0];
    }

    bool accept(sockaddr_in const& peer)
    {
        record_.peers.push_back({peer.sin_addr.s_addr, ntohs(peer.sin_port)});
        if (next_ == servers_.size()) {
            return false;
        }
        record_.sent.emplace_back();
        ++next_;
        piece_ = 0;
        say_piece();
        return true;
    }

    // The client waits for more.
    void waited_for()
    {
        ++record_.waits;
        if (piece_ < server().pieces.size()) {
            say_piece();
        } else if (server().end != server_end::is_silent) {
            socket_.reset();
        }
    }

    // The client ends the connection: what is left is said, and the server closes.
    void finish()
    {
        std::string rest;
        for (; piece_ < server().pieces.size(); ++piece_) {
            rest += server().pieces[piece_];
        }
        if (!rest.empty()) {
            say(rest);
        }
        socket_.reset();
    }

    ssize_t hear(void const* data, std::size_t size)
    {
        if (!socket_) {
            errno = EPIPE;
            return -1;
        }
        record_.sent.back().emplace_back(static_cast<char const*>(data), size);
        return static_cast<ssize_t>(size);
    }

    void sleep(std::int64_t us) { record_.sleeps.push_back(us); }

    server_record const& record() const { return record_; }

private:
    // The one that the client is connected to.
    played_server const& server() const { return servers_[next_ - 1]; }

    void say_piece()
    {
        if (piece_ < server().pieces.size()) {
            say(server().pieces[piece_]);
            ++piece_;
        }
        if (piece_ == server().pieces.size() && server().end == server_end::hangs_up) {
            socket_.reset();
        }
    }

    void say(std::string const& bytes)
    {
        if (::send(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT) !=
            static_cast<ssize_t>(bytes.size())) {
            std::fputs("a socket does not take all that a server says\n", stderr);
            std::abort();
        }
    }

    std::vector<played_server> servers_;
    std::size_t                next_  = 0;  // to be connected to
    std::size_t                piece_ = 0;  // of the connected one, to be said
    unique_fd                  socket_;
    server_record              record_;
};

player the_player;

std::vector<std::string> split(std::string const& bytes, char separator)
{
    std::vector<std::string> parts;
    std::size_t              start = 0;
    std::size_t              end   = 0;
    while ((end = bytes.find(separator, start)) != std::string::npos) {
        parts.push_back(bytes.substr(start, end - start));
        start = end + 1;
    }
    parts.push_back(bytes.substr(start));
    return parts;
}

}  // namespace

bool operator==(played_peer const& a, played_peer const& b)
{
    return a.address == b.address && a.port == b.port;
}

bool operator==(server_record const& a, server_record const& b)
{
    return a.peers == b.peers && a.sent == b.sent && a.sleeps == b.sleeps && a.waits == b.waits;
}

std::vector<played_server> played_servers(std::string const& bytes)
{
    constexpr char             marks[]    = {silence, hanging_up, '\0'};
    bool                       was_silent = false;
    std::vector<played_server> servers;
    for (std::string const& said : split(bytes, next_server)) {
        std::size_t const mark = said.find_first_of(marks);
        played_server     server{split(said.substr(0, mark), next_piece), server_end::closes};
        if (mark != std::string::npos && said[mark] == hanging_up) {
            server.end = server_end::hangs_up;
        } else if (mark != std::string::npos && !was_silent) {
            server.end = server_end::is_silent;
            was_silent = true;
        }
        servers.push_back(std::move(server));
    }
    return servers;
}

fake_mail_servers::fake_mail_servers(std::vector<played_server> servers)
{
    the_player.begin(std::move(servers));
    set_host_name(client_name);
    clear_hosts();
    add_host(client_name, client_address);
    add_host(server_name, server_address);
}

fake_mail_servers::~fake_mail_servers()
{
    the_player.end();
}

server_record const& fake_mail_servers::record() const
{
    return the_player.record();
}

}  // namespace test

namespace platform
{

int open_stream_socket()
{
    return test::the_player.open();
}

sockaddr_in ipv4_peer(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in peer     = {};
    peer.sin_family      = AF_INET;
    peer.sin_addr.s_addr = address;
    peer.sin_port        = port;
    return peer;
}

int connect_within(int /*fd*/, sockaddr_in const& peer, int /*max_us*/)
{
    if (test::the_player.accept(peer)) {
        return 0;
    }
    errno = ECONNREFUSED;
    return -1;
}

ssize_t send_bytes(int /*fd*/, void const* data, std::size_t size)
{
    return test::the_player.hear(data, size);
}

ssize_t send_pieces(int /*fd*/, iovec* pieces, int count)
{
    ssize_t sent = 0;
    for (int i = 0; i < count; ++i) {
        if (pieces[i].iov_len > 0) {
            ssize_t const taken = test::the_player.hear(pieces[i].iov_base, pieces[i].iov_len);
            if (taken < 0) {
                return sent > 0 ? sent : taken;
            }
            sent += taken;
        }
    }
    return sent;
}

// The client has shut its side down, and waits for the server's without limit.
ssize_t receive_bytes(int fd, void* data, std::size_t size)
{
    test::the_player.finish();
    return ::recv(fd, data, size, 0);
}

void wait_readable(int /*fd*/, int /*max_us*/)
{
    test::the_player.waited_for();
}

bool wait_writable(int /*fd*/, int /*max_us*/)
{
    return true;
}

void sleep_microseconds(std::int64_t us)
{
    test::the_player.sleep(us);
}

}  // namespace platform
}  // namespace zelieml
