// sink_server.h - what the sinks share: mail servers that keep nothing and answer at once

#ifndef ZELIEML_BENCH_SINK_SERVER_H
#define ZELIEML_BENCH_SINK_SERVER_H

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// Whoever is served; the connection is closed with it.
class sink_client
{
public:
    explicit sink_client(int fd) : fd_(fd) {}
    virtual ~sink_client() { ::close(fd_); }
    sink_client(sink_client const&)            = delete;
    sink_client& operator=(sink_client const&) = delete;

    bool say(std::string_view text)
    {
        return send(text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    // The next command line, without its end. False when the client is gone.
    bool hear(std::string& line)
    {
        std::size_t end;
        while ((end = have_.find("\r\n")) == have_.npos) {
            if (!hear_more()) {
                return false;
            }
        }
        line = have_.substr(0, end);
        have_.erase(0, end + 2);
        return true;
    }

    // Hears a mail to its end, and forgets it.
    bool hear_mail()
    {
        static constexpr std::string_view end = "\r\n.\r\n";
        have_.insert(0, "\r\n");
        std::size_t at;
        while ((at = have_.find(end)) == have_.npos) {
            if (have_.size() > end.size()) {
                have_.erase(0, have_.size() - end.size());
            }
            if (!hear_more()) {
                return false;
            }
        }
        have_.erase(0, at + end.size());
        return true;
    }

protected:
    int fd() const { return fd_; }

    virtual ssize_t send(char const* bytes, std::size_t size)
    {
        return ::send(fd_, bytes, size, MSG_NOSIGNAL);
    }
    virtual ssize_t receive(char* bytes, std::size_t size) { return ::recv(fd_, bytes, size, 0); }

private:
    bool hear_more()
    {
        static thread_local char bytes[1 << 18];
        ssize_t const            got = receive(bytes, sizeof bytes);
        if (got <= 0) {
            return false;
        }
        have_.append(bytes, static_cast<std::size_t>(got));
        return true;
    }

    int const   fd_;
    std::string have_;
};

inline bool begins(std::string const& line, std::string_view verb)
{
    return ::strncasecmp(line.c_str(), verb.data(), verb.size()) == 0;
}

// Listens on a free port, which is returned, and serves whoever comes, each in a thread. Ends the
// program on failure.
inline int listen_for(std::function<void(int)> const& serve)
{
    sockaddr_in own     = {};
    own.sin_family      = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size      = sizeof own;
    int const fd        = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&own), size) != 0 ||
        ::listen(fd, 1024) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size) != 0) {
        std::perror("a port to listen at");
        std::exit(1);
    }
    std::thread([fd, serve] {
        for (int one; (one = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            int const on = 1;
            ::setsockopt(one, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            std::thread([one, serve] { serve(one); }).detach();
        }
    }).detach();
    return ntohs(own.sin_port);
}

// Writes what is ready into a file, at once, and never returns. Ends the program on failure.
[[noreturn]] inline void serve_for_ever(std::string const& ready_file, std::string const& ready)
{
    std::string const temporary = ready_file + ".new";
    FILE* const       file      = std::fopen(temporary.c_str(), "w");
    if (file == nullptr || std::fprintf(file, "%s\n", ready.c_str()) < 0 ||
        std::fclose(file) != 0 || std::rename(temporary.c_str(), ready_file.c_str()) != 0) {
        std::perror(ready_file.c_str());
        std::exit(1);
    }
    for (;;) {
        ::pause();
    }
}

#endif
