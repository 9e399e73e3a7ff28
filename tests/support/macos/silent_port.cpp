#include <sys/socket.h>

#include "tests/support/peers.h"

namespace zelieml::test
{

silent_port::silent_port()
    : door_(::socket(AF_INET, SOCK_STREAM, 0)), number_(bind_somewhere(door_.get()))
{
}

void silent_port::open()
{
    ::listen(door_.get(), 1);
}

}  // namespace zelieml::test
