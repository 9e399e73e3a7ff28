// liblockw.h - the lock around each use of the settings file
//
// A mutex within the process. The name is accepted and not used, so locks of the same name are
// independent: deliberate, see docs/ODDITIES.md.

#ifndef ZELIEML_LIBLOCKW_LIBLOCKW_H
#define ZELIEML_LIBLOCKW_LIBLOCKW_H

#include <pthread.h>

namespace zelieml
{

class ilock
{
public:
    // Waits for the mutex and locks it; name may be null. Returns 0, or -1 when that fails or there
    // is no context.
    virtual int lock(char const* name) = 0;

    // Unlocks the mutex. Returns what pthread_mutex_unlock returns, or -1 without a context.
    virtual int unlock() = 0;

    // Makes the mutex. Returns 0, or -1 when there is no memory or the mutex cannot be initialised.
    // In the second case its memory stays in the context, for the factory to free.
    virtual int create_context() = 0;

    // Destroys the mutex and frees its memory. Returns 0, or -1 when there is no mutex. The context
    // pointer stays unchanged, so the object can only be destroyed after that.
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
    // Makes a lock, unlocked, which the caller frees with destroy. Returns 0, or -1 with null in
    // *out when it cannot be made.
    virtual int create(ilock** out) = 0;

    // Frees a lock, which must be unlocked. Returns 0, or -1 for null.
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
