// system.cpp - calls of the C library that do something else on macOS than on Linux
//
// A program with the fake calls these before the C library's. They show tests that hold on Linux
// only:
//
// - Whether a write to a closed connection raises SIGPIPE is an option of the socket, SO_NOSIGPIPE,
//   and of the listener that it was accepted from. send and sendmsg have no such flag. The signal
//   goes to the process, not to the thread.
// - Options of a socket that is closed in both directions cannot be set.
// - A connection that is closed before everything was read ends as any other, without a reset.
// - A queue of no length for clients is one of 128.
// - A port that is bound and that is all does not refuse a connect: it does not answer. No test is
//   to wait for that. Only ports that the same process has bound are known here.
// - An accepted socket has its listener's O_NONBLOCK.
// - To shut down a listener does nothing.
// - poll knows no devices, and says at the end of a stream that it has been hung up: of two sockets
//   of this machine already when the other one has shut down its sending side, before everything was
//   read. Of a socket for which no event is asked it says nothing.
// - A socket of this machine has no peer any more when that one is closed.
// - A pipe takes 16 KiB.
// - A thread has a stack of 512 KiB, and its own result of gethostbyname.
// - A signal to the process that all threads have blocked waits with the main thread. sigpending
//   shows a thread its own list only.
// - The first look-up of a process opens a descriptor, which stays open. A forked child opens one of
//   its own.
// - A process may have 256 descriptors open.

#include <algorithm>
#include <atomic>
#include <bitset>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/macos/fake/object.h"
#include "tests/macos/fake/socket_names.h"

namespace
{

constexpr int         backlog         = 128;
constexpr int         pipe_bytes      = 16 << 10;
constexpr std::size_t stack_bytes     = 512 << 10;
constexpr rlim_t      descriptors     = 256;
constexpr std::size_t most_sockets    = 4096;
constexpr int         name_bytes      = 8192;
constexpr auto        setsockopt_name = sizeof(void*) == 4 ? "__setsockopt64" : "setsockopt";
constexpr auto        sendmsg_name    = sizeof(void*) == 4 ? "__sendmsg64" : "sendmsg";

std::atomic<bool> quiet[most_sockets];  // by descriptor
std::atomic<int>  binders[1 << 16];     // the descriptors by their ports, in network byte order

struct kept_errno {
    kept_errno() = default;
    ~kept_errno() { errno = value; }
    int const value = errno;
};

// The C library's function of a name.
template <class Function>
Function* next(char const* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

#define NEXT(function) next<decltype(function)>(#function)

int option_of(int fd, int level, int name)
{
    int       value = 0;
    socklen_t size  = sizeof value;
    return ::getsockopt(fd, level, name, &value, &size) == 0 ? value : 0;
}

bool is_stream(int fd, int domain)
{
    kept_errno const kept;
    return option_of(fd, SOL_SOCKET, SO_DOMAIN) == domain &&
           option_of(fd, SOL_SOCKET, SO_TYPE) == SOCK_STREAM;
}

bool is_socket(int fd)
{
    kept_errno const kept;
    return option_of(fd, SOL_SOCKET, SO_TYPE) != 0;
}

bool is_tcp(int fd)
{
    return is_stream(fd, AF_INET);
}

bool is_local(int fd)
{
    return is_stream(fd, AF_UNIX);
}

bool is_listener(int fd)
{
    return option_of(fd, SOL_SOCKET, SO_ACCEPTCONN) != 0;
}

// The port that a socket has; 0 for none. In network byte order.
in_port_t port_of(int fd)
{
    sockaddr_in own    = {};
    socklen_t   length = sizeof own;
    return ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length) == 0 ? own.sin_port : 0;
}

// Closed in both directions, after it was open.
bool is_over(int fd)
{
    tcp_info  info = {};
    socklen_t size = sizeof info;
    if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
        return false;
    }
    switch (info.tcpi_state) {
    case TCP_CLOSE:
        return port_of(fd) != 0;
    case TCP_LAST_ACK:
    case TCP_CLOSING:
    case TCP_TIME_WAIT:
        return true;
    default:
        return false;
    }
}

