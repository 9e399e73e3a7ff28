// wake_pipe.h - wakes a thread that waits in poll, from others and from signal handlers

#ifndef ZELIEML_TOOLS_ZELIEML_WAKE_PIPE_H
#define ZELIEML_TOOLS_ZELIEML_WAKE_PIPE_H

#include <cerrno>
#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include "tools/descriptor.h"
#include "tools/zelieml/failure.h"

namespace zelieml::program
{

class wake_pipe
{
public:
    wake_pipe()
    {
        int ends[2];
        if (::pipe(ends) != 0) {
            throw failure(EX_SOFTWARE, "a pipe", errno, "allow the process more descriptors");
        }
        reader_ = descriptor(ends[0]);
        writer_ = descriptor(ends[1]);
        for (int const end : ends) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            ::fcntl(end, F_SETFL, O_NONBLOCK);  // a full pipe has woken the reader already
        }
    }

    // Readable when it has been woken.
    int fd() const { return reader_.get(); }

    // Safe in a signal handler.
    void wake() const
    {
        int const                   before  = errno;
        [[maybe_unused]] auto const written = ::write(writer_.get(), "", 1);
        errno                               = before;
    }

    // Makes it wait for the next time.
    void clear() const
    {
        char any[256];
        while (::read(reader_.get(), any, sizeof any) > 0) {
        }
    }

private:
    descriptor reader_;
    descriptor writer_;
};

}  // namespace zelieml::program

#endif
