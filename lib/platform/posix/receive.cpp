// receive.cpp - recv, repeated when a signal cuts it short

#include <sys/socket.h>

#include "platform/posix/uninterrupted.h"
#include "platform/socket.h"

namespace zelieml::platform
{

ssize_t receive_bytes(int fd, void* data, std::size_t size)
{
    return uninterrupted([&] { return ::recv(fd, data, size, 0); });
}

}  // namespace zelieml::platform
