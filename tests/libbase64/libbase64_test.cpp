// libbase64_test.cpp - Base64 as the library writes and reads it

#include "libbase64/libbase64.h"

#include <climits>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/libbase64/base64_model.h"
#include "tests/support/bytes_of.h"
#include "tests/support/fake_heap.h"

namespace zelieml
{

namespace
{

using std::string_literals::operator""s;
using test::bytes_of;

// What base64_encode makes, or nothing when it fails.
std::optional<std::string> encode(std::string const& data, bool line_breaks = false)
{
    base64_buffer const text(
        base64_encode(bytes_of(data), static_cast<int>(data.size()), line_breaks));
    std::string into = "what was there before";
    EXPECT_EQ(base64_encode(bytes_of(data), static_cast<int>(data.size()), line_breaks, into),
              static_cast<bool>(text));
    EXPECT_EQ(into, text ? reinterpret_cast<char const*>(text.get()) : "");
    if (!text) {
        return std::nullopt;
    }
    return into;
}

// What base64_decode_ex makes, or nothing when it fails. The string has a buffer of its exact size,
// so that reading past its end is seen.
std::optional<std::string> decode(std::string const& text)
{
    std::vector<unsigned char> const exact(text.begin(), text.end());
    unsigned char const              none = 0;
    int                              len  = -1;
    base64_buffer const              data(base64_decode_ex(exact.empty() ? &none : exact.data(),
                                                           static_cast<int>(exact.size()), &len));
    if (!data) {
        EXPECT_EQ(len, -1) << "the length is left alone on failure";
        return std::nullopt;
    }
    EXPECT_EQ(data.get()[len], '\0');
    return std::string(reinterpret_cast<char const*>(data.get()), static_cast<std::size_t>(len));
}

std::string random_bytes(std::mt19937& random, std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size) {
        bytes += static_cast<char>(random());
    }
    return bytes;
}

struct vector_case {
    std::string data;
    std::string text;
};

// The test vectors of RFC 4648, and the padded and unpadded ends of binary data.
vector_case const vectors[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
    {"\0u\0p"s, "AHUAcA=="},
    {"\xff\xff\xff", "////"},
    {"\xfb\xef\xbe", "++++"},
};

TEST(Base64, EncodesThePublishedVectors)
{
    for (vector_case const& c : vectors) {
        EXPECT_EQ(encode(c.data), c.text);
    }
}

TEST(Base64, DecodesThePublishedVectors)
{
    for (vector_case const& c : vectors) {
        EXPECT_EQ(decode(c.text), c.data) << c.text;
    }
}

struct line_case {
    char const* reason;
    std::size_t bytes;
    std::string ends;  // 'c' a character, '=' padding, 'n' CR LF
};

TEST(Base64, BreaksLinesAfter76Characters)
{
    std::string const full(76, 'c');
    line_case const   cases[] = {
          {"nothing makes no line", 0, ""},
          {"54 bytes make a line of 72 characters", 54, std::string(72, 'c')},
          {"55 bytes fill the line with their padding", 55, std::string(74, 'c') + "==n"},
          {"56 bytes fill the line with their padding", 56, std::string(75, 'c') + "=n"},
          {"57 bytes fill the line", 57, full + "n"},
          {"a shorter last line has no break", 58, full + "ncc=="},
          {"a full line at the end has a break too", 114, full + "n" + full + "n"},
          {"padding fills the second line too", 112, full + "n" + std::string(74, 'c') + "==n"},
          {"two lines and one more group", 117, full + "n" + full + "ncccc"},
    };
    for (line_case const& c : cases) {
        std::string shape;
        for (char const character : encode(std::string(c.bytes, 'x'), true).value_or("null")) {
            if (character == '\r') {
                continue;
            }
            shape += character == '\n' ? 'n' : character == '=' ? '=' : 'c';
        }
        EXPECT_EQ(shape, c.ends) << c.reason;
    }
}

TEST(Base64, WithoutLineBreaksEverythingIsOneLine)
{
    EXPECT_EQ(encode(std::string(114, 'x'))->size(), 152U);
    EXPECT_EQ(encode(std::string(114, 'x'))->find('\n'), std::string::npos);
}

TEST(Base64, EncodesAsTheModelDoesAtEveryLength)
{
    std::mt19937 random(1);
    for (std::size_t size = 0; size < 400; ++size) {
        std::string const data = random_bytes(random, size);
        EXPECT_EQ(encode(data, false), test::model_encode(data, false)) << size;
        EXPECT_EQ(encode(data, true), test::model_encode(data, true)) << size;
    }
}

TEST(Base64, DecodesWhatItEncoded)
{
    std::mt19937 random(2);
    for (std::size_t size = 0; size < 400; ++size) {
        std::string const data = random_bytes(random, size);
        EXPECT_EQ(decode(*encode(data, false)), data) << size;
        EXPECT_EQ(decode(*encode(data, true)), data) << size;
    }
    std::string const large = random_bytes(random, 1000003);
    EXPECT_EQ(decode(*encode(large, true)), large);
}

struct decode_case {
    char const*                reason;
    std::string                text;
    std::optional<std::string> data;
};

TEST(Base64, DecodesByItsOwnRules)
{
    decode_case const cases[] = {
        {"a trailing line break is ignored", "Zm9v\r\n", "foo"},
        {"a trailing line feed is ignored", "Zm9v\n", "foo"},
        {"up to three trailing characters of any kind are ignored", "Zm9v ?*", "foo"},
        {"less than a group is nothing", "Zm9", ""},
        {"a line break may stand before the first group", "\r\nZm9v", "foo"},
        {"carriage return alone", "Zm9v\rYmFy", "foobar"},
        {"line feed alone", "Zm9v\nYmFy", "foobar"},
        {"the two in the other order", "Zm9v\n\rYmFy", "foobar"},
        {"two line feeds", "Zm9v\n\nYmFy", "foobar"},
        {"three line-break characters are one too many", "Zm9v\r\n\nYmFy", std::nullopt},
        {"a line break within a group", "Zm\r\n9v", std::nullopt},
        {"skipping may leave less than a group", "Zm9v\r\nYm", "foo"},
        {"skipping may leave nothing", "Zm9vYmFy\r\n\r\n", "foobar"},
        {"four line breaks are skipped in pairs only before a group", "\r\n\r\nZm9v", std::nullopt},
        {"a space between groups", "Zm9v YmFy", std::nullopt},
        {"a space within a group", "Zm 9", std::nullopt},
        {"a character outside the alphabet", "Zm9*", std::nullopt},
        {"the alphabet for file names and URLs", "Zm_-", std::nullopt},
        {"a NUL", "Zm\0v"s, std::nullopt},
        {"a byte of 128", "Zm9\x80", std::nullopt},
        {"a byte of 255",
         "\xff"
         "m9v",
         std::nullopt},
        {"a bad group after good ones", "Zm9vYmFyZm*v", std::nullopt},
        {"padding ends a group, not the string", "Zg==Zm8=Zm9v", "ffofoo"},
        {"padding as third character omits the second byte only", "AA=B", "\0\1"s},
        {"padding as first character has the value 64", "=AAA", "\0\0\0"s},
        {"padding as second character has the value 64", "A=AA", "\4\0\0"s},
        {"padding everywhere", "====", "\4"},
    };
    for (decode_case const& c : cases) {
        EXPECT_EQ(decode(c.text), c.data) << c.reason;
        EXPECT_EQ(test::model_decode(c.text), c.data) << c.reason << ", by the model";
    }
}

TEST(Base64, DecodesAnythingAsTheModelDoes)
{
    std::mt19937      random(3);
    std::string const characters = "AZaz09+/==\r\n\r\n";
    for (int i = 0; i < 100000; ++i) {
        std::string text(random() % 40, '?');
        for (char& character : text) {
            character = random() % 200 == 0 ? static_cast<char>(random())
                                            : characters[random() % characters.size()];
        }
        ASSERT_EQ(decode(text), test::model_decode(text)) << ::testing::PrintToString(text);
    }
}

TEST(Base64, DecodesTheCharactersThatTheAlphabetHasAndNoOthers)
{
    std::string const all = test::base64_alphabet;
    for (int byte = 0; byte < 256; ++byte) {
        auto const character = static_cast<char>(byte);
        bool const valid     = all.find(character) != std::string::npos;
        EXPECT_EQ(decode(std::string("AAA") + character).has_value(), valid) << byte;
        EXPECT_EQ(decode(std::string("AA") + character + "A").has_value(), valid) << byte;
        EXPECT_EQ(decode(std::string("A") + character + "AA").has_value(), valid) << byte;
        // As first character CR and LF are skipped, and the three that are left are ignored.
        bool const skipped = character == '\r' || character == '\n';
        EXPECT_EQ(decode(character + std::string("AAA")).has_value(), valid || skipped) << byte;
    }
}

TEST(Base64, DecodingWithoutALengthGivesTheSameBytes)
{
    std::string const   text = "Zm9vYmFy\r\n";
    base64_buffer const data(base64_decode(bytes_of(text), static_cast<int>(text.size())));
    ASSERT_TRUE(data);
    EXPECT_STREQ(reinterpret_cast<char const*>(data.get()), "foobar");
}

TEST(Base64, RefusesNullAndNegativeLengths)
{
    unsigned char const data = 'x';
    int                 len  = 7;
    std::string         text = "what was there before";
    EXPECT_EQ(base64_encode(nullptr, 0, false), nullptr);
    EXPECT_FALSE(base64_encode(nullptr, 0, false, text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(base64_encode(nullptr, 3, true), nullptr);
    EXPECT_EQ(base64_encode(&data, -1, false), nullptr);
    EXPECT_FALSE(base64_encode(&data, -1, false, text));
    EXPECT_EQ(base64_encode(&data, INT_MIN, true), nullptr);
    EXPECT_EQ(base64_decode_ex(nullptr, 0, &len), nullptr);
    EXPECT_EQ(base64_decode_ex(&data, -1, &len), nullptr);
    EXPECT_EQ(base64_decode_ex(&data, 1, nullptr), nullptr);
    EXPECT_EQ(base64_decode(nullptr, 4), nullptr);
    EXPECT_EQ(base64_decode(&data, INT_MIN), nullptr);
    EXPECT_EQ(len, 7);
}

TEST(Base64, RefusesDataWhoseEncodedLengthPassesAnInt)
{
    // The shortest lengths that are too long: the data is never looked at.
    unsigned char const data = 'x';
    std::string         text;
    EXPECT_EQ(base64_encode(&data, 1610612734, false), nullptr);
    EXPECT_FALSE(base64_encode(&data, 1610612734, false, text));
    EXPECT_EQ(base64_encode(&data, INT_MAX, false), nullptr);
    EXPECT_FALSE(base64_encode(&data, INT_MAX, false, text));
    EXPECT_EQ(base64_encode(&data, INT_MAX, true), nullptr);
    EXPECT_FALSE(base64_encode(&data, INT_MAX, true, text));
    EXPECT_EQ(base64_encode(&data, 1569314971, true), nullptr);
    EXPECT_FALSE(base64_encode(&data, 1569314971, true, text));
}

TEST(Base64, FailsWithoutMemoryAndLeavesNothingBehind)
{
    int const before = test::live_heap_buffers();
    test::fail_heap_after(0);
    std::string const text = "foo";
    EXPECT_EQ(base64_encode(bytes_of(text), 3, false), nullptr);
    EXPECT_EQ(base64_encode(bytes_of(text), 3, true), nullptr);
    EXPECT_EQ(decode("Zm9v"), std::nullopt);
    test::fail_heap_after(-1);
    EXPECT_EQ(decode("Zm9*"), std::nullopt);
    EXPECT_EQ(encode("foo"), "Zm9v");
    EXPECT_EQ(test::live_heap_buffers(), before);
}

TEST(Base64, FreesNull)
{
    int const before = test::live_heap_buffers();
    base64_free(nullptr);
    EXPECT_EQ(test::live_heap_buffers(), before);
}

}  // namespace
}  // namespace zelieml
