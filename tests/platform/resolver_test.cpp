// Texts that the system's resolver decides on without asking anybody.

#include "platform/resolver.h"

#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/support/skip.h"

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

// Whatever locks of the system's resolver the parent's threads hold at that moment.
TEST(PlatformResolver, AnswersInAForkedChild)
{
    SKIP_UNLESS(has_backend("linux"), "macOS allows no look-ups in a forked child");
    constexpr int            rounds = 400;
    std::atomic<bool>        over{false};
    std::vector<std::thread> others;
    for (int i = 0; i < 4; ++i) {
        others.emplace_back([&] {
            std::uint32_t address = 0;
            while (!over) {
                EXPECT_TRUE(platform::resolve_ipv4("127.0.0.1", address));
            }
        });
    }
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        pid_t const child = ::fork();
        if (child == 0) {
            std::signal(SIGALRM, SIG_DFL);
            ::alarm(20);
            std::uint32_t address = 0;
            ::_exit(platform::resolve_ipv4("127.0.0.1", address) ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "in round " << round;
    }
    over = true;
    for (std::thread& other : others) {
        other.join();
    }
}

}  // namespace

}  // namespace zelieml::test
