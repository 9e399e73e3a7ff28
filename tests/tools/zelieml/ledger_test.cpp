// ledger_test.cpp - which of the messages that the service holds are where

#include "tools/zelieml/ledger.h"

#include <gtest/gtest.h>

namespace zelieml::test
{

namespace
{

using program::ledger;
using names = std::vector<std::string>;
using std::chrono::minutes;
using std::chrono::seconds;

class Ledger : public testing::Test
{
protected:
    ledger             book;
    ledger::time_point now = ledger::clock::now();

    void give(std::string const& name, bool is_second_attempt = false)
    {
        book.give(name, is_second_attempt, now);
    }
};

TEST_F(Ledger, GivesOutInOrder)
{
    EXPECT_FALSE(book.has_next());
    EXPECT_FALSE(book.take());
    book.add("a");
    book.add("b");
    book.add_in_front("c");
    EXPECT_TRUE(book.knows("b"));
    EXPECT_EQ(book.take(), "c");
    EXPECT_EQ(book.take(), "a");
    EXPECT_EQ(book.take(), "b");
    EXPECT_FALSE(book.knows("b"));
    EXPECT_FALSE(book.has_next());
}

TEST_F(Ledger, GivesOutLaterWhatIsDue)
{
    EXPECT_FALSE(book.next_due());
    book.add_later("a", now + seconds(2));
    book.add_later("b", now + seconds(1));
    book.add_later("a", now);  // known already
    EXPECT_TRUE(book.knows("a"));
    EXPECT_EQ(book.next_due(), now + seconds(1));
    EXPECT_FALSE(book.take_due(now));
    EXPECT_EQ(book.take_due(now + seconds(2)), "b");
    EXPECT_EQ(book.take_due(now + seconds(2)), "a");
    EXPECT_FALSE(book.take_due(now + seconds(2)));
    EXPECT_FALSE(book.knows("a"));
}

TEST_F(Ledger, RemembersThousandsForLater)
{
    constexpr int many = 20'000;
    for (int i = 0; i < many; ++i) {
        book.add_later(std::to_string(i), now + minutes(1));
    }
    book.add_later("one more", now);
    EXPECT_TRUE(book.knows("one more"));
    EXPECT_EQ(book.take_due(now), "one more");
}

TEST_F(Ledger, CountsThePlacesOfTheEngine)
{
    for (std::size_t i = 0; i < ledger::most; ++i) {
        EXPECT_EQ(book.places(), ledger::most - i);
        EXPECT_EQ(book.is_low(), i <= ledger::most / 2);
        give(std::to_string(i), i < ledger::most_second_attempts);
    }
    EXPECT_EQ(book.places(), 0u);
    EXPECT_EQ(book.places_for_second_attempts(), 0u);
    book.settle("0", now);
    EXPECT_EQ(book.places(), 1u);
    EXPECT_EQ(book.places_for_second_attempts(), 1u);
    EXPECT_FALSE(book.is_given("0"));
    book.take_back("7");
    EXPECT_FALSE(book.is_given("7"));
    EXPECT_EQ(book.places(), 2u);
}

TEST_F(Ledger, GivesTheEngineOneMoreAtMost)
{
    for (std::size_t i = 0; i <= ledger::most; ++i) {
        EXPECT_TRUE(book.give(std::to_string(i), false, now));
    }
    EXPECT_EQ(book.places(), 0u);
    EXPECT_FALSE(book.give("another", false, now));
    EXPECT_FALSE(book.is_given("another"));
}

TEST_F(Ledger, SeesWhatTheEngineHasPassedOver)
{
    give("a");
    give("b");
    give("c");
    EXPECT_EQ(book.settle("b", now), names{"a"});
    EXPECT_FALSE(book.knows("a"));
    EXPECT_EQ(book.settle("a", now), names()) << "not the ledger's any more";
    EXPECT_EQ(book.settle("c", now), names());
    EXPECT_EQ(book.places(), ledger::most);
}

TEST_F(Ledger, KnowsForHowLongTheEngineIsSilent)
{
    EXPECT_EQ(book.silence(now + minutes(60)), seconds(0)) << "it has none";
    give("a");
    now += minutes(3);
    give("b");
    EXPECT_EQ(book.silence(now), minutes(3));
    book.settle("a", now);
    EXPECT_EQ(book.silence(now + minutes(1)), minutes(1));
    book.settle("what failed before", now + minutes(1));
    EXPECT_EQ(book.silence(now + minutes(1)), seconds(0)) << "it moves";
    book.settle("b", now + minutes(2));
    EXPECT_EQ(book.silence(now + minutes(60)), seconds(0));
}

TEST_F(Ledger, KnowsWhatIsOver)
{
    book.keep_over("a");
    EXPECT_TRUE(book.knows("a"));
    EXPECT_EQ(book.all_over(), names{"a"});
    book.forget_over("a");
    EXPECT_FALSE(book.knows("a"));
}

}  // namespace

}  // namespace zelieml::test
