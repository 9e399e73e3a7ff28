// format_test.cpp - strings into fixed buffers

#include "support/format.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace zelieml
{
namespace
{

TEST(FormatText, WritesAStringThatFitsWithItsNul)
{
    char out[6];
    EXPECT_EQ(format_text(out, "%s-%d", "ab", 12), 5);
    EXPECT_STREQ(out, "ab-12");
    EXPECT_EQ(format_text(out, "%s", ""), 0);
    EXPECT_STREQ(out, "");
}

TEST(FormatText, LeavesAnEmptyStringWhenTheResultDoesNotFit)
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

// What is copied into a buffer that may be used up to a size; nothing unless said otherwise.
struct copy_case {
    explicit copy_case(char const* why) : reason(why) {}

    copy_case& of(std::string const& bytes)
    {
        string = bytes;
        return *this;
    }
    copy_case& into(int bytes)
    {
        size = bytes;
        return *this;
    }
    copy_case& gives(char const* copied)
    {
        copy = copied;
        return *this;
    }

    char const* reason;
    std::string string;
    int         size = 0;
    char const* copy = nullptr;  // null: refused
};

TEST(CopyToCaller, CopiesAStringWholeOrNotAtAll)
{
    copy_case const cases[] = {
        copy_case("exactly").of("abc").into(4).gives("abc"),
        copy_case("no room for the NUL").of("abc").into(3),
        copy_case("no room").of("abc").into(0),
        copy_case("a negative size").of("abc").into(-1),
        copy_case("a very negative size").of("abc").into(INT_MIN),
        copy_case("the NUL alone").of("").into(1).gives(""),
        copy_case("no room for the NUL alone").of("").into(0),
        copy_case("a string ends at its NUL").of(std::string("a\0bc", 4)).into(2).gives("a"),
    };
    for (copy_case const& c : cases) {
        char buf[8] = "prior";
        EXPECT_EQ(copy_to_caller(c.string, buf, c.size), c.copy != nullptr ? 0 : -1) << c.reason;
        EXPECT_STREQ(buf, c.copy != nullptr ? c.copy : "prior") << c.reason;
    }
    EXPECT_EQ(copy_to_caller("a", nullptr, 100), -1);
}

TEST(CopyCut, CopiesWhatFits)
{
    struct {
        char const* text;
        int         size;
        char const* copy;  // "prior" when nothing is written
    } const cases[] = {
        {"abc", 5, "abc"},
        {"abc", 4, "abc"},
        {"abc", 3, "ab"},
        {"abc", 1, ""},
        {"abc", 0, "prior"},
        {"abc", -1, "prior"},
        {"", 1, ""},
        {"a\xC3\xBC", 4, "a\xC3\xBC"},
        {"a\xC3\xBC", 3, "a"},  // not in the middle of a character
        {"a\xE7\x94\xA8", 4, "a"},
        {"a\xF0\x9F\x93\xA0", 5, "a"},
        {"\xF0\x9F\x93\xA0", 4, ""},
        {"\x80\x80\x80\x80\x80\x80", 6, "\x80\x80"},  // no text: cut all the same
    };
    for (auto const& c : cases) {
        char buf[8] = "prior";
        copy_cut(c.text, buf, c.size);
        EXPECT_STREQ(buf, c.copy) << c.text << c.size;
    }
    copy_cut("a", nullptr, 100);
}

}  // namespace
}  // namespace zelieml
