// heap_test.cpp - the library's malloc buffers

#include "support/heap.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>

namespace zelieml
{
namespace
{

TEST(Heap, GivesABufferOfAnySize)
{
    for (std::size_t const size : {std::size_t{0}, std::size_t{1}, std::size_t{100000}}) {
        void* const buffer = heap_alloc(size);
        ASSERT_NE(buffer, nullptr) << size;
        std::memset(buffer, 'x', size);
        heap_free(buffer);
    }
    heap_free(nullptr);
}

TEST(Heap, KeepsTheBytesOfABufferThatGrows)
{
    char* buffer = static_cast<char*>(heap_realloc(nullptr, 4));
    ASSERT_NE(buffer, nullptr);
    std::memcpy(buffer, "abc", 4);
    buffer = static_cast<char*>(heap_realloc(buffer, 100000));
    ASSERT_NE(buffer, nullptr);
    EXPECT_STREQ(buffer, "abc");
    heap_free(buffer);
}

TEST(Heap, HoldsABufferUntilItIsHandedOver)
{
    heap_buffer<std::uint32_t> buffer = heap_array<std::uint32_t>(1000);
    ASSERT_TRUE(buffer);
    buffer[999]                = 7;
    std::uint32_t* const taken = buffer.release();
    EXPECT_EQ(taken[999], 7u);
    heap_free(taken);
}

}  // namespace
}  // namespace zelieml
