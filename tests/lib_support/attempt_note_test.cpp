#include "support/attempt_note.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>

using namespace zelieml;

namespace
{

std::string noted(std::string const& text)
{
    noting_attempt const attempt;
    note_failure(eml_cause_lost, "text", "the server said %s", text.c_str());
    return attempt->reason;
}

}  // namespace

TEST(AttemptNote, IsMadeOfTheFirstFailureThatIsKnown)
{
    noting_attempt const attempt(2, "/w/1.sme");
    EXPECT_STREQ(attempt->reason, "");
    EXPECT_EQ(attempt->number, 2);
    EXPECT_STREQ(attempt->file, "/w/1.sme");
    EXPECT_EQ(attempt->cause, eml_cause_none);
    EXPECT_STREQ(attempt->step, "");
    note_failure(eml_cause_unreachable, "connect", "connect to %s:%d: refused", "mail.test", 25);
    note_failure(eml_cause_lost, "text", "the mail was not sent");
    EXPECT_STREQ(attempt->reason, "connect to mail.test:25: refused");
    EXPECT_EQ(attempt->cause, eml_cause_unreachable);
    EXPECT_STREQ(attempt->step, "connect");
}

TEST(AttemptNote, HasTheFirstResultNumberToo)
{
    note_result(2002);  // nobody asks
    noting_attempt const attempt;
    EXPECT_EQ(attempt->result, 0);
    note_result(2004);
    note_result(100);
    EXPECT_EQ(attempt->result, 2004);
}

TEST(AttemptNote, ForgetsWhatFailed)
{
    noting_attempt attempt(2, "/w/1.sme");
    note_failure(eml_cause_unreachable, "connect", "refused");
    note_result(2002);
    attempt->forget();
    EXPECT_EQ(attempt->cause, eml_cause_none);
    EXPECT_STREQ(attempt->step, "");
    EXPECT_STREQ(attempt->reason, "");
    EXPECT_EQ(attempt->result, 0);
    EXPECT_EQ(attempt->number, 2);
    note_failure(eml_cause_lost, "text", "gone");
    EXPECT_STREQ(attempt->reason, "gone");
}

TEST(AttemptNote, CountsTheSecondsSinceItsBeginning)
{
    noting_attempt attempt;
    EXPECT_GE(attempt->seconds(), 0);
    attempt->begin -= std::chrono::seconds(90);
    EXPECT_GE(attempt->seconds(), 90);
    EXPECT_LT(attempt->seconds(), 1000);
}

TEST(AttemptNote, IsNotNeeded)
{
    EXPECT_EQ(current_note(), nullptr);
    note_failure(eml_cause_lost, "text", "nobody asks");
    EXPECT_EQ(current_note(), nullptr);
    noting_attempt const attempt;
    EXPECT_STREQ(attempt->reason, "") << "and what was told before is not kept for it";
}

TEST(AttemptNote, NestsAndGivesTheOuterOneBack)
{
    noting_attempt const outer;
    {
        noting_attempt const inner;
        note_failure(eml_cause_lost, "text", "inner");
        EXPECT_STREQ(inner->reason, "inner");
    }
    EXPECT_STREQ(outer->reason, "");
    note_failure(eml_cause_lost, "text", "outer");
    EXPECT_STREQ(outer->reason, "outer");
}

TEST(AttemptNote, IsPassedOnUnlessTheOuterOneKnowsBetter)
{
    noting_attempt const outer;
    {
        noting_attempt const inner;
        inner.pass_on();
        EXPECT_EQ(outer->cause, eml_cause_none) << "nothing to pass on";
        note_failure(eml_cause_lost, "text", "first");
        note_result(2004);
        inner.pass_on();
    }
    {
        noting_attempt const inner;
        note_failure(eml_cause_refused, "quit", "second");
        note_result(100);
        inner.pass_on();
    }
    EXPECT_EQ(outer->cause, eml_cause_lost);
    EXPECT_STREQ(outer->step, "text");
    EXPECT_STREQ(outer->reason, "first");
    EXPECT_EQ(outer->result, 2004);
}

TEST(AttemptNote, IsPassedOnToNobodyWhenItIsTheOutermost)
{
    noting_attempt const only;
    note_failure(eml_cause_lost, "text", "gone");
    only.pass_on();
    EXPECT_STREQ(only->reason, "gone");
}

TEST(AttemptNote, BelongsToItsThread)
{
    noting_attempt const attempt;
    std::thread([] {
        EXPECT_EQ(current_note(), nullptr);
        noting_attempt const other;
        note_failure(eml_cause_lost, "text", "another thread");
        EXPECT_STREQ(other->reason, "another thread");
    }).join();
    EXPECT_STREQ(attempt->reason, "");
}

TEST(AttemptNote, ShowsWhatCannotBeShownAsQuestionMarks)
{
    struct {
        char const* said;
        char const* shown;
    } const cases[] = {
        {"550 no", "550 no"},
        {"a\r\nb\tc\x1b[1m\x7f", "a??b?c?[1m?"},
        {"gr\xC3\xBC\xC3\x9F \xE7\x94\xA8\xE7\xB4\x99 \xF0\x9F\x93\xA0",
         "gr\xC3\xBC\xC3\x9F \xE7\x94\xA8\xE7\xB4\x99 \xF0\x9F\x93\xA0"},
        {"\xFC Latin 1", "? Latin 1"},
        {"\xC2\x85 \xC2\xA0", "?? \xC2\xA0"},                       // U+0085 is a control character
        {"\xC1\x81 \xE0\x81\x81 \xF0\x81\x81\x81", "?? ??? ????"},  // overlong
        {"\xED\xA0\x80 \xED\x9F\xBF", "??? \xED\x9F\xBF"},          // a surrogate
        {"\xF4\x90\x80\x80 \xF4\x8F\xBF\xBF", "???? \xF4\x8F\xBF\xBF"},
        {"\xF5\x80\x80\x80 \x80", "???? ?"},
        {"cut \xE7\x94", "cut ??"},
        {"cut \xC3", "cut ?"},
        {"cut \xF0\x9F\x93", "cut ???"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(noted(c.said), std::string("the server said ") + c.shown);
    }
}

TEST(AttemptNote, IsCutOffWhereTheReasonIsTooLong)
{
    std::string const start = "the server said ";
    std::size_t const room  = reason_capacity - 1 - start.size();
    EXPECT_EQ(noted(std::string(room, 'x')), start + std::string(room, 'x'));
    EXPECT_EQ(noted(std::string(room + 1, 'x')), start + std::string(room - 3, 'x') + "...");
    // Not in the middle of a character.
    std::string const kanji = "\xE7\x94\xA8";
    for (std::size_t before = 0; before < 3; ++before) {
        std::string text(before, 'x');
        while (text.size() < 2000) {
            text += kanji;
        }
        std::string const reason = noted(text);
        EXPECT_EQ(reason.find('?'), std::string::npos) << reason;
        EXPECT_LT(reason.size(), reason_capacity);
        EXPECT_GT(reason.size(), reason_capacity - 4);
        EXPECT_EQ(reason.substr(reason.size() - 3), "...");
    }
}

TEST(AttemptNote, HasAReasonForLackOfMemory)
{
    noting_attempt const attempt;
    note_no_memory();
    EXPECT_STREQ(attempt->reason, "there is not enough memory");
    EXPECT_EQ(attempt->cause, eml_cause_memory);
    EXPECT_STREQ(attempt->step, "");
    noting_attempt const later;
    note_no_memory("login");
    EXPECT_STREQ(later->step, "login");
}
