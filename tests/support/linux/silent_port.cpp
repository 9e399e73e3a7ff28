#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/socket.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

silent_port::silent_port()
    : door_(::socket(AF_INET, SOCK_STREAM, 0)), number_(bind_somewhere(door_.get()))
{
    ::fcntl(door_.get(), F_SETFL, O_NONBLOCK);
    ::listen(door_.get(), 1);
    sockaddr_in const address = platform::ipv4_peer(htonl(INADDR_LOOPBACK), htons(number_));
    for (int i = 0; i < 16; ++i) {
        guests_.emplace_back(platform::open_stream_socket());
        ::connect(guests_.back().get(), reinterpret_cast<sockaddr const*>(&address),
                  sizeof address);
    }
}

void silent_port::open()
{
    guests_.clear();
    while (unique_fd(::accept(door_.get(), nullptr, nullptr))) {
    }
}

}  // namespace zelieml::test
