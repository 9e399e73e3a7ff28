// macos_zone_lock_test.cpp - the zone's lock in forked children, with the threads that they start

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "platform/zone_lock.h"
#include "support/gate.h"
#include "tests/macos/in_child.h"

namespace zelieml::test
{
namespace
{

// Whether several threads that take the lock again and again are never in it together.
bool threads_exclude_each_other()
{
    std::atomic<int>         inside{0};
    std::atomic<bool>        alone{true};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 200; ++turn) {
                platform::zone_lock const hold;
                if (++inside != 1) {
                    alone = false;
                }
                std::this_thread::yield();
                --inside;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return alone;
}

TEST(ZoneLock, IsHeldByOneThread)
{
    EXPECT_TRUE(threads_exclude_each_other());
}

TEST(ZoneLock, IsHeldByOneThreadOfAForkedChild)
{
    EXPECT_TRUE(in_child(threads_exclude_each_other));
    {
        platform::zone_lock const used;
    }
    EXPECT_TRUE(in_child(threads_exclude_each_other));
}

TEST(ZoneLock, IsToBeHadInAChildOfAProcessWhoseThreadHoldsIt)
{
    gate        taken;
    gate        may_end;
    std::thread holder([&] {
        platform::zone_lock const hold;
        taken.open();
        may_end.wait();
    });
    taken.wait();
    EXPECT_TRUE(in_child(threads_exclude_each_other));
    may_end.open();
    holder.join();
    EXPECT_TRUE(threads_exclude_each_other());
}

}  // namespace
}  // namespace zelieml::test
