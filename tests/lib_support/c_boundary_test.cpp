// c_boundary_test.cpp - exceptions and cancelled threads at the C interface and in a step

#include "support/c_boundary.h"

#include <gtest/gtest.h>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <unistd.h>

namespace zelieml
{
namespace
{

TEST(CBoundary, PassesTheResultOn)
{
    EXPECT_EQ(at_c_boundary(-1, [] { return 5; }), 5);
    char const* const text = "text";
    EXPECT_EQ(at_c_boundary(static_cast<char const*>(nullptr), [&] { return text; }), text);
}

TEST(CBoundary, TurnsWhateverIsThrownIntoTheFailureValue)
{
    EXPECT_EQ(at_c_boundary(-1, []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(at_c_boundary(7, []() -> int { throw std::runtime_error("x"); }), 7);
    EXPECT_EQ(at_c_boundary(0, []() -> int { throw 1; }), 0);
    EXPECT_FALSE(at_c_boundary(false, []() -> bool { throw "text"; }));
}

TEST(ContainedStep, RunsAndDropsItsResult)
{
    int runs = 0;
    contained([&] { return ++runs; });
    EXPECT_EQ(runs, 1);
}

TEST(ContainedStep, EndsAloneWhateverItThrows)
{
    int reached = 0;
    for (int thrown = 0; thrown < 3; ++thrown) {
        EXPECT_NO_THROW(contained([&] {
            reached += 1;
            if (thrown == 0) {
                throw std::bad_alloc();
            }
            if (thrown == 1) {
                throw "text";
            }
            throw thrown;
        }));
    }
    EXPECT_EQ(reached, 3);
}

void wait_for_ever()
{
    for (;;) {
        ::pause();
    }
}

void* wait_at_the_boundary(void* returned)
{
    at_c_boundary(-1, [] {
        wait_for_ever();
        return 0;
    });
    *static_cast<bool*>(returned) = true;
    return nullptr;
}

void* wait_in_a_step(void* returned)
{
    contained(wait_for_ever);
    *static_cast<bool*>(returned) = true;
    return nullptr;
}

// Cancels a thread that waits in body. Returns whether it ended by that, and body did not return.
bool is_cancelled(void* (*body)(void*))
{
    bool      returned = false;
    pthread_t thread   = {};
    void*     result   = nullptr;
    return ::pthread_create(&thread, nullptr, body, &returned) == 0 &&
           ::pthread_cancel(thread) == 0 && ::pthread_join(thread, &result) == 0 &&
           result == PTHREAD_CANCELED && !returned;
}

TEST(CBoundary, LetsACancelledThreadGo)
{
    EXPECT_TRUE(is_cancelled(wait_at_the_boundary));
}

TEST(ContainedStep, LetsACancelledThreadGo)
{
    EXPECT_TRUE(is_cancelled(wait_in_a_step));
}

}  // namespace
}  // namespace zelieml
