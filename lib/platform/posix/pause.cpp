// pause.cpp - a pipe that is readable when no wait is to last

#include "platform/pause.h"

#include <fcntl.h>

#include "platform/wait.h"

namespace zelieml::platform
{

bool pause::open()
{
    int ends[2];
    if (::pipe(ends) != 0) {
        return false;
    }
    read_end_.reset(ends[0]);
    write_end_.reset(ends[1]);
    return ::fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 &&
           ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0;
}

void pause::wait(int ms)
{
    wait_readable(read_end_.get(), ms * 1000);
}

void pause::end()
{
    char const    any     = 0;
    ssize_t const written = ::write(write_end_.get(), &any, 1);
    (void)written;  // a pipe that is too full for it is readable as well
}

}  // namespace zelieml::platform
