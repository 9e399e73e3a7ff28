// ascii_test.cpp - upper and lower case of ASCII letters

#include "support/ascii.h"

#include <cstring>
#include <gtest/gtest.h>

namespace zelieml
{
namespace
{

TEST(AsciiCase, ChangesLettersOnly)
{
    char const lower[] = "abcdefghijklmnopqrstuvwxyz";
    char const upper[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (int byte = 0; byte < 256; ++byte) {
        char const        c        = static_cast<char>(byte);
        char const* const is_lower = c != '\0' ? std::strchr(lower, c) : nullptr;
        char const* const is_upper = c != '\0' ? std::strchr(upper, c) : nullptr;
        EXPECT_EQ(ascii_lower(c), is_upper != nullptr ? lower[is_upper - upper] : c) << byte;
        EXPECT_EQ(ascii_upper(c), is_lower != nullptr ? upper[is_lower - lower] : c) << byte;
    }
}

TEST(EqualIgnoringCase, ComparesWholeTexts)
{
    EXPECT_TRUE(equal_ignoring_case("Message-Id", "MESSAGE-ID"));
    EXPECT_TRUE(equal_ignoring_case("message-id", "Message-Id"));
    EXPECT_TRUE(equal_ignoring_case("", ""));
    EXPECT_FALSE(equal_ignoring_case("a", ""));
    EXPECT_FALSE(equal_ignoring_case("", "a"));
    EXPECT_FALSE(equal_ignoring_case("ab", "a"));
    EXPECT_FALSE(equal_ignoring_case("a", "ab"));
    EXPECT_FALSE(equal_ignoring_case("ab", "ac"));
}

TEST(EqualIgnoringCase, TakesOnlyLettersForLetters)
{
    EXPECT_FALSE(equal_ignoring_case("@[`{", "`{@["));
    EXPECT_FALSE(equal_ignoring_case("\xc4", "\xe4")) << "as ISO-8859-1";
    EXPECT_FALSE(equal_ignoring_case("\u0131", "I")) << "as Turkish";
    EXPECT_FALSE(equal_ignoring_case("\xfd", "I")) << "as Turkish in ISO-8859-9";
}

TEST(ContainsIgnoringCase, LooksEverywhere)
{
    EXPECT_TRUE(contains_ignoring_case("APOP", "apop"));
    EXPECT_TRUE(contains_ignoring_case("use ApOp", "aPoP"));
    EXPECT_TRUE(contains_ignoring_case("apapop, or not", "apop"));
    EXPECT_TRUE(contains_ignoring_case("", ""));
    EXPECT_TRUE(contains_ignoring_case("a", ""));
    EXPECT_FALSE(contains_ignoring_case("apo", "apop"));
    EXPECT_FALSE(contains_ignoring_case("apo p", "apop"));
    EXPECT_FALSE(contains_ignoring_case("", "apop"));
}

}  // namespace
}  // namespace zelieml
