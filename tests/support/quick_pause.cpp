// quick_pause.cpp - replaces the pause of the workers: a second of theirs lasts a millisecond
//
// Half-hourly looks into the work directory then come every two seconds, while the clock, the
// threads and the processes are the real ones.

#include <fcntl.h>
#include <unistd.h>

#include "platform/pause.h"
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
    return ::fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0;
}

void pause::wait(int ms)
{
    wait_readable(read_end_.get(), ms);  // microseconds
}

void pause::end()
{
    char const    any     = 0;
    ssize_t const written = ::write(write_end_.get(), &any, 1);
    (void)written;
}

}  // namespace zelieml::platform
