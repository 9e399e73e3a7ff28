// pause.cpp - a pipe that becomes readable when waits are to end

#include "platform/pause.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/wait.h"

namespace zelieml::platform
{

bool pause::open()
{
    int ends[2];
    if (::pipe(ends) != 0) {
        return false;
    }
    read_end_  = above_standard(unique_fd(ends[0]));
    write_end_ = above_standard(unique_fd(ends[1]));
    return read_end_ && write_end_ && ::fcntl(read_end_.get(), F_SETFD, FD_CLOEXEC) == 0 &&
           ::fcntl(write_end_.get(), F_SETFD, FD_CLOEXEC) == 0 &&
           ::fcntl(write_end_.get(), F_SETFL, O_NONBLOCK) == 0;
}

void pause::wait(int ms)
{
    wait_readable(read_end_.get(), ms * 1000);
}

void pause::end()
{
    char const    any     = 0;
    ssize_t const written = ::write(write_end_.get(), &any, 1);
    (void)written;  // when the pipe is full it is readable anyway
}

}  // namespace zelieml::platform
