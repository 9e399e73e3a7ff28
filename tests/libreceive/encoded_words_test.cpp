// encoded_words_test.cpp - header fields as text (RFC 2047)

#include "libreceive/encoded_words.h"

#include <cctype>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libbase64/libbase64.h"
#include "support/utf8.h"
#include "tests/support/random_values.h"

namespace zelieml
{

namespace
{

using std::string_literals::operator""s;
using test::random_values;

struct decoding {
    std::string field;
    std::string text;
    char const* reason;
};

void expect_decoded(std::vector<decoding> const& cases)
{
    for (decoding const& c : cases) {
        EXPECT_EQ(decoded_text(c.field), c.text) << c.reason << ": " << c.field;
    }
}

TEST(EncodedWords, AreThoseOfTheExamplesOfRfc2047)
{
    expect_decoded({
        {"=?US-ASCII?Q?Keith_Moore?= <moore@cs.utk.edu>", "Keith Moore <moore@cs.utk.edu>", "From"},
        {"=?ISO-8859-1?Q?Keld_J=F8rn_Simonsen?= <keld@dkuug.dk>",
         "Keld Jørn Simonsen <keld@dkuug.dk>", "To"},
        {"=?ISO-8859-1?Q?Andr=E9?= Pirard <PIRARD@vm1.ulg.ac.be>",
         "André Pirard <PIRARD@vm1.ulg.ac.be>", "Cc"},
        {"=?ISO-8859-1?B?SWYgeW91IGNhbiByZWFkIHRoaXMgeW8=?=\r\n"
         " =?ISO-8859-2?B?dSB1bmRlcnN0YW5kIHRoZSBleGFtcGxlLg==?=",
         "If you can read this you understand the example.", "Subject"},
        {"(=?ISO-8859-1?Q?a?=)", "(a)", "in a comment"},
        {"(=?ISO-8859-1?Q?a?= b)", "(a b)", "text after a word keeps its blank"},
        {"(=?ISO-8859-1?Q?a?= =?ISO-8859-1?Q?b?=)", "(ab)", "no blank between words"},
        {"(=?ISO-8859-1?Q?a?=  =?ISO-8859-1?Q?b?=)", "(ab)", "nor two"},
        {"(=?ISO-8859-1?Q?a?=\r\n       =?ISO-8859-1?Q?b?=)", "(ab)", "nor a line end"},
        {"(=?ISO-8859-1?Q?a_b?=)", "(a b)", "an encoded blank"},
        {"(=?ISO-8859-1?Q?a?= =?ISO-8859-2?Q?_b?=)", "(a b)", "one at the start of a word"},
    });
}

TEST(EncodedWords, AreDecoded)
{
    expect_decoded({
        {"", "", "nothing"},
        {"Printer 7", "Printer 7", "no encoded word"},
        {"=?utf-8?b?w6k=?=", "é", "charset and encoding in lower case"},
        {"=?utf-8*fr?q?=c3=A9?=", "é", "with a language (RFC 2231)"},
        {"=?UTF-8?B?w6k?=", "é", "without the \"=\" that fills up"},
        {"=?UTF-8?B?\?=x", "x", "an empty one"},
        {"a=?UTF-8?Q?b?=c", "abc", "without blanks around it"},
        {"=?UTF-8?Q?a?==?UTF-8?Q?b?=", "ab", "nor between two"},
        {"=?UTF-8?B?w6?= =?UTF-8?Q?=A9?=", "é", "the same, without the \"=\" that fill up"},
        {"=?UTF-8?Q?=C3?= =?UTF-8?B?qQ==?=", "é", "a character split between two words"},
        {"=?EUC-JP?Q?=C6?= =?euc-jp?Q?=FC?=", "日", "the same in another charset"},
        {"=?ISO-2022-JP?B?GyRCRnw=?= =?ISO-2022-JP?B?GyRCS1wbKEI=?=", "日本",
         "each begins in ASCII, although the first has not led back"},
        {"=?ISO-8859-1?Q?=E9?= =?X-NONE?Q?b?= =?UTF-8?Q?c?=", "é =?X-NONE?Q?b?= c",
         "an unknown charset stays with its blanks"},
        {"=?UTF-8?Q?a=3db=zz=?=", "a=b=zz=", "\"=\" without digits is itself"},
        {"=?UTF-8?Q?a=0D=0Ab=00c=09d=7F=C2=85e?=", "a  b c d  e", "controls become blanks"},
        {"=?UTF-8?Q?=E2=82?= x", "\uFFFD\uFFFD x", "cut short"},
        {"=?US-ASCII?Q?=E9?=", "\uFFFD", "not in the charset"},
        {"=?UTF-8?Q?" + std::string(300, 'a') + "?=", std::string(300, 'a'), "longer than allowed"},
    });
}

TEST(EncodedWords, ThatAreMalformedStay)
{
    char const* const cases[] = {
        "=?",
        "=?=",
        "=?UTF-8",
        "=?UTF-8?",
        "=?UTF-8?Q",
        "=?UTF-8?Q?",
        "=?UTF-8?Q?a",
        "=?UTF-8?Q?a?",
        "=?UTF-8?Q?a b?=",       // blanks belong to no word
        "=?UTF-8?X?a?=",         // no such encoding
        "=?UTF-8?QQ?a?=",        // no such encoding
        "=?UTF-8?\?a?=",         // no encoding
        "=?UTF-8?B?!!!!?=",      // no Base64
        "=?UTF-8?B?w6=k?=",      // no Base64
        "=?\?Q?a?=",             // no charset
        "=?ISO-8859-?Q?a?=",     // no charset, but how one begins
        "=?ISO-8859-1/X?Q?a?=",  // more than a name
        "=?UTF-16?Q?a?=",        // not for mails
        "=?ISO-2022-CN-EXT?Q?a?=",
        "=?a charset with a name of more than any has?Q?a?=",
        "=?a-charset-with-a-name-of-more-than-any-has?Q?a?=",
    };
    for (char const* const field : cases) {
        EXPECT_EQ(decoded_text(field), field);
    }
    EXPECT_EQ(decoded_text("=?UTF-8?B?!!!!?= =?UTF-8?Q?a?="), "=?UTF-8?B?!!!!?= a");
    EXPECT_EQ(decoded_text("=?UTF-8?Q?a?= =?UTF-8?B?!!!!?="), "a =?UTF-8?B?!!!!?=");
}

TEST(EncodedWords, OrNotEightBitTextAndEscapeSequencesCount)
{
    expect_decoded({
        {"café", "café", "UTF-8"},
        {"caf\xE9", "caf\uFFFD", "no UTF-8"},
        {"\xC0\x80 \xED\xA0\x80", "\uFFFD\uFFFD \uFFFD\uFFFD\uFFFD", "overlong, and a surrogate"},
        {"a\tb\r\n\x01 c"s + '\0', "a b    c ", "controls become blanks"},
        {"\x1B$BF|K\\\x1B(B, 7", "日本, 7", "ISO-2022-JP"},
        {"\x1B$B=?\x1B(B=?UTF-8?Q?a?=", "戎a", "bytes that look like the start of a word"},
        {"\x1B$BF|", "日", "without the way back"},
        {"\x1B[31m", " [31m", "another escape sequence"},
        {"\x1B", " ", "cut short"},
    });
}

TEST(PlainText, DecodesNothing)
{
    EXPECT_EQ(plain_text("<=?UTF-8?Q?a?=@b>"), "<=?UTF-8?Q?a?=@b>");
    EXPECT_EQ(plain_text("\x1B$B\xE9\t\xC3\xA9"), " $B\uFFFD é");
}

// ---- random texts, with an encoder of the test's own

std::string utf8_of(unsigned code)
{
    std::string out;
    if (code < 0x80) {
        return std::string(1, static_cast<char>(code));
    }
    int const             more   = code >= 0x10000 ? 3 : code >= 0x800 ? 2 : 1;
    static unsigned const lead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(lead[more] | code >> 6 * more);
    for (int i = more - 1; i >= 0; --i) {
        out += static_cast<char>(0x80 | (code >> 6 * i & 0x3F));
    }
    return out;
}

std::string q_of(std::string const& bytes)
{
    std::string out;
    for (char const each : bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "=%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(each)));
        out += each == ' '                                      ? "_"
               : std::isalnum(static_cast<unsigned char>(each)) ? std::string(1, each)
                                                                : hex;
    }
    return out;
}

std::string b_of(std::string const& bytes)
{
    std::string text;
    base64_encode(reinterpret_cast<unsigned char const*>(bytes.data()),
                  static_cast<int>(bytes.size()), false, text);
    return text;
}

// A character that its charset has.
unsigned random_character(random_values& random, bool latin)
{
    if (random.percent(50)) {
        return 0x20 + random.below(0x5F);
    }
    if (latin) {
        return 0xA0 + random.below(0x60);
    }
    return random.percent(50) ? 0x10000 + random.below(0x1000) : 0x3040 + random.below(0x4000);
}

TEST(EncodedWords, GiveBackRandomTexts)
{
    random_values random(7);
    for (int round = 0; round < 3000; ++round) {
        bool const  latin = random.percent(50);
        std::string text;
        std::string bytes;
        for (unsigned left = random.below(60); left > 0; --left) {
            unsigned const code = random_character(random, latin);
            text += utf8_of(code);
            bytes += latin ? std::string(1, static_cast<char>(code)) : utf8_of(code);
        }
        std::string field;
        for (std::size_t at = 0; at < bytes.size();) {
            std::string const part = bytes.substr(at, 1 + random.below(30));
            field += at == 0 ? "" : random.pick({" ", "  ", "\t", "\r\n ", ""});
            field += latin ? "=?iso-8859-1?" : "=?utf-8?";
            field += random.percent(50) ? "Q?" + q_of(part) : "b?" + b_of(part);
            field += "?=";
            at += part.size();
        }
        ASSERT_EQ(decoded_text(field), text) << field;
    }
}

// Whatever comes: UTF-8 that fits on a line, and not too much of it.
TEST(EncodedWords, GiveTextForAnyBytes)
{
    std::vector<std::string> const pieces = {
        "=?",  "?=",    "?",    "=",    "UTF-8",    "GBK",    "ISO-2022-JP",      "EUC-JP",
        "?Q?", "?B?",   "=E9",  "\xE9", "=?GBK?Q?", "\xFF",   "=?ISO-2022-JP?B?", "AAAA",
        " ",   "\r\n ", "\xC2", "\x1B", "\x1B$B",   "\x1B(B", "\x1B(J",           "\x80"};
    random_values random(8);
    for (int round = 0; round < 5000; ++round) {
        std::string const field = random.text(pieces, 40);
        for (std::string const& text : {decoded_text(field), plain_text(field)}) {
            ASSERT_LE(text.size(), 3 * field.size());
            for (std::size_t i = 0; i < text.size();) {
                std::size_t const size = printable_size(text.c_str() + i);
                ASSERT_GT(size, 0U) << field;
                i += size;
            }
        }
    }
}

TEST(EncodedWords, ThatFillAFieldAreDecodedAll)
{
    constexpr int count = 1500;
    std::string   field;
    std::string   text;
    std::string   unknown;
    for (int i = 0; i < count; ++i) {
        field += i % 2 == 0 ? "=?EUC-JP?Q?a?= " : "=?EUC-KR?Q?b?= ";
        unknown += "=?X?Q?a?= ";
        text += i % 2 == 0 ? "a" : "b";
    }
    EXPECT_EQ(decoded_text(field), text + " ");
    EXPECT_EQ(decoded_text(unknown), unknown);
}

}  // namespace

}  // namespace zelieml
