// Which senders a list of domains lets pass.

#include "libreceive/analyze.h"

#include <gtest/gtest.h>

#include "tests/support/trace_recorder.h"

namespace zelieml::test
{

namespace
{

using strings = std::vector<std::string>;

TEST(Domain, IsWhatFollowsTheFirstAt)
{
    struct {
        char const* sender;
        char const* domain;
        char const* reason;
    } const cases[] = {
        {"From: anna@d.test", "d.test", "a bare address"},
        {"From: Anna <anna@mail.d.test>", "mail.d.test", "without the angle bracket"},
        {"From: Anna <anna@d.test> (office)", "d.test", "what follows the bracket is cut"},
        {"From: anna@d.test (Anna)", "d.test (Anna)", "a comment stays where no bracket ends it"},
        {"From: anna@d.test, bert@e.test", "d.test, bert@e.test", "so does a second address"},
        {"From: <anna@d.test>, <bert@e.test>", "d.test", "the first bracket ends it"},
        {"From: \"a@b\" <anna@d.test>", "b\" <anna@d.test", "the first at counts, quoted or not"},
        {"From: a>b@d.test", "d.test", "a bracket before the at ends nothing"},
        {"From: anna@", "", "nothing follows"},
        {"From: anna@>", "", "nothing but the bracket"},
        {"From: @d.test", "d.test", "nothing precedes"},
        {"@", "", "the sign alone"},
        {"From: anna@D.TEST", "D.TEST", "case is kept"},
    };
    for (auto const& c : cases) {
        clear_traces();
        EXPECT_EQ(get_domain(c.sender), c.domain) << c.reason;
        EXPECT_EQ(trouble_traces(), strings()) << c.reason;
    }
}

TEST(Domain, IsEmptyAndTracedWithoutAnAt)
{
    for (char const* sender : {"", "From: anna", "From: <anna>", "From: anna%d.test"}) {
        clear_traces();
        EXPECT_EQ(get_domain(sender), "") << sender;
        EXPECT_EQ(trouble_traces(), strings{"error: no item"}) << sender;
    }
}

TEST(DomainList, IsCutAtItsCommasAndLosesItsBlanks)
{
    struct {
        char const* list;
        strings     entries;
        char const* reason;
    } const cases[] = {
        {"d.test", {"d.test"}, "one"},
        {"d.test,e.test", {"d.test", "e.test"}, "two"},
        {" d.test , e.\x20test ", {"d.test", "e.test"}, "blanks anywhere"},
        {"d.test,", {"d.test", ""}, "a trailing comma adds an empty entry"},
        {",d.test", {"", "d.test"}, "a leading one too"},
        {"d.test,,e.test", {"d.test", "", "e.test"}, "two in a row too"},
        {",", {"", ""}, "a comma alone adds two"},
        {" ", {""}, "a blank alone is an empty entry"},
        {"d.test;e.test", {"d.test;e.test"}, "nothing else separates"},
        {"d.test,\te.test", {"d.test", "\te.test"}, "a tab is not removed"},
        {"d.test,d.test", {"d.test", "d.test"}, "the same twice"},
    };
    for (auto const& c : cases) {
        clear_traces();
        strings entries = {"what was there"};
        EXPECT_EQ(split_domain(c.list, entries), 0) << c.reason;
        EXPECT_EQ(entries, c.entries) << c.reason;
        EXPECT_EQ(trouble_traces(), strings()) << c.reason;
    }
}

TEST(DomainList, ThatIsEmptyHasNoEntriesAndIsTraced)
{
    clear_traces();
    strings entries = {"what was there"};
    EXPECT_EQ(split_domain("", entries), 0);
    EXPECT_EQ(entries, strings());
    EXPECT_EQ(trouble_traces(), strings{"warning:no domain"});
}

TEST(Sender, PassesWhenAnEntryStandsAnywhereInHisDomain)
{
    struct {
        char const* sender;
        char const* list;
        bool        passes;
        char const* reason;
    } const cases[] = {
        {"From: Anna <anna@mail.d.test>", "e.test, d.test", true,
         "a sub-domain of the second entry, which has a blank before it"},
        {"From: anna@d.test", "d.test", true, "the domain itself"},
        {"From: anna@a.b.d.test", "d.test", true, "any sub-domain"},
        {"From: anna@d.test.e.example", "d.test", true, "followed by further labels, on purpose"},
        {"From: anna@notd.test", "d.test", true, "preceded by other letters, on purpose"},
        {"From: anna@d.test", "test", true, "a top-level label lets all under it pass"},
        {"From: anna@d.test", ".test", true, "with its dot"},
        {"From: anna@D.TEST", "d.test", false, "the sender in upper case, on purpose"},
        {"From: anna@d.test", "D.test", false, "the entry in upper case"},
        {"From: anna@e.test", "d.test", false, "another domain"},
        {"From: d.test@e.test", "d.test", false, "before the at does not count"},
        {"From: d.test <anna@e.test>", "d.test", false, "nor does the name"},
        {"From: anna@e.test (d.test)", "d.test", true, "a comment takes part, on purpose"},
        {"From: anna@e.test, bert@d.test", "d.test", true, "so does a second address"},
        {"From: <anna@e.test>, <bert@d.test>", "d.test", false, "but not behind a bracket"},
        {"From: anna@d.test", "d.test,", true, "an empty entry"},
        {"From: anna@e.test", "d.test,", true, "an empty entry lets every mail pass"},
        {"From: anna", "d.test,", true, "one without an at too"},
        {"", "d.test,", true, "one without a sender too"},
        {"From: anna@e.test", " ", true, "a list of one blank is an empty entry"},
        {"From: anna", "d.test", false, "no at"},
        {"", "d.test", false, "no sender"},
        {"From: anna@d.te", "d.test", false, "a part of the entry"},
        {"From: anna@d.test", "", false, "no entries"},
    };
    for (auto const& c : cases) {
        strings entries;
        split_domain(c.list, entries);
        EXPECT_EQ(find_domain(c.sender, entries), c.passes) << c.reason;
    }
}

// The one test of all that is traced; the others look at failures only.
TEST(Sender, IsTriedAgainstTheEntriesInTheirOrder)
{
    clear_traces();
    EXPECT_TRUE(find_domain("From: anna@d.test", {"e.test", "d.test", "test"}));
    EXPECT_EQ(traces(), (strings{"found in %s", "found !! %s"}))
        << "one entry found, none after it";

    clear_traces();
    EXPECT_FALSE(find_domain("From: anna", {"e.test", "d.test"}));
    EXPECT_EQ(traces(), (strings{"error: no item", "error: no item", "bad from address !!"}));

    clear_traces();
    EXPECT_FALSE(find_domain_ok("From: anna@d.test", "e.test"));
    EXPECT_EQ(traces(), strings());
    EXPECT_TRUE(find_domain_ok("From: anna", ""));
    EXPECT_EQ(traces(), (strings{"error: no item", "found in %s"}));
}

TEST(Mails, OfAllowedSendersAreKeptInOrder)
{
    strings const from         = {"From: a@d.test", "From: b@e.test", "", "From: c@mail.d.test"};
    strings const subject      = {"Subject: 1", "Subject: 2", "Subject: 3", ""};
    strings       kept_from    = {"what was there"};
    strings       kept_subject = {"likewise"};
    int           count        = 4;

    EXPECT_EQ(analyze_domain("x.test, d.test", count, from, subject, kept_from, kept_subject), 0);

    EXPECT_EQ(count, 2);
    EXPECT_EQ(kept_from, (strings{"what was there", "From: a@d.test", "From: c@mail.d.test"}));
    EXPECT_EQ(kept_subject, (strings{"likewise", "Subject: 1", ""}));
}

TEST(Mails, AreAllDroppedWhenNobodyIsAllowed)
{
    strings kept_from;
    strings kept_subject;
    int     count = 1;
    EXPECT_EQ(
        analyze_domain("", count, {"From: a@d.test"}, {"Subject: 1"}, kept_from, kept_subject), 0);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(kept_from.empty());
}

TEST(Mails, ThatAreNoneAreNone)
{
    strings kept_from;
    strings kept_subject;
    int     count = 0;
    EXPECT_EQ(analyze_domain("d.test", count, {}, {}, kept_from, kept_subject), 0);
    EXPECT_EQ(count, 0);
}

}  // namespace

}  // namespace zelieml::test
