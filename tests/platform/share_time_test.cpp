#include <chrono>
#include <gtest/gtest.h>
#include <vector>

#include "platform/linux/share_time.h"

namespace zelieml::test
{
namespace
{

// Goes on by some ticks whenever it is looked at.
struct ticking_clock {
    using rep                                        = long long;
    using period                                     = std::nano;
    using duration                                   = std::chrono::duration<rep, period>;
    using time_point                                 = std::chrono::time_point<ticking_clock>;
    [[maybe_unused]] static constexpr bool is_steady = true;

    static inline rep ticks = 0;

    static time_point now() { return time_point(duration(ticks += 3)); }
};

struct use {
    int       part;
    long long end;
};

std::vector<use> shared(int parts, int limit, int cost)
{
    std::vector<int> names;
    for (int i = 0; i < parts; ++i) {
        names.push_back(i);
    }
    std::vector<use> uses;
    ticking_clock::ticks = 0;
    platform::share_time<ticking_clock>(names,
                                        ticking_clock::time_point(ticking_clock::duration(limit)),
                                        [&](int part, ticking_clock::time_point end) {
                                            uses.push_back({part, end.time_since_epoch().count()});
                                            ticking_clock::ticks += cost;
                                        });
    return uses;
}

TEST(SharedTime, IsDividedAmongThePartsThatAreLeft)
{
    std::vector<use> const uses = shared(4, 103, 7);
    ASSERT_EQ(uses.size(), 4U);
    EXPECT_EQ(uses[0].end, 28);   // a quarter of what is left after 3
    EXPECT_EQ(uses[1].end, 43);   // a third after 13
    EXPECT_EQ(uses[2].end, 63);   // half after 23
    EXPECT_EQ(uses[3].end, 103);  // all of it
    EXPECT_EQ(uses[3].part, 3);
}

// Wherever the limit lies between two looks at the clock.
TEST(SharedTime, IsNeverLongerThanTheLimit)
{
    for (int limit = 0; limit < 40; ++limit) {
        for (int cost = 0; cost < 12; ++cost) {
            std::vector<use> const uses = shared(7, limit, cost);
            for (use const& one : uses) {
                EXPECT_LE(one.end, limit) << "limit " << limit << ", cost " << cost;
            }
            EXPECT_EQ(uses.empty(), limit <= 3) << "limit " << limit;
        }
    }
}

TEST(SharedTime, IsNobodysWithoutParts)
{
    EXPECT_TRUE(shared(0, 100, 1).empty());
}

}  // namespace
}  // namespace zelieml::test
