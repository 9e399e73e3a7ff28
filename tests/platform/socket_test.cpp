// With waits that pass at once when a test says so; wait_test has the real ones, signals included.

#include "platform/socket.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

#include "support/unique_fd.h"
#include "tests/support/closed_standard.h"
#include "tests/support/fake_clock.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/files.h"
#include "tests/support/peers.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"

namespace
{

// The next connect of the program begins as usual, and then says that a signal cut it short.
std::atomic<bool> interrupt_connect{false};

}  // namespace

#define TEXT_OF(token)       #token
#define SYMBOL(prefix, name) TEXT_OF(prefix) name

// The linker takes the program's own connect before the system's.
int program_connect(int fd, sockaddr const* peer,
                    socklen_t size) __asm__(SYMBOL(__USER_LABEL_PREFIX__, "connect"));

int program_connect(int fd, sockaddr const* peer, socklen_t size)
{
    using function     = int (*)(int, sockaddr const*, socklen_t);
    auto const systems = reinterpret_cast<function>(::dlsym(RTLD_NEXT, "connect"));
    int const  result  = systems(fd, peer, size);
    if (interrupt_connect.exchange(false)) {
        errno = EINTR;
        return -1;
    }
    return result;
}

namespace zelieml::test
{

namespace
{

constexpr int one_second_us = 1000000;

int option_of(int fd, int level, int name)
{
    int       value = -1;
    socklen_t size  = sizeof value;
    ::getsockopt(fd, level, name, &value, &size);
    return value;
}

sockaddr_in loopback(std::uint16_t port)
{
    return platform::ipv4_peer(htonl(INADDR_LOOPBACK), htons(port));
}

TEST(PlatformSocket, IsATcpSocketThatIsNeitherDelayedNorInherited)
{
    unique_fd const fd(platform::open_stream_socket());
    ASSERT_TRUE(fd);
    EXPECT_EQ(option_of(fd.get(), SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_NE(option_of(fd.get(), IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0) << "until it is connected";
}

TEST(PlatformSocket, KeepsClearOfTheStandardDescriptors)
{
    EXPECT_TRUE(keeps_clear_of_standard([] {
        unique_fd const fd(platform::open_stream_socket());
        return fd && option_of(fd.get(), SOL_SOCKET, SO_TYPE) == SOCK_STREAM &&
               ::fcntl(0, F_GETFD) == -1;
    }));
}

TEST(PlatformSocket, SaysWhenThereIsNone)
{
    int fd    = 0;
    int error = 0;
    {
        few_descriptors const none(0);
        fd    = platform::open_stream_socket();
        error = errno;
    }
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(error, EMFILE);
}

TEST(PlatformSocket, TakesAddressAndPortInNetworkByteOrder)
{
    sockaddr_in const peer = platform::ipv4_peer(::inet_addr("192.0.2.10"), htons(25));
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(peer.sin_port, htons(25));
    EXPECT_STREQ(::inet_ntoa(peer.sin_addr), "192.0.2.10");
}

class PlatformConnect : public testing::Test
{
protected:
    PlatformConnect() { reset_waits(true); }

    unique_fd const fd{platform::open_stream_socket()};
};

TEST_F(PlatformConnect, LeavesTheSocketBlocking)
{
    listening_socket const door;
    EXPECT_EQ(platform::connect_within(fd.get(), loopback(door.port()), one_second_us), 0);
    EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(door.accept());
}

TEST_F(PlatformConnect, FailsWhenThePeerRefuses)
{
    closed_port const port;
    EXPECT_EQ(platform::connect_within(fd.get(), loopback(port.number()), one_second_us), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(PlatformConnect, GivesUpWhenTheTimeIsOver)
{
    silent_port const port;
    never_writable(true);
    EXPECT_EQ(platform::connect_within(fd.get(), loopback(port.number()), 12345678), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(waits().writable_waits, std::vector<int>{12345678});
}

TEST_F(PlatformConnect, GoesOnWhenThePeerTakesItsTime)
{
    silent_port     port;
    thread_id const connecting = this_thread();
    std::thread     host([&] {
        EXPECT_TRUE(wait_until_blocked(connecting));
        port.open();
    });
    EXPECT_EQ(platform::connect_within(fd.get(), loopback(port.number()), 20 * one_second_us), 0);
    EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(waits().writable_waits, std::vector<int>{20 * one_second_us});
    host.join();
}

// Systems differ in whether a signal can do that to a socket that does not block.
TEST_F(PlatformConnect, GoesOnWhenASignalCutsTheConnectShort)
{
    listening_socket const door;
    interrupt_connect = true;
    EXPECT_EQ(platform::connect_within(fd.get(), loopback(door.port()), one_second_us), 0);
    EXPECT_FALSE(interrupt_connect);
    EXPECT_EQ(waits().writable_waits, std::vector<int>{one_second_us});
    EXPECT_TRUE(door.accept());
}

TEST_F(PlatformConnect, FailsForADescriptorThatIsNotOpen)
{
    listening_socket const door;
    EXPECT_EQ(platform::connect_within(-1, loopback(door.port()), one_second_us), -1);
    EXPECT_EQ(errno, EBADF);
}

// The sockets of the library, on either side of a connection.
struct connection {
    connection()
    {
        listening_socket const door;
        platform::connect_within(client.get(), loopback(door.port()), one_second_us);
        server = door.accept();
    }

    std::string heard(int flags) const
    {
        char          bytes[256];
        ssize_t const length = ::recv(server.get(), bytes, sizeof bytes, flags);
        return std::string(bytes, length > 0 ? static_cast<std::size_t>(length) : 0);
    }

    unique_fd client{platform::open_stream_socket()};
    unique_fd server;
};

ssize_t send_text(int fd, char const* text)
{
    return platform::send_bytes(fd, text, std::strlen(text));
}

TEST(PlatformSend, SaysHowManyBytesWereTaken)
{
    connection const c;
    EXPECT_EQ(send_text(c.client.get(), "hello"), 5);
    EXPECT_EQ(c.heard(0), "hello");
}

TEST(PlatformSend, RaisesNoSignalWhenNobodyListens)
{
    std::signal(SIGPIPE, SIG_DFL);
    connection c;
    break_connection(c.server);
    send_text(c.client.get(), "may still be taken");
    EXPECT_EQ(send_text(c.client.get(), "not any more"), -1);
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << errno;

    ::shutdown(c.client.get(), SHUT_WR);
    EXPECT_EQ(send_text(c.client.get(), "nor after the end"), -1);
}

TEST(PlatformSend, FailsForADescriptorThatIsNotOpen)
{
    EXPECT_EQ(send_text(-1, "hello"), -1);
    EXPECT_EQ(errno, EBADF);
}

ssize_t send_pieces(int fd)
{
    char  one[]    = "one ";
    char  two[]    = "two";
    iovec pieces[] = {{one, 4}, {nullptr, 0}, {two, 3}};
    return platform::send_pieces(fd, pieces, 3);
}

TEST(PlatformSend, SendsPiecesInOrder)
{
    connection const c;
    EXPECT_EQ(send_pieces(c.client.get()), 7);
    EXPECT_EQ(c.heard(0), "one two");
}

TEST(PlatformSend, RaisesNoSignalWhenNobodyListensToPieces)
{
    std::signal(SIGPIPE, SIG_DFL);
    connection c;
    ::shutdown(c.client.get(), SHUT_WR);
    EXPECT_EQ(send_pieces(c.client.get()), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST(PlatformSend, FailsForPiecesToADescriptorThatIsNotOpen)
{
    EXPECT_EQ(send_pieces(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

class PlatformPair : public testing::Test
{
protected:
    PlatformPair() { EXPECT_EQ(platform::open_local_pair(one, other), 0); }

    // What poll_pair says of one of them.
    short told(short events, int ms)
    {
        pollfd entry = {one.get(), events, 0};
        ready        = platform::poll_pair(&entry, 1, ms);
        return entry.revents;
    }

    unique_fd one;
    unique_fd other;
    int       ready = -1;
};

TEST_F(PlatformPair, HangsUpWhenTheOtherEndIsClosed)
{
    std::thread closing([&] {
        wait_ms(50);
        other.reset();
    });
    EXPECT_EQ(told(0, -1), POLLHUP);
    EXPECT_EQ(ready, 1);
    closing.join();
    EXPECT_EQ(told(POLLIN, -1), POLLIN | POLLHUP);
}

TEST_F(PlatformPair, DoesNotHangUpWhenTheOtherEndSendsNoMore)
{
    send_text(other.get(), "x");
    ::shutdown(other.get(), SHUT_WR);
    EXPECT_EQ(told(POLLIN, -1), POLLIN);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(told(POLLOUT, -1), POLLOUT);
}

TEST_F(PlatformPair, WaitsAsLongAsItIsTold)
{
    using std::chrono::steady_clock;
    steady_clock::time_point const begin = steady_clock::now();
    EXPECT_EQ(told(0, 600), 0);
    EXPECT_EQ(ready, 0);
    EXPECT_GE(steady_clock::now() - begin, std::chrono::milliseconds(600));
}

}  // namespace

}  // namespace zelieml::test
