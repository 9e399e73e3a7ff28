// gate_test.cpp - a gate, and threads that wait until it is open

#include "support/gate.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using zelieml::gate;

TEST(Gate, ThatIsOpenHoldsNobodyUp)
{
    gate g;
    g.open();
    g.wait();
    g.open();
    g.wait();
}

TEST(Gate, HoldsEverybodyUpUntilItIsOpen)
{
    gate                     g;
    std::atomic<bool>        opened{false};
    std::atomic<int>         through{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            g.wait();
            EXPECT_TRUE(opened);
            ++through;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(through, 0);
    opened = true;
    g.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(through, 4);
}

TEST(Gate, CanBeClosedAgain)
{
    gate g;
    g.open();
    g.wait();
    g.close();
    std::atomic<bool> opened{false};
    std::thread       waiting([&] {
        g.wait();
        EXPECT_TRUE(opened);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    opened = true;
    g.open();
    waiting.join();
}

TEST(Gate, ShowsWhatWasDoneBeforeItWasOpened)
{
    for (int again = 0; again < 50; ++again) {
        gate        g;
        int         number = 0;
        std::thread other([&] {
            number = 7;
            g.open();
        });
        g.wait();
        EXPECT_EQ(number, 7);
        other.join();
    }
}
