// ledger_test.cpp - which messages the engine has been told of

#include "tools/zelieml/ledger.h"

#include <gtest/gtest.h>

namespace zelieml::test
{

namespace
{

using program::ledger;
using program::spooled;
using names = std::vector<std::string>;
using std::chrono::hours;
using std::chrono::seconds;

class Ledger : public testing::Test
{
protected:
    ledger                    book;
    ledger::clock::time_point now = ledger::clock::now();

    void add(std::string const& name) { book.add({name, {}}, now); }
};

TEST_F(Ledger, HoldsAPlaceUntilTheLastAttempt)
{
    add("a.sme");
    add("b.sme");
    EXPECT_EQ(book.places(), ledger::most - 2);
    book.settle("a.sme", false, now);
    EXPECT_TRUE(book.has("a.sme"));
    EXPECT_EQ(book.places(), ledger::most - 2);
    book.settle("b.sme", true, now);
    book.settle("a.sme", true, now);
    EXPECT_FALSE(book.has("a.sme"));
    EXPECT_EQ(book.places(), ledger::most);
}

TEST_F(Ledger, CountsWhatTheEngineHoldsUnexpectedly)
{
    book.settle("a.sme", false, now);
    EXPECT_EQ(book.places(), ledger::most - 1);
    book.settle("a.sme", true, now);
    EXPECT_EQ(book.places(), ledger::most);
}

TEST_F(Ledger, IsLowWhenHalfOfWhatMayBeTriedIsOver)
{
    EXPECT_TRUE(book.is_low());
    for (std::size_t i = 0; i < ledger::most; ++i) {
        add(std::to_string(i));
    }
    EXPECT_FALSE(book.is_low());
    // All but ten wait for their second attempt.
    std::size_t const failed = ledger::most - 10;
    for (std::size_t i = 0; i < failed; ++i) {
        book.settle(std::to_string(i), false, now);
        EXPECT_FALSE(book.is_low()) << "no place";
    }
    for (std::size_t i = failed; i < failed + 5; ++i) {
        EXPECT_FALSE(book.is_low());
        book.settle(std::to_string(i), true, now);
    }
    EXPECT_TRUE(book.is_low());
}

TEST_F(Ledger, SeesWhatTheEngineHasNotHeardOf)
{
    add("a.sme");
    add("b.sme");
    add("c.sme");
    EXPECT_FALSE(book.has_passed_over());
    book.settle("b.sme", false, now);
    EXPECT_TRUE(book.has_passed_over());
    EXPECT_EQ(book.passed_over(now), names{"a.sme"});
    EXPECT_EQ(book.passed_over(now), names());
    book.settle("c.sme", true, now);
    EXPECT_FALSE(book.has_passed_over()) << "a.sme is announced after c.sme now";
    add("d.sme");
    book.settle("d.sme", true, now);
    EXPECT_EQ(book.passed_over(now), names{"a.sme"});
}

TEST_F(Ledger, IsPatientLongerEachTime)
{
    EXPECT_FALSE(book.overdue_at());
    add("a.sme");
    add("b.sme");
    book.settle("a.sme", false, now);
    EXPECT_EQ(book.overdue(now), names());
    for (int const patience : {5, 10, 20, 40, 80, 160, 320, 320}) {
        ASSERT_TRUE(book.overdue_at());
        EXPECT_EQ(*book.overdue_at(), now + seconds(patience));
        EXPECT_EQ(book.overdue(now + seconds(patience - 1)), names());
        now += seconds(patience);
        EXPECT_EQ(book.overdue(now), names{"b.sme"}) << patience;
    }
    add("c.sme");
    EXPECT_EQ(*book.overdue_at(), now + seconds(5)) << "there was progress";
    book.settle("b.sme", false, now);
    book.settle("c.sme", true, now);
    EXPECT_FALSE(book.overdue_at());
}

TEST_F(Ledger, ForgetsWhatIsHoursLate)
{
    add("a.sme");
    add("b.sme");
    book.settle("a.sme", false, now);
    book.forget_stuck(now + hours(3));
    EXPECT_TRUE(book.has("a.sme"));
    book.forget_stuck(now + hours(4));
    EXPECT_FALSE(book.has("a.sme"));
    EXPECT_TRUE(book.has("b.sme")) << "its first attempt is to come";
}

TEST_F(Ledger, KnowsTheFileAsItWas)
{
    spooled file        = {"a.sme", {}};
    file.status.st_size = 7;
    book.add(file, now);
    EXPECT_FALSE(book.file("b.sme"));
    ASSERT_TRUE(book.file("a.sme"));
    EXPECT_EQ(book.file("a.sme")->status.st_size, 7);
}

}  // namespace

}  // namespace zelieml::test
