// peers.h - the server's end of a connection, without a transcript
//
// For what a written conversation cannot say: bytes that are there before the client asks for
// them, a server that stops reading, the exact bytes of a whole delivery.

#ifndef ZELIEML_TESTS_SUPPORT_PEERS_H
#define ZELIEML_TESTS_SUPPORT_PEERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/unique_fd.h"

namespace zelieml::test
{

// A socket that listens on a free port of 127.0.0.1. Throws std::runtime_error when it cannot.
class listening_socket
{
public:
    // backlog  for listen; 0 is a long one on macOS
    explicit listening_socket(int backlog = 8);

    // In host byte order.
    std::uint16_t port() const { return port_; }
    int           fd() const { return fd_.get(); }

    // The next client, who must have come already or come within 20 s.
    unique_fd accept() const;

private:
    unique_fd     fd_;
    std::uint16_t port_ = 0;
};

// Binds a socket to a free port of 127.0.0.1, and returns it. Throws std::runtime_error when it
// cannot.
std::uint16_t bind_somewhere(int fd);

// A port of 127.0.0.1 that does not answer: a connect stays in progress until somebody opens the
// port and the system has tried again, which takes a second.
//
// linux/silent_port.cpp: its listening socket has its queue full.
// macos/silent_port.cpp: nobody listens there. A full queue may break connections.
class silent_port
{
public:
    silent_port();
    std::uint16_t number() const { return number_; }

    void open();

private:
    unique_fd              door_;
    std::uint16_t          number_;
    std::vector<unique_fd> guests_;
};

// Sends all of it, or as much as a client that is there takes.
void send_all(int fd, std::string const& bytes);

// Fills what the system holds for a peer that does not read. There may be room again when bytes have
// moved on to the peer's side, which takes its time.
//
// Returns how many bytes it took. The descriptor is non-blocking then.
std::size_t send_until_full(int fd);

// Closes a connection by breaking it (RST).
void break_connection(unique_fd& fd);

// A TCP connection with both ends in the test's hands.
class tcp_pair
{
public:
    tcp_pair();

    // A socket of the library.
    int client() const { return client_.get(); }
    // The client's end for code that closes it.
    int release_client() { return client_.release(); }
    int server() const { return server_.get(); }

    // The server sends bytes, and they are with the client when this returns. Up to some 50 KB, and
    // the client must not read meanwhile.
    void say(std::string const& bytes);
    // The server sends bytes to a client that reads meanwhile.
    void say_along(std::string const& bytes) { send_all(server_.get(), bytes); }
    // All that the client has sent so far.
    std::string heard();
    // All up to the end of the stream, which must come within 20 s; adds "(broken)" when the
    // client broke the connection instead of ending it.
    std::string heard_to_the_end();

    // Returns when the client's system takes no more bytes, so that a write there waits. Until then
    // the server must not read, and the client must go on writing.
    void wait_until_client_is_stuck() const;

    void server_closes() { server_.reset(); }
    // The client's system knows of it when this returns.
    void server_resets();

private:
    unique_fd client_;
    unique_fd server_;
};

// A port of 127.0.0.1 that refuses everybody: nobody listens there, and no other program gets it
// while the object lives. A connection holds it, since macOS does not answer at a port that is bound
// and that is all.
class closed_port
{
public:
    closed_port();
    std::uint16_t number() const { return number_; }

private:
    tcp_pair      holders_;
    std::uint16_t number_;
};

// A server that answers at once, each line with the next of its replies, and keeps every byte it
// hears. Takes one client.
class recording_server
{
public:
    // replies     with their CR LF. The first is the greeting. The one after a reply that begins
    //             with "354" answers a whole mail text. When none is left, what the client says
    //             is heard to its end.
    // on_silence  called when a reply is due and none is left, on the server's thread
    explicit recording_server(std::vector<std::string> replies,
                              std::function<void()>    on_silence = nullptr);
    // Waits for the client to end the connection, at most 20 s after its last sign of life.
    ~recording_server();
    recording_server(recording_server const&)            = delete;
    recording_server& operator=(recording_server const&) = delete;

    std::uint16_t port() const { return door_.port(); }

    // All bytes the client sent. Waits like the destructor; adds "(broken)" when the client broke
    // the connection, "(left open)" when it did not end.
    std::string const& bytes();

private:
    void serve();

    listening_socket         door_;
    std::vector<std::string> replies_;
    std::function<void()>    on_silence_;
    std::atomic<bool>        nobody_comes_{false};
    std::string              bytes_;
    std::thread              thread_;
};

}  // namespace zelieml::test

#endif
