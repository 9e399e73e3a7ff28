// unique_fd.h - a descriptor that closes itself

#ifndef ZELIEML_SUPPORT_UNIQUE_FD_H
#define ZELIEML_SUPPORT_UNIQUE_FD_H

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

}  // namespace zelieml

#endif
