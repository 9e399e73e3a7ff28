#include "tests/support/peers.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/socket.h"
#include "tests/support/wait_until.h"
#include "tools/mailserver/quiet.h"

namespace zelieml::test
{

namespace
{

constexpr int patience_ms = 20000;

[[noreturn]] void fail(char const* what)
{
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

bool readable_within(int fd, int ms)
{
    pollfd entry = {fd, POLLIN, 0};
    return ::poll(&entry, 1, ms) > 0;
}

// Returns when it is so, which must come within 20 s.
template <class Condition>
void wait_for(char const* problem, Condition&& is_so)
{
    for (int ms = 0; ms < patience_ms; ++ms) {
        if (is_so()) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error(problem);
}

sockaddr_in address_of(std::uint16_t port)
{
    sockaddr_in address     = {};
    address.sin_family      = AF_INET;
    address.sin_port        = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::uint16_t port_of(int fd)
{
    sockaddr_in address = {};
    socklen_t   length  = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail("getsockname");
    }
    return ntohs(address.sin_port);
}

// Appends the next bytes; false at the end of the stream, however it ended.
bool hear(int fd, std::string& bytes)
{
    if (!readable_within(fd, patience_ms)) {
        bytes += "(left open)";
        return false;
    }
    char          piece[65536];
    ssize_t const length = ::recv(fd, piece, sizeof piece, 0);
    if (length < 0) {
        bytes += "(broken)";
    }
    if (length <= 0) {
        return false;
    }
    bytes.append(piece, static_cast<std::size_t>(length));
    return true;
}

}  // namespace

std::uint16_t bind_somewhere(int fd)
{
    sockaddr_in const address = address_of(0);
    if (::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        fail("bind");
    }
    return port_of(fd);
}

listening_socket::listening_socket(int backlog) : fd_(::socket(AF_INET, SOCK_STREAM, 0))
{
    if (!fd_) {
        fail("socket");
    }
    mailserver::keep_quiet(fd_.get());
    port_ = bind_somewhere(fd_.get());
    if (::listen(fd_.get(), backlog) != 0) {
        fail("listen");
    }
}

unique_fd listening_socket::accept() const
{
    if (!readable_within(fd_.get(), patience_ms)) {
        throw std::runtime_error("no client came");
    }
    unique_fd client(::accept(fd_.get(), nullptr, nullptr));
    if (!client) {
        fail("accept");
    }
    int const on = 1;
    ::setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return client;
}

void send_all(int fd, std::string const& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t const taken = ::send(fd, bytes.data() + sent, bytes.size() - sent, 0);
        if (taken < 0) {
            return;  // the client is gone: it hears no more
        }
        sent += static_cast<std::size_t>(taken);
    }
}

std::size_t send_until_full(int fd)
{
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    char const  piece[4096] = {};
    std::size_t all         = 0;
    for (int full_ms = 0; full_ms < 300; ++full_ms) {
        ssize_t taken = platform::send_bytes(fd, piece, sizeof piece);
        while (taken > 0) {
            full_ms = 0;
            all += static_cast<std::size_t>(taken);
            taken = platform::send_bytes(fd, piece, sizeof piece);
        }
        wait_ms(1);
    }
    return all;
}

void break_connection(unique_fd& fd)
{
    linger const at_once = {1, 0};
    ::setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    fd.reset();
}

tcp_pair::tcp_pair()
{
    listening_socket const door;
    sockaddr_in const      address = address_of(door.port());
    client_.reset(platform::open_stream_socket());
    if (!client_ || ::fcntl(client_.get(), F_SETFL, 0) != 0 ||
        ::connect(client_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) !=
            0) {
        fail("connect");
    }
    server_ = door.accept();
}

closed_port::closed_port() : number_(port_of(holders_.server()))
{
    ::fcntl(holders_.server(), F_SETFD, FD_CLOEXEC);
}

void tcp_pair::say(std::string const& bytes)
{
    int before = 0;
    ::ioctl(client_.get(), FIONREAD, &before);
    send_all(server_.get(), bytes);
    int const wanted = before + static_cast<int>(bytes.size());
    wait_for("what the server said did not arrive", [&] {
        int waiting = 0;
        ::ioctl(client_.get(), FIONREAD, &waiting);
        return waiting >= wanted;
    });
}

void tcp_pair::server_resets()
{
    break_connection(server_);
    wait_for("the client's system does not know of the reset", [&] {
        pollfd entry = {client_.get(), POLLHUP, 0};
        return !client_ || ::poll(&entry, 1, 0) == 1;
    });
}

void tcp_pair::wait_until_client_is_stuck() const
{
    wait_for("the client's system takes all", [&] {
        pollfd entry = {client_.get(), POLLOUT, 0};
        return ::poll(&entry, 1, 0) == 0;
    });
}

std::string tcp_pair::heard()
{
    std::string bytes;
    while (readable_within(server_.get(), 0) && hear(server_.get(), bytes)) {
    }
    return bytes;
}

std::string tcp_pair::heard_to_the_end()
{
    std::string bytes;
    while (hear(server_.get(), bytes)) {
    }
    return bytes;
}

recording_server::recording_server(std::vector<std::string> replies,
                                   std::function<void()>    on_silence)
    : replies_(std::move(replies)), on_silence_(std::move(on_silence))
{
    // A client that is gone must not end the program through the server.
    sigset_t pipe;
    sigset_t before;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    thread_ = std::thread([this] { serve(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

recording_server::~recording_server()
{
    bytes();
}

std::string const& recording_server::bytes()
{
    if (thread_.joinable()) {
        nobody_comes_ = true;  // who has connected by now is still served
        thread_.join();
    }
    return bytes_;
}

void recording_server::serve()
{
    while (!readable_within(door_.fd(), 20)) {
        if (nobody_comes_ && !readable_within(door_.fd(), 0)) {
            return;
        }
    }
    unique_fd const client = door_.accept();

    std::size_t said    = 0;
    std::size_t taken   = 0;  // of bytes_, those that are answered
    bool        in_text = false;
    bool        silent  = false;
    auto const  answer  = [&] {
        if (said < replies_.size()) {
            in_text = replies_[said].rfind("354", 0) == 0;
            send_all(client.get(), replies_[said]);
            ++said;
        } else if (!silent) {
            silent = true;
            if (on_silence_) {
                on_silence_();
            }
        }
    };

    answer();
    while (hear(client.get(), bytes_)) {
        for (;;) {
            char const* const end   = in_text ? "\r\n.\r\n" : "\r\n";
            std::size_t const where = bytes_.find(end, taken);
            if (where == std::string::npos) {
                break;
            }
            taken = where + std::strlen(end);
            answer();
        }
    }
}

}  // namespace zelieml::test
