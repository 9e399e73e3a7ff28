// liblockw_test.cpp - the lock around the settings file

#include "liblockw/liblockw.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/fake_heap.h"
#include "tests/support/slot.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

class Lock : public testing::Test
{
protected:
    void SetUp() override
    {
        test::fail_heap_after(-1);
        test::clear_traces();
    }

    void TearDown() override
    {
        test::fail_heap_after(-1);
        EXPECT_EQ(test::live_heap_buffers(), 0);
    }
};

TEST_F(Lock, IsMadeTakenGivenBackAndFreed)
{
    ilock* lock = nullptr;
    ASSERT_EQ(ifactory_lockw().create(&lock), 0);
    ASSERT_NE(lock, nullptr);
    EXPECT_NE(lock->get_context(), nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(lock->lock("name"), 0);
        EXPECT_EQ(lock->unlock(), 0);
    }
    EXPECT_EQ(ifactory_lockw().destroy(lock), 0);
    EXPECT_EQ(test::traces(), strings()) << "the whole sequence";
}

TEST_F(Lock, IsTheObjectsOwnWhateverTheName)
{
    ilock* one = nullptr;
    ilock* two = nullptr;
    ASSERT_EQ(ifactory_lockw().create(&one), 0);
    ASSERT_EQ(ifactory_lockw().create(&two), 0);
    for (char const* name : {"same", "", static_cast<char const*>(nullptr)}) {
        EXPECT_EQ(one->lock(name), 0);
        EXPECT_EQ(::pthread_mutex_trylock(one->get_context()), EBUSY) << "its own mutex is taken";
        EXPECT_EQ(two->lock(name), 0) << "the other one is free, whatever it is called";
        EXPECT_EQ(two->unlock(), 0);
        EXPECT_EQ(one->unlock(), 0);
    }
    EXPECT_EQ(ifactory_lockw().destroy(one), 0);
    EXPECT_EQ(ifactory_lockw().destroy(two), 0);
}

TEST_F(Lock, KeepsThreadsApartThatShareIt)
{
    ilock* lock = nullptr;
    ASSERT_EQ(ifactory_lockw().create(&lock), 0);
    int                      count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                lock->lock("different names too");
                ++count;
                lock->unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 4000);
    EXPECT_EQ(ifactory_lockw().destroy(lock), 0);
}

TEST_F(Lock, ThatIsNullIsNotDestroyed)
{
    EXPECT_EQ(ifactory_lockw().destroy(nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:lock == 0"});
}

TEST_F(Lock, IsNotMadeWithoutMemory)
{
    ilockw object;
    ilock* lock = &object;
    test::fail_heap_after(0);
    EXPECT_EQ(ifactory_lockw().create(&lock), -1);
    EXPECT_EQ(lock, nullptr);
    EXPECT_EQ(object.create_context(), -1);
    EXPECT_EQ(object.get_context(), nullptr);
    EXPECT_EQ(ifactory_lockw().create(nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings());
}

TEST_F(Lock, WithoutContextFails)
{
    ilockw lock;
    EXPECT_EQ(lock.get_context(), nullptr);
    EXPECT_EQ(lock.lock("name"), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:_lock"});
    EXPECT_NE(lock.unlock(), 0);
    EXPECT_EQ(lock.destroy_context(), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:_lock"});
}

TEST_F(Lock, KeepsItsContextPointerWhenTheContextIsGone)
{
    ilockw lock;
    ASSERT_EQ(lock.create_context(), 0);
    pthread_mutex_t const* const context = lock.get_context();
    EXPECT_EQ(lock.destroy_context(), 0);
    EXPECT_EQ(lock.get_context(), context);
}

TEST_F(Lock, HasItsOperationsInOneOrder)
{
    EXPECT_EQ(test::slot_of(&ilock::lock), 0);
    EXPECT_EQ(test::slot_of(&ilock::unlock), 1);
    EXPECT_EQ(test::slot_of(&ilock::create_context), 2);
    EXPECT_EQ(test::slot_of(&ilock::destroy_context), 3);
    EXPECT_EQ(test::slot_of(&ilock::get_context), 4);
    EXPECT_EQ(test::slot_of(&ifactory_lock::create), 0);
    EXPECT_EQ(test::slot_of(&ifactory_lock::destroy), 1);
    EXPECT_FALSE(std::has_virtual_destructor<ilock>::value);
    EXPECT_FALSE(std::has_virtual_destructor<ifactory_lock>::value);
}

}  // namespace
}  // namespace zelieml
