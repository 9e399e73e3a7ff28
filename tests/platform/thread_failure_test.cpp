// thread_failure_test.cpp - a system that has no threads to give
//
// The program is linked so that pthread_create comes here first.

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>

#include "platform/thread.h"

namespace
{

bool no_threads = false;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                          void* argument)
{
    return no_threads ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}

}  // extern "C"

namespace zelieml::test
{
namespace
{

void* count_call(void* calls)
{
    ++*static_cast<int*>(calls);
    return nullptr;
}

TEST(ThreadWithoutSignals, IsNotToBeHadWhenTheSystemHasNone)
{
    sigset_t mask;
    sigset_t before;
    ::sigemptyset(&mask);
    ::sigaddset(&mask, SIGUSR2);
    ::pthread_sigmask(SIG_SETMASK, &mask, &before);

    int       calls  = 0;
    pthread_t thread = {};
    no_threads       = true;
    EXPECT_EQ(platform::start_thread_without_signals(thread, count_call, &calls), -1);
    no_threads = false;

    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(::sigismember(&after, SIGUSR2), 1) << "the mask is the caller's again";
    EXPECT_EQ(::sigismember(&after, SIGUSR1), 0);

    EXPECT_EQ(platform::start_thread_without_signals(thread, count_call, &calls), 0);
    ::pthread_join(thread, nullptr);
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace zelieml::test
