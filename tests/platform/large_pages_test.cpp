// large_pages_test.cpp - a hint that changes nothing that can be seen

#include "platform/large_pages.h"

#include <gtest/gtest.h>
#include <string>

namespace zelieml::test
{
namespace
{

TEST(LargePages, KeepWhatTheBufferAndItsNeighboursContain)
{
    constexpr std::size_t large = std::size_t{8} << 20;
    std::string           text;
    for (std::size_t i = 0; i < large; ++i) {
        text += static_cast<char>('a' + i / 4096 % 26);
    }
    std::string const before = text;
    for (std::size_t const start : {0u, 1u, 4095u, 65536u}) {
        for (std::size_t const size :
             {std::size_t{0}, std::size_t{1}, std::size_t{65536}, large / 2, large - start}) {
            platform::use_large_pages(&text[start], size);
            EXPECT_TRUE(text == before) << start << ", " << size;
        }
    }
}

}  // namespace
}  // namespace zelieml::test
