// number_test.cpp - decimal numbers

#include "support/number.h"

#include <climits>
#include <gtest/gtest.h>

namespace zelieml
{
namespace
{

TEST(TextToInt, ReadsTheNumberAtTheStart)
{
    struct {
        char const* text;
        int         number;
        char const* reason;
    } const cases[] = {
        {"25", 25, "digits"},
        {" \t25", 25, "blanks in front"},
        {"25 ", 25, "blanks behind"},
        {"25x", 25, "letters behind"},
        {"+25", 25, "a plus"},
        {"-25", -25, "a minus"},
        {"007", 7, "zeros in front"},
        {"", 0, "nothing"},
        {"x25", 0, "no digits in front"},
        {"- 5", 0, "a sign alone"},
        {"0x10", 0, "decimal only"},
        {"2147483647", INT_MAX, "the largest"},
        {"2147483648", INT_MAX, "one more"},
        {"-2147483648", INT_MIN, "the smallest"},
        {"-2147483649", INT_MIN, "one less"},
        {"99999999999999999999999", INT_MAX, "larger than any type"},
        {"-99999999999999999999999", INT_MIN, "smaller than any type"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(text_to_int(c.text), c.number) << c.reason;
    }
}

}  // namespace
}  // namespace zelieml
