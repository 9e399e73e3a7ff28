// mutex_lock.h - a POSIX mutex, held for the length of a scope

#ifndef ZELIEML_SUPPORT_MUTEX_LOCK_H
#define ZELIEML_SUPPORT_MUTEX_LOCK_H

#include <pthread.h>

namespace zelieml
{

class mutex_lock
{
public:
    explicit mutex_lock(pthread_mutex_t& mutex) : mutex_(mutex) { ::pthread_mutex_lock(&mutex_); }
    ~mutex_lock() { ::pthread_mutex_unlock(&mutex_); }
    mutex_lock(mutex_lock const&)            = delete;
    mutex_lock& operator=(mutex_lock const&) = delete;

private:
    pthread_mutex_t& mutex_;
};

}  // namespace zelieml

#endif
