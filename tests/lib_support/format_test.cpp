// format_test.cpp - text into fixed buffers

#include "support/format.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace zelieml
{
namespace
{

TEST(FormatText, WritesATextThatFitsWithItsNul)
{
    char out[6];
    EXPECT_EQ(format_text(out, "%s-%d", "ab", 12), 5);
    EXPECT_STREQ(out, "ab-12");
    EXPECT_EQ(format_text(out, "%s", ""), 0);
    EXPECT_STREQ(out, "");
}

TEST(FormatText, LeavesAnEmptyTextOfOneThatDoesNotFit)
{
    struct {
        std::string text;
        char const* reason;
    } const cases[] = {{"123456", "the NUL does not fit"},
                       {std::string(10000, 'x'), "far too long"}};
    for (auto const& c : cases) {
        char out[6] = "prior";
        EXPECT_EQ(format_text(out, "%s", c.text.c_str()), -1) << c.reason;
        EXPECT_STREQ(out, "") << c.reason;
    }
}

TEST(CopyToCaller, CopiesATextWholeOrNotAtAll)
{
    struct {
        std::string text;
        int         size;
        int         result;
        char const* wanted;
        char const* reason;
    } const cases[] = {
        {"abc", 4, 0, "abc", "exactly"},
        {"abc", 3, -1, "prior", "no room for the NUL"},
        {"abc", 0, -1, "prior", "no room"},
        {"abc", -1, -1, "prior", "a negative size"},
        {"abc", INT_MIN, -1, "prior", "a very negative size"},
        {"", 1, 0, "", "the NUL alone"},
        {"", 0, -1, "prior", "no room for the NUL alone"},
        {std::string("a\0bc", 4), 2, 0, "a", "a text ends at its NUL"},
    };
    for (auto const& c : cases) {
        char buf[8] = "prior";
        EXPECT_EQ(copy_to_caller(c.text, buf, c.size), c.result) << c.reason;
        EXPECT_STREQ(buf, c.wanted) << c.reason;
    }
    EXPECT_EQ(copy_to_caller("a", nullptr, 100), -1);
}

}  // namespace
}  // namespace zelieml
