#include "platform/charset.h"

#include <gtest/gtest.h>
#include <string>

namespace zelieml::platform
{

namespace
{

using std::string_literals::operator""s;

TEST(Charset, ConvertsAndAppends)
{
    struct {
        char const* charset;
        std::string bytes;
        std::string text;
    } const cases[] = {
        {"ISO-8859-1", "caf\xE9", "café"},
        {"ISO-8859-2", "\xB3", "ł"},
        {"WINDOWS-1252", "\x80 1", "€ 1"},
        {"KOI8-R", "\xD0\xD2\xC9", "при"},
        {"ISO-2022-JP", "\x1B$BF|K\\\x1B(B.", "日本."},
        {"SHIFT_JIS", "\x93\xFA\x96{", "日本"},
        {"EUC-JP", "\xC6\xFC\xCB\xDC", "日本"},
        {"EUC-KR", "\xC7\xD1", "한"},
        {"GB18030", "\x95\x32\x82\x36", "\xF0\xA0\x80\x80"},
        {"ISO-8859-1", "", ""},
        {"ISO-8859-1", std::string(10000, '\xE9'),
         [] {
             std::string text;
             for (int i = 0; i < 10000; ++i) {
                 text += "é";
             }
             return text;
         }()},
    };
    for (auto const& c : cases) {
        std::string out = "before ";
        EXPECT_TRUE(append_as_utf8(c.charset, c.bytes, out)) << c.charset;
        EXPECT_EQ(out, "before " + c.text) << c.charset;
    }
}

TEST(Charset, WhatMeansNothingBecomesTheReplacementCharacter)
{
    struct {
        char const* charset;
        std::string bytes;
        std::string text;
    } const cases[] = {
        {"EUC-JP", "a\xFF\xC6\xFC", "a\uFFFD日"},
        {"EUC-JP", "a\xC6", "a\uFFFD"},
        {"SHIFT_JIS",
         "\xFD"
         "b",
         "\uFFFDb"},
    };
    for (auto const& c : cases) {
        std::string out;
        EXPECT_TRUE(append_as_utf8(c.charset, c.bytes, out)) << c.charset;
        EXPECT_EQ(out, c.text) << c.charset;
    }
}

// How many they become depends on the system.
TEST(Charset, TextAroundABrokenEscapeSequenceIsKept)
{
    std::string out;
    EXPECT_TRUE(append_as_utf8("ISO-2022-JP", "a\x1B$B\xFF\xFF\x1B(Bb", out));
    EXPECT_EQ(out.front(), 'a');
    EXPECT_NE(out.find(replacement_character), std::string::npos);
    EXPECT_EQ(out.back(), 'b');
}

TEST(Charset, AnUnknownOneIsRefused)
{
    std::string out = "kept";
    EXPECT_FALSE(append_as_utf8("no-charset-at-all", "a", out));
    EXPECT_EQ(out, "kept");
}

}  // namespace

}  // namespace zelieml::platform
