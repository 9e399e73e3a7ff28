// directory_memory_test.cpp - arrays of our own, without memory

#include <gtest/gtest.h>
#include <string>

#include "platform/directory.h"
#include "tests/support/failing_new.h"

namespace zelieml::test
{
namespace
{

TEST(TextArray, IsNotMadeWithoutMemory)
{
    failing_new const none(0);
    EXPECT_EQ(platform::text_array_create(), nullptr);
}

TEST(TextArray, StaysAsItWasWithoutMemory)
{
    platform::text_array* const array = platform::text_array_create();
    ASSERT_NE(array, nullptr);
    std::string const longer_than_a_string_holds(100, 't');
    for (int good = 0; good < 2; ++good) {
        bool appended = true;
        {
            failing_new const none(good);
            appended = platform::text_array_append(array, longer_than_a_string_holds.c_str());
        }
        EXPECT_FALSE(appended) << good;
        EXPECT_EQ(platform::text_array_count(array), 0) << good;
    }
    EXPECT_TRUE(platform::text_array_append(array, longer_than_a_string_holds.c_str()));
    platform::text_array_release(array);
}

}  // namespace
}  // namespace zelieml::test
