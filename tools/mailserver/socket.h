// socket.h - the sockets of the loopback servers
//
// All descriptors are closed on exec. Nothing here raises SIGPIPE as long as it is blocked, which
// it is in threads made by start_thread.

#ifndef ZELIEML_TOOLS_MAILSERVER_SOCKET_H
#define ZELIEML_TOOLS_MAILSERVER_SOCKET_H

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <string_view>
#include <thread>
#include <utility>

#include "tools/descriptor.h"

namespace zelieml::mailserver
{

// Tells threads that it is time to end, wherever they wait. Any thread; once raised, it stays so.
class stop_signal
{
public:
    stop_signal();

    void raise();

    // Waits until it is raised, but no longer than the time given; true when it is raised.
    bool wait(std::chrono::milliseconds time) const;

    // A descriptor that can be read once the signal is raised, and is never to be read.
    int fd() const { return read_.get(); }

private:
    descriptor read_;
    descriptor write_;
};

// Runs the function on a new thread that leaves all signals to the others.
template <class Function>
std::thread start_thread(Function function)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    // Those that report a fault of the thread itself stay with it.
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) {
        sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_BLOCK, &all, &before);
    std::thread thread(std::move(function));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

// Listens on 127.0.0.1, and only there.
class listener
{
public:
    // Port 0 takes a free one. Throws std::system_error when it cannot listen.
    explicit listener(std::uint16_t port);

    std::uint16_t port() const { return port_; }

    // A descriptor that can be read when someone is waiting to be accepted.
    int fd() const { return fd_.get(); }

    // The next one who waits, without Nagle's algorithm; invalid when nobody does.
    descriptor accept() const;

    // Nobody is heard any more; those who have not been accepted are refused.
    void close() { fd_ = descriptor(); }

private:
    descriptor    fd_;
    std::uint16_t port_ = 0;
};

// Waits for one to come, for the signal, or for the time to pass; true when one has come.
bool wait_for_client(listener const& door, stop_signal const& stop, std::chrono::milliseconds time);

// One connection. All methods are for one thread, except hang_up.
class stream
{
public:
    // Lines longer than this arrive in pieces.
    static constexpr std::size_t max_piece_bytes = 65536;

    enum class arrival {
        line,    // text up to a LF, or a piece of a longer line
        closed,  // the peer closed or broke the connection; text: what it said since the last LF
        silent,  // nothing came for as long as the patience lasts; text: likewise
    };
    struct piece {
        arrival          what;
        std::string_view text;  // good until the next call
    };

    // patience  of every single wait for the peer, to say or to take something
    stream(descriptor fd, std::chrono::milliseconds patience);

    // The next line with its end.
    piece read_line();

    // At least one byte and at most so many, of a line or of several.
    piece read_some(std::size_t max);

    // True when something the peer said waits to be read, or comes within that time.
    bool speaks_within(std::chrono::milliseconds time);

    // Sends all of it. False when the peer is gone or takes nothing any more.
    bool write(std::string_view bytes);

    // Ends our direction; the peer may still speak.
    void end_writing();

    // Ends both directions; a thread in the middle of a read or a write comes back. Any thread.
    void hang_up();

    // Closing, when the object goes, breaks the connection (RST) instead of ending it.
    void break_when_closed();

private:
    // Fills the buffer up; line stands for something came.
    arrival receive();

    descriptor              fd_;
    std::unique_ptr<char[]> buffer_;
    std::size_t             begin_ = 0;
    std::size_t             end_   = 0;
};

}  // namespace zelieml::mailserver

#endif