// SO_NOSIGPIPE
bool is_quiet(int fd)
{
    return quiet[static_cast<std::size_t>(fd) % most_sockets];
}

void set_quiet(int fd, bool on)
{
    quiet[static_cast<std::size_t>(fd) % most_sockets] = on;
}

// real  sends with flags
template <class Send>
ssize_t send_as_on_macos(int fd, int flags, char const* function, Send&& real)
{
    if (is_tcp(fd) && (flags & MSG_NOSIGNAL) != 0) {
        zelieml::fake::refuse(function, "there is no MSG_NOSIGNAL");
    }
    ssize_t const sent = real(flags | MSG_NOSIGNAL);
    if (sent < 0 && errno == EPIPE && !is_quiet(fd)) {
        ::kill(::getpid(), SIGPIPE);
        errno = EPIPE;
    }
    return sent;
}

int real_poll(pollfd* entries, nfds_t count, int ms)
{
    static auto* const real = NEXT(poll);
    return real(entries, count, ms);
}

bool says(int fd, short event)
{
    pollfd entry = {fd, event, 0};
    return real_poll(&entry, 1, 0) == 1 && (entry.revents & event) != 0;
}

constexpr std::size_t most_polled = 64;  // more are polled as they are

void hang_up(pollfd& entry)
{
    entry.revents = static_cast<short>((entry.revents | POLLHUP) & ~POLLOUT);
}

