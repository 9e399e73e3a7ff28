// liblockw.h - the lock that is taken around each use of the settings file
//
// A mutex within the process. Its name is accepted and not used: locks of the same name do not
// know of each other.

#ifndef ZELIEML_LIBLOCKW_LIBLOCKW_H
#define ZELIEML_LIBLOCKW_LIBLOCKW_H

#include <pthread.h>

namespace zelieml
{

class ilock
{
public:
    // Waits for the mutex and takes it; name may be null. Returns 0, or -1 when that fails or there
    // is no context.
    virtual int lock(char const* name) = 0;

    // Gives the mutex back. Returns what pthread_mutex_unlock returns, or -1 without a context.
    virtual int unlock() = 0;

    // Makes the mutex. Returns 0, or -1 when there is no memory or the mutex cannot be initialised;
    // its memory then stays with the context, to be given back by whoever gives up the object.
    virtual int create_context() = 0;

    // Destroys the mutex and frees its memory. Returns 0, or -1 when there is none. The context
    // pointer stays as it is: the object is to be destroyed next, and nothing else.
    virtual int destroy_context() = 0;

    // The mutex; null until create_context.
    virtual pthread_mutex_t* get_context() = 0;

protected:
    ~ilock() = default;
};

class ilockw final : public ilock
{
public:
    int              lock(char const* name) override;
    int              unlock() override;
    int              create_context() override;
    int              destroy_context() override;
    pthread_mutex_t* get_context() override;

private:
    pthread_mutex_t* mutex_ = nullptr;
};

class ifactory_lock
{
public:
    // Makes a lock, not taken; the caller gives it back with destroy. Returns 0, or -1 with null in
    // *out when it cannot be made.
    virtual int create(ilock** out) = 0;

    // Frees a lock, which no one may hold. Returns 0, or -1 for null.
    virtual int destroy(ilock* lock) = 0;

protected:
    ~ifactory_lock() = default;
};

class ifactory_lockw final : public ifactory_lock
{
public:
    int create(ilock** out) override;
    int destroy(ilock* lock) override;
};

}  // namespace zelieml

#endif
