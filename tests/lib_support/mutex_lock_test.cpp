// mutex_lock_test.cpp - a mutex held for the length of a scope

#include "support/mutex_lock.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

using zelieml::mutex_lock;

namespace
{

bool is_free(pthread_mutex_t& mutex)
{
    bool free = false;
    std::thread([&] {
        free = ::pthread_mutex_trylock(&mutex) == 0;
        if (free) {
            ::pthread_mutex_unlock(&mutex);
        }
    }).join();
    return free;
}

}  // namespace

TEST(MutexLock, HoldsItUntilTheScopeEnds)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        mutex_lock const hold(mutex);
        EXPECT_FALSE(is_free(mutex));
    }
    EXPECT_TRUE(is_free(mutex));
    EXPECT_THROW(
        {
            mutex_lock const hold(mutex);
            throw std::runtime_error("on the way");
        },
        std::runtime_error);
    EXPECT_TRUE(is_free(mutex));
}

TEST(MutexLock, KeepsTwoThreadsApart)
{
    pthread_mutex_t          mutex  = PTHREAD_MUTEX_INITIALIZER;
    int                      number = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 1000; ++k) {
                mutex_lock const hold(mutex);
                ++number;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(number, 4000);
}
