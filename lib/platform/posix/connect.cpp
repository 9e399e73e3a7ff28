// connect.cpp - connecting with a time limit

#include "platform/socket.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/wait.h"

namespace zelieml::platform
{

namespace
{

// Waits for a connect in progress. Returns 0, or -1 with errno.
int finish_connect(int fd, int max_us)
{
    if (!wait_writable(fd, max_us)) {
        errno = ETIMEDOUT;
        return -1;
    }
    int       error = 0;
    socklen_t size  = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return -1;
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

}  // namespace

int connect_within(int fd, sockaddr_in const& peer, int max_us)
{
    if (::connect(fd, reinterpret_cast<sockaddr const*>(&peer), sizeof peer) != 0) {
        // A signal does not abort the attempt: it goes on as one in progress.
        bool const in_progress = errno == EINPROGRESS || errno == EINTR;
        if (!in_progress || finish_connect(fd, max_us) != 0) {
            return -1;
        }
    }
    int non_blocking = 0;
    return ::ioctl(fd, FIONBIO, &non_blocking);
}

}  // namespace zelieml::platform
