#include "tools/mailserver/text.h"

#include <gtest/gtest.h>

#include "tests/support/transcript.h"

namespace zelieml::mailserver
{

namespace
{

struct visible_case {
    char const* why;
    std::string text;
    char const* shown;
};

visible_case const visible_cases[] = {
    {"printable ASCII is as it is", "a b~", "a b~"},
    {"line ends", "a\r\nb", "a\\r\\nb"},
    {"a NUL", {"\0u\0p", 4}, "\\0u\\0p"},
    {"a backslash, so that the text can be told from an escape", "\\n", "\\\\n"},
    {"other controls", "\x1b$B\x7f", "\\x1b$B\\x7f"},
    {"UTF-8 of two, three and four bytes", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80",
     "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
    {"a C1 control is a control", "\xc2\x85", "\\xc2\\x85"},
    {"a byte that begins nothing", "\xff\x80z", "\\xff\\x80z"},
    {"a character cut short", "\xe2\x82", "\\xe2\\x82"},
    {"a lead byte before ASCII", "\xc3z", "\\xc3z"},
};

}  // namespace

TEST(Visible, ShowsWhatCannotBeSeen)
{
    for (visible_case const& c : visible_cases) {
        EXPECT_EQ(visible(c.text), c.shown) << c.why;
    }
}

TEST(Visible, IsWhatTranscriptsRead)
{
    for (visible_case const& c : visible_cases) {
        EXPECT_EQ(test::pattern(visible(c.text)).bytes(""), c.text) << c.why;
    }
}

TEST(TakeWord, LeavesAllBehindOneBlank)
{
    std::string_view text = "PASS  two  words ";
    EXPECT_EQ(take_word(text), "PASS");
    EXPECT_EQ(text, " two  words ");
    EXPECT_EQ(take_word(text), "");
    EXPECT_EQ(trimmed(text), "two  words");
}

TEST(TakeWord, TakesAllWhenThereIsNoBlank)
{
    std::string_view text = "QUIT";
    EXPECT_EQ(take_word(text), "QUIT");
    EXPECT_EQ(text, "");
    EXPECT_EQ(take_word(text), "");
}

TEST(TakeLine, GivesLinesWithTheirEndsAndARest)
{
    std::string_view text = "a\r\n\nb";
    EXPECT_EQ(take_line(text), "a\r\n");
    EXPECT_EQ(take_line(text), "\n");
    EXPECT_EQ(take_line(text), "b");
    EXPECT_EQ(take_line(text), "");
}

TEST(WithoutLineEnd, TakesOneLineEndOnly)
{
    EXPECT_EQ(without_line_end("a\r\n"), "a");
    EXPECT_EQ(without_line_end("a\n"), "a");
    EXPECT_EQ(without_line_end("a\r\r\n"), "a\r");
    EXPECT_EQ(without_line_end("a\n\n"), "a\n");
    EXPECT_EQ(without_line_end(""), "");
}

}  // namespace zelieml::mailserver
