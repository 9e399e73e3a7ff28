#include "tests/support/scripted_client.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <netinet/in.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <utility>

#include "tests/support/transcript.h"
#include "tools/mailserver/text.h"

namespace zelieml::test
{

using mailserver::stream;

stream connect_to(std::uint16_t port, std::chrono::milliseconds patience)
{
    // When the server has closed, a write fails.
    std::signal(SIGPIPE, SIG_IGN);
    descriptor  fd(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in peer     = {};
    peer.sin_family      = AF_INET;
    peer.sin_port        = htons(port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0) {
        throw std::system_error(errno, std::generic_category(), "connect");
    }
    return stream(std::move(fd), patience);
}

std::string hear_all(stream& server)
{
    std::string all;
    for (;;) {
        stream::piece const piece = server.read_line();
        all += piece.text;
        if (piece.what != stream::arrival::line) {
            return all + (piece.what == stream::arrival::silent ? "(silent)" : "");
        }
    }
}

std::string hear_line(stream& server)
{
    std::string line;
    for (;;) {
        stream::piece const piece = server.read_line();
        line += piece.text;
        if (piece.what != stream::arrival::line) {
            return line + (piece.what == stream::arrival::silent ? "(silent)" : "(closed)");
        }
        if (mailserver::ends_with(line, "\n")) {
            return std::string(mailserver::without_line_end(line));
        }
    }
}

dialogue talk(std::uint16_t port, std::string const& transcript)
{
    stream server = connect_to(port);
    return talk(server, transcript);
}

dialogue talk(stream& server, std::string const& transcript)
{
    dialogue           result;
    std::istringstream in(transcript);
    std::string        line;
    while (result.came == result.wanted && std::getline(in, line)) {
        line.erase(0, line.find_first_not_of(' '));
        std::string_view       rest = line;
        std::string_view const mark = mailserver::take_word(rest);
        std::string            came = line;
        if (mark == "S:") {
            pattern const     text(rest == "(closes)" ? "(closed)" : rest);
            std::string const heard = hear_line(server);
            if (!text.matches(heard, "")) {
                came = "S: " + mailserver::visible(heard);
            }
        } else if (line == "C: (closes)") {
            server.end_writing();
        } else if (mark == "C:" || mark == "C-") {
            server.write(pattern(rest).bytes("") + (mark == "C:" ? "\r\n" : ""));
        } else if (!mark.empty()) {
            throw std::invalid_argument("not for a client: " + line);
        }
        result.came += came + "\n";
        result.wanted += line + "\n";
    }
    return result;
}

}  // namespace zelieml::test
