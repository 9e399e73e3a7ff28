// c_boundary_test.cpp - nothing thrown, and a cancelled thread, at the C interface

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

void* wait_to_be_cancelled(void* returned)
{
    at_c_boundary(-1, [] {
        for (;;) {
            ::pause();
        }
        return 0;
    });
    *static_cast<bool*>(returned) = true;
    return nullptr;
}

TEST(CBoundary, LetsACancelledThreadGo)
{
    bool      returned = false;
    pthread_t thread   = {};
    ASSERT_EQ(::pthread_create(&thread, nullptr, wait_to_be_cancelled, &returned), 0);
    ASSERT_EQ(::pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_FALSE(returned);
}

}  // namespace
}  // namespace zelieml
