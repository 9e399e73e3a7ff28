// sink.cpp - a mail server that is in nobody's way: it keeps nothing and answers at once
//
//     sink READY-FILE [MAILS]
//
// Takes ports of 127.0.0.1, writes "SMTP-PORT POP-PORT" into READY-FILE and serves until it is
// killed. SMTP (RFC 5321) takes every mail of any size and any number of recipients; POP3
// (RFC 1939) has MAILS mails, all the same, and takes any login.

#include <arpa/inet.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{

class client
{
public:
    explicit client(int fd) : fd_(fd) {}
    ~client() { ::close(fd_); }
    client(client const&)            = delete;
    client& operator=(client const&) = delete;

    bool say(std::string_view text) const
    {
        return ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }

    // The next command line, without its end. False when the client is gone.
    bool hear(std::string& line)
    {
        std::size_t end;
        while ((end = have_.find("\r\n")) == have_.npos) {
            if (!receive()) {
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
            if (!receive()) {
                return false;
            }
        }
        have_.erase(0, at + end.size());
        return true;
    }

private:
    bool receive()
    {
        static thread_local char bytes[1 << 18];
        ssize_t const            got = ::recv(fd_, bytes, sizeof bytes, 0);
        if (got <= 0) {
            return false;
        }
        have_.append(bytes, static_cast<std::size_t>(got));
        return true;
    }

    int const   fd_;
    std::string have_;
};

bool begins(std::string const& line, char const* verb)
{
    return ::strncasecmp(line.c_str(), verb, std::strlen(verb)) == 0;
}

void serve_smtp(int fd)
{
    client      peer(fd);
    std::string line;
    bool        going = peer.say("220 sink\r\n");
    while (going && peer.hear(line)) {
        if (begins(line, "data")) {
            going = peer.say("354 go on\r\n") && peer.hear_mail() && peer.say("250 forgotten\r\n");
        } else if (begins(line, "quit")) {
            peer.say("221 bye\r\n");
            return;
        } else {
            going = peer.say("250 yes\r\n");
        }
    }
}

std::atomic<long> mails_left{0};

constexpr std::string_view mail = "Date: Sat, 21 Nov 2026 10:00:00 -0000\r\n"
                                  "From: Printer 7 <printer7@office.test>\r\n"
                                  "To: anna@office.test\r\n"
                                  "Subject: Printer 7: tray 2 is empty\r\n"
                                  "\r\n"
                                  "tray 2 is empty, please refill.\r\n"
                                  ".\r\n";

void serve_pop(int fd)
{
    client      peer(fd);
    std::string line;
    bool        going = peer.say("+OK sink\r\n");
    while (going && peer.hear(line)) {
        if (begins(line, "stat")) {
            going = peer.say("+OK " + std::to_string(mails_left) + " " +
                             std::to_string(mails_left * static_cast<long>(mail.size())) + "\r\n");
        } else if (begins(line, "retr")) {
            going = peer.say("+OK\r\n") && peer.say(mail);
        } else if (begins(line, "dele")) {
            --mails_left;
            going = peer.say("+OK\r\n");
        } else if (begins(line, "quit")) {
            peer.say("+OK bye\r\n");
            return;
        } else {
            going = peer.say("+OK\r\n");
        }
    }
}

// Listens on a free port, which is returned, and serves whoever comes. Ends the program on failure.
int listen_for(void (*serve)(int))
{
    sockaddr_in own     = {};
    own.sin_family      = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size      = sizeof own;
    int const fd        = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&own), size) != 0 ||
        ::listen(fd, 1024) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size) != 0) {
        std::perror("sink");
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

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "use: sink READY-FILE [MAILS]\n");
        return 2;
    }
    mails_left                  = argc > 2 ? std::atol(argv[2]) : 0;
    int const         smtp      = listen_for(serve_smtp);
    int const         pop       = listen_for(serve_pop);
    std::string const temporary = std::string(argv[1]) + ".new";
    FILE* const       ready     = std::fopen(temporary.c_str(), "w");
    if (ready == nullptr || std::fprintf(ready, "%d %d\n", smtp, pop) < 0 ||
        std::fclose(ready) != 0 || std::rename(temporary.c_str(), argv[1]) != 0) {
        std::perror("sink");
        return 1;
    }
    for (;;) {
        ::pause();
    }
}
