// no_cancellation.h - a scope in which the thread cannot be cancelled
//
// Opening and closing files, using a stream and looking up a host are cancellation points. In a
// destructor, or inside the C and C++ libraries, cancellation there would end the whole process or
// leak a descriptor. So a thread is only cancelled while it waits for a server.

#ifndef ZELIEML_SUPPORT_NO_CANCELLATION_H
#define ZELIEML_SUPPORT_NO_CANCELLATION_H

#include <cerrno>
#include <pthread.h>
#include <unistd.h>

namespace zelieml
{

// A request to cancel this thread waits until the object is gone.
class no_cancellation
{
public:
    no_cancellation() { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~no_cancellation() { ::pthread_setcancelstate(before_, nullptr); }
    no_cancellation(no_cancellation const&)            = delete;
    no_cancellation& operator=(no_cancellation const&) = delete;

private:
    int before_ = 0;
};

// close_descriptor - close without being cancelled. Returns what close returns, with errno.
inline int close_descriptor(int fd)
{
    no_cancellation const shielded;
    return ::close(fd);
}

// close_written - close a file that was written, without being cancelled
//
// Returns false, with errno, when what was written may not be in the file. A signal that cuts the
// call short is no error: the descriptor is closed by then, and nothing is lost.
inline bool close_written(int fd)
{
    return close_descriptor(fd) == 0 || errno == EINTR;
}

}  // namespace zelieml

#endif
