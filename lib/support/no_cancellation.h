// no_cancellation.h - a stretch of code in which a thread cannot be cancelled
//
// Opening and closing files, using a stream and looking up a host are places at which a cancelled
// thread ends. In a destructor, or inside the C and C++ libraries, that would end the whole process
// instead, or leave a descriptor behind. Waiting for a server is where it may end.

#ifndef ZELIEML_SUPPORT_NO_CANCELLATION_H
#define ZELIEML_SUPPORT_NO_CANCELLATION_H

#include <pthread.h>
#include <unistd.h>

namespace zelieml
{

// For the length of its scope a request to cancel this thread waits.
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

// close_descriptor - close, wherever it stands. Returns what close returns, with errno.
inline int close_descriptor(int fd)
{
    no_cancellation const shielded;
    return ::close(fd);
}

}  // namespace zelieml

#endif
