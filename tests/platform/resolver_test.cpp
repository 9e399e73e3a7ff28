// Texts that the system's resolver decides on without asking anybody.

#include "platform/resolver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string>

namespace zelieml::test
{

namespace
{

TEST(PlatformResolver, TakesDottedTextAsAnAddress)
{
    for (char const* const text : {"127.0.0.1", "192.0.2.10", "0.0.0.0"}) {
        std::uint32_t address = 77;
        EXPECT_TRUE(platform::resolve_ipv4(text, address)) << text;
        EXPECT_EQ(address, ::inet_addr(text)) << text;
    }
}

TEST(PlatformResolver, LeavesTheAddressAloneWhenThereIsNone)
{
    struct {
        std::string name;
        char const* reason;
    } const cases[] = {
        {"not..a..name", "empty labels"},
        {std::string(64, 'x') + ".test", "a label of more than 63 characters"},
        {std::string(2000, 'x'), "longer than any name"},
        {"::1", "an address, but none of IPv4"},
    };
    for (auto const& c : cases) {
        std::uint32_t address = 77;
        EXPECT_FALSE(platform::resolve_ipv4(c.name.c_str(), address)) << c.reason;
        EXPECT_EQ(address, 77U) << c.reason;
    }
}

}  // namespace

}  // namespace zelieml::test
