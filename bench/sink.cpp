// sink.cpp - a mail server that is in nobody's way: it keeps nothing and answers at once
//
//     sink READY-FILE [MAILS]
//
// Takes ports of 127.0.0.1, writes "SMTP-PORT POP-PORT" into READY-FILE and serves until it is
// killed. SMTP (RFC 5321) takes every mail of any size and any number of recipients; POP3
// (RFC 1939) has MAILS mails, all the same, and takes any login.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "bench/sink_server.h"

namespace
{

void serve_smtp(int fd)
{
    sink_client peer(fd);
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
    sink_client peer(fd);
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

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "use: sink READY-FILE [MAILS]\n");
        return 2;
    }
    mails_left     = argc > 2 ? std::atol(argv[2]) : 0;
    int const smtp = listen_for(serve_smtp);
    int const pop  = listen_for(serve_pop);
    serve_for_ever(argv[1], std::to_string(smtp) + " " + std::to_string(pop));
}
