// unique_fd.h - a descriptor that closes itself

#ifndef ZELIEML_SUPPORT_UNIQUE_FD_H
#define ZELIEML_SUPPORT_UNIQUE_FD_H

#include <fcntl.h>
#include <unistd.h>

#include "support/no_cancellation.h"

namespace zelieml
{

class unique_fd
{
public:
    explicit unique_fd(int fd = -1) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~unique_fd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int      get() const { return fd_; }

    // Hands the descriptor over to the caller.
    int release()
    {
        int const fd = fd_;
        fd_          = -1;
        return fd;
    }

    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            close_descriptor(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_;
};

// above_standard - a descriptor with a number of its own
//
// In a host that has closed 0 to 2 a new descriptor gets one of these numbers, and with it all that
// is printed there.
//
// Returns fd, or instead of a standard one a copy of it; nothing when there is no other number.
inline unique_fd above_standard(unique_fd fd)
{
    if (!fd || fd.get() > STDERR_FILENO) {
        return fd;
    }
    return unique_fd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace zelieml

#endif