void adjust(pollfd& entry)
{
    struct stat status = {};
    if (entry.revents == 0 || ::fstat(entry.fd, &status) != 0) {
        return;
    }
    char byte = 0;
    if (S_ISCHR(status.st_mode)) {
        entry.revents = POLLNVAL;
    } else if ((entry.revents & (POLLIN | POLLERR)) == POLLIN && is_tcp(entry.fd) &&
               !is_listener(entry.fd) &&  // and whoever asks first has the error
               ::recv(entry.fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0) {
        hang_up(entry);
    } else if ((entry.revents & POLLIN) != 0 && is_local(entry.fd) && says(entry.fd, POLLRDHUP)) {
        hang_up(entry);
    }
}

// The signals that wait for the calling thread alone.
sigset_t pending_of_thread()
{
    std::ifstream      status("/proc/thread-self/status");
    std::string        line;
    unsigned long long bits = 0;
    while (std::getline(status, line) && std::sscanf(line.c_str(), "SigPnd: %llx", &bits) != 1) {
    }
    sigset_t pending;
    ::sigemptyset(&pending);
    for (int number = 1; bits != 0; ++number, bits >>= 1) {
        if ((bits & 1) != 0) {
            ::sigaddset(&pending, number);
        }
    }
    return pending;
}

// What a process keeps open from its first look-up on.
void open_resolver()
{
    static std::atomic<pid_t> process{0};
    pid_t const               self = ::getpid();
    if (process.exchange(self) != self) {
        ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    }
}

[[gnu::constructor]] void limit_descriptors()
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur > descriptors) {
        limit.rlim_cur = descriptors;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int setsockopt(int fd, int level, int name, void const* value, socklen_t size) noexcept
{
    static auto* const real = next<decltype(setsockopt)>(setsockopt_name);
    if (is_tcp(fd) && is_over(fd)) {
        errno = EINVAL;
        return -1;
    }
    if (level == SOL_SOCKET && name == SO_NOSIGPIPE) {
        set_quiet(fd, *static_cast<int const*>(value) != 0);
        return 0;
    }
    return real(fd, level, name, value, size);
}

ssize_t send(int fd, void const* data, std::size_t size, int flags)
{
    static auto* const real = NEXT(send);
    return send_as_on_macos(fd, flags, "send",
                            [&](int quietly) { return real(fd, data, size, quietly); });
}

ssize_t sendmsg(int fd, msghdr const* message, int flags)
{
    static auto* const real = next<decltype(sendmsg)>(sendmsg_name);
    return send_as_on_macos(fd, flags, "sendmsg",
                            [&](int quietly) { return real(fd, message, quietly); });
}

int bind(int fd, sockaddr const* address, socklen_t size) noexcept
{
    static auto* const real   = NEXT(bind);
    int const          result = real(fd, address, size);
    if (result == 0 && is_tcp(fd)) {
        binders[port_of(fd)] = fd;
    }
    return result;
}

int connect(int fd, sockaddr const* address, socklen_t size)
{
    static auto* const real = NEXT(connect);
    if (is_tcp(fd)) {
        in_port_t const port   = reinterpret_cast<sockaddr_in const*>(address)->sin_port;
        int const       binder = binders[port];
        if (is_tcp(binder) && port_of(binder) == port && is_over(binder)) {
            zelieml::fake::refuse("connect", "nobody answers at a port that is only bound");
        }
    }
    return real(fd, address, size);
}

int listen(int fd, int length) noexcept
{
    static auto* const real = NEXT(listen);
    return real(fd, length > 0 ? length : backlog);
}

int accept(int fd, sockaddr* peer, socklen_t* size)
{
    static auto* const real     = NEXT(accept);
    int const          accepted = real(fd, peer, size);
    if (accepted >= 0) {
        ::fcntl(accepted, F_SETFL, ::fcntl(fd, F_GETFL) & O_NONBLOCK);
        set_quiet(accepted, is_quiet(fd));
    }
    return accepted;
}

int shutdown(int fd, int how) noexcept
{
    static auto* const real = NEXT(shutdown);
    if (is_tcp(fd) && is_listener(fd)) {
        errno = ENOTCONN;
        return -1;
    }
    return real(fd, how);
}

int getpeername(int fd, sockaddr* peer, socklen_t* size) noexcept
{
    static auto* const real = NEXT(getpeername);
    if (is_local(fd) && says(fd, POLLHUP)) {
        errno = EINVAL;
        return -1;
    }
    return real(fd, peer, size);
}

int close(int fd)
{
    static auto* const real = NEXT(close);
    set_quiet(fd, false);
    if (is_tcp(fd) && !is_listener(fd) && option_of(fd, SOL_SOCKET, SO_LINGER) == 0) {
        kept_errno const kept;
        char             byte   = 0;
        int              unread = 0;
        ::ioctl(fd, FIONREAD, &unread);
        while (unread-- > 0) {
            ::recv(fd, &byte, 1, MSG_DONTWAIT);
        }
    }
    return real(fd);
}

int poll(pollfd* entries, nfds_t count, int ms)
{
    // In place: a program that has no memory polls, too.
    std::bitset<most_polled> is_left_out;
    for (nfds_t i = 0; i < std::min<nfds_t>(count, most_polled); ++i) {
        if (entries[i].fd >= 0 && entries[i].events == 0 && is_socket(entries[i].fd)) {
            is_left_out.set(i);
            entries[i].fd = ~entries[i].fd;
        }
    }
    int const ready = real_poll(entries, count, ms);
    for (nfds_t i = 0; i < count; ++i) {
        if (i < most_polled && is_left_out[i]) {
            entries[i].fd = ~entries[i].fd;
        } else if (ready > 0) {
            adjust(entries[i]);
        }
    }
    return ready;
}

int pipe(int* ends) noexcept
{
    static auto* const real   = next<int(int*)>("pipe");
    int const          result = real(ends);
    if (result == 0) {
        ::fcntl(ends[1], F_SETPIPE_SZ, pipe_bytes);
    }
    return result;
}

int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                   void* argument) noexcept
{
    static auto* const real = NEXT(pthread_create);
    if (attributes != nullptr) {
        return real(thread, attributes, body, argument);
    }
    pthread_attr_t small;
    ::pthread_attr_init(&small);
    ::pthread_attr_setstacksize(&small, stack_bytes);
    int const result = real(thread, &small, body, argument);
    ::pthread_attr_destroy(&small);
    return result;
}

hostent* gethostbyname(char const* name)
{
    open_resolver();
    thread_local hostent result;
    thread_local char    memory[name_bytes];
    hostent*             found = nullptr;
    ::gethostbyname_r(name, &result, memory, sizeof memory, &found, &h_errno);
    return found;
}

int sigpending(sigset_t* set) noexcept
{
    static auto* const real = NEXT(sigpending);
    if (::gettid() == ::getpid()) {
        return real(set);
    }
    *set = pending_of_thread();
    return 0;
}
