// libetc_test.cpp - bytes as hexadecimal digits, and back

#include "libetc/libetc.h"

#include <climits>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>

#include "tests/support/bytes_of.h"
#include "tests/support/fake_heap.h"
#include "tests/support/hex.h"

namespace zelieml
{

namespace
{

using std::string_literals::operator""s;
using test::bytes_of;

std::optional<std::string> to_digits(std::string const& data)
{
    binhex_buffer const text(etc_bin2hexstr(bytes_of(data), static_cast<int>(data.size())));
    if (!text) {
        return std::nullopt;
    }
    return std::string(reinterpret_cast<char const*>(text.get()));
}

std::optional<std::string> to_bytes(std::string const& text)
{
    int                 len = -1;
    binhex_buffer const data(etc_hexstr2bin(bytes_of(text), &len));
    if (!data) {
        EXPECT_EQ(len, -1) << "the length is left alone on failure";
        return std::nullopt;
    }
    return std::string(reinterpret_cast<char const*>(data.get()), static_cast<std::size_t>(len));
}

TEST(Hex, WritesTwoUpperCaseDigitsForEachByte)
{
    EXPECT_EQ(to_digits("\x0a\xff"), "0AFF");
    EXPECT_EQ(to_digits("\0"s), "00");
    EXPECT_EQ(to_digits("\x12\x34\x56\x78\x9a\xbc\xde\xf0"), "123456789ABCDEF0");
}

TEST(Hex, NothingHasNoText)
{
    EXPECT_EQ(to_digits(""), std::nullopt);
}

struct read_case {
    char const*                reason;
    std::string                text;
    std::optional<std::string> data;
};

TEST(Hex, ReadsPairsOfDigits)
{
    read_case const cases[] = {
        {"lower case", "0aff", "\x0a\xff"},
        {"upper case", "0AFF", "\x0a\xff"},
        {"both cases", "aBcD", "\xab\xcd"},
        {"every digit", "0123456789abcdef", "\x01\x23\x45\x67\x89\xab\xcd\xef"},
        {"no digits make no bytes, but a buffer", "", ""},
        {"other characters count as 0", "g1/1:1@1G1`1 1-1", "\1\1\1\1\1\1\1\1"},
        {"another character counts as 0 as second of a pair too", "1g", "\x10"},
        {"bytes of 128 and above count as 0",
         "\xff"
         "5",
         "\5"},
        {"a single digit is half a byte", "0", std::nullopt},
        {"an odd number of digits", "0aff0", std::nullopt},
    };
    for (read_case const& c : cases) {
        EXPECT_EQ(to_bytes(c.text), c.data) << c.reason;
    }
}

TEST(Hex, ReadsWhatItWrote)
{
    std::mt19937 random(4);
    for (std::size_t size = 1; size < 300; ++size) {
        std::string data;
        while (data.size() < size) {
            data += static_cast<char>(random());
        }
        std::optional<std::string> const text = to_digits(data);
        ASSERT_TRUE(text);
        EXPECT_EQ(test::from_hex(*text), data);
        EXPECT_EQ(to_bytes(*text), data);
    }
}

TEST(Hex, RefusesNullAndLengthsBelowOne)
{
    unsigned char const data = 'x';
    int                 len  = 7;
    EXPECT_EQ(etc_bin2hexstr(nullptr, 1), nullptr);
    EXPECT_EQ(etc_bin2hexstr(nullptr, 0), nullptr);
    EXPECT_EQ(etc_bin2hexstr(&data, -1), nullptr);
    EXPECT_EQ(etc_bin2hexstr(&data, INT_MIN), nullptr);
    EXPECT_EQ(etc_hexstr2bin(nullptr, &len), nullptr);
    EXPECT_EQ(etc_hexstr2bin(bytes_of("00"), nullptr), nullptr);
    EXPECT_EQ(len, 7);
}

TEST(Hex, RefusesDataWhoseDigitsPassAnInt)
{
    // The data is never looked at.
    unsigned char const data = 'x';
    EXPECT_EQ(etc_bin2hexstr(&data, INT_MAX / 2 + 1), nullptr);
    EXPECT_EQ(etc_bin2hexstr(&data, INT_MAX), nullptr);
}

TEST(Hex, FailsWithoutMemoryAndLeavesNothingBehind)
{
    int const before = test::live_heap_buffers();
    test::fail_heap_after(0);
    EXPECT_EQ(to_digits("x"), std::nullopt);
    EXPECT_EQ(to_bytes("00"), std::nullopt);
    test::fail_heap_after(-1);
    EXPECT_EQ(to_digits("x"), "78");
    EXPECT_EQ(to_bytes("78"), "x");
    etc_binhex_free(nullptr);
    EXPECT_EQ(test::live_heap_buffers(), before);
}

}  // namespace
}  // namespace zelieml
