// liblockw_failure_test.cpp - a mutex that the system refuses
//
// The program is linked so that the library's mutex calls come here first.

#include <cerrno>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <vector>

#include "liblockw/liblockw.h"
#include "support/heap.h"
#include "tests/support/fake_heap.h"
#include "tests/support/trace_recorder.h"

namespace
{

bool             failing_init   = false;
pthread_mutex_t* failing_lock   = nullptr;  // the mutex that it fails for; others are in use too
pthread_mutex_t* failing_unlock = nullptr;

}  // namespace

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes)
{
    return failing_init ? EAGAIN : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    return mutex == failing_lock ? EINVAL : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    int const result = __real_pthread_mutex_unlock(mutex);
    return mutex == failing_unlock ? EPERM : result;
}

}  // extern "C"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

TEST(RefusedMutex, MakesNoLock)
{
    test::clear_traces();
    ilockw object;
    ilock* lock       = &object;
    failing_init      = true;
    int const created = ifactory_lockw().create(&lock);
    failing_init      = false;
    EXPECT_EQ(created, -1);
    EXPECT_EQ(lock, nullptr);
    EXPECT_EQ(test::trouble_traces(), strings{"error:pthread_mutex_init"});
    EXPECT_EQ(test::live_heap_buffers(), 0);
}

TEST(RefusedMutex, KeepsItsMemoryInTheContext)
{
    test::clear_traces();
    ilockw lock;
    failing_init      = true;
    int const created = lock.create_context();
    failing_init      = false;
    EXPECT_EQ(created, -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:pthread_mutex_init"});
    EXPECT_NE(lock.get_context(), nullptr);
    EXPECT_EQ(test::live_heap_buffers(), 1);
    heap_free(lock.get_context());
}

TEST(RefusedMutex, IsReportedByLockAndPassedOnByUnlock)
{
    test::clear_traces();
    ilock* lock = nullptr;
    ASSERT_EQ(ifactory_lockw().create(&lock), 0);
    failing_lock     = lock->get_context();
    int const locked = lock->lock("name");
    failing_lock     = nullptr;
    EXPECT_EQ(locked, -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:_lock"});

    EXPECT_EQ(lock->lock("name"), 0);
    failing_unlock     = lock->get_context();
    int const unlocked = lock->unlock();
    failing_unlock     = nullptr;
    EXPECT_EQ(unlocked, EPERM);
    EXPECT_EQ(ifactory_lockw().destroy(lock), 0);
}

}  // namespace
}  // namespace zelieml
