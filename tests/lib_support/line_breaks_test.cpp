// line_breaks_test.cpp - line breaks and opening dots; the limits of the buffer are in libmsg_test
// and smtpmsg_test

#include "support/line_breaks.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace zelieml
{
namespace
{

std::string copied(char const* in, opening_dot dot)
{
    char out[2][64];
    int  size[2];
    int  result[2];
    for (int cleared = 0; cleared < 2; ++cleared) {
        size[cleared] = sizeof out[cleared];
        std::memset(out[cleared], '#', sizeof out[cleared]);
        auto* const function = cleared != 0 ? copy_with_crlf : write_with_crlf;
        result[cleared]      = function(in, out[cleared], &size[cleared], dot);
    }
    EXPECT_EQ(result[0], result[1]);
    EXPECT_EQ(size[0], size[1]);
    if (result[1] != 0) {
        return "refused";
    }
    EXPECT_STREQ(out[0], out[1]) << "with its NUL";
    return std::string(out[1], static_cast<std::size_t>(size[1]));
}

TEST(CopyWithCrLf, MakesEveryLineBreakCrLf)
{
    EXPECT_EQ(copied("a\nb\rc\r\nd\n\re", opening_dot::kept), "a\r\nb\r\nc\r\nd\r\n\r\ne");
    EXPECT_EQ(copied("", opening_dot::kept), "refused");
}

TEST(CopyWithCrLf, DoublesADotThatOpensALineWhenAskedTo)
{
    EXPECT_EQ(copied(".a\n..\nb.c\r.", opening_dot::doubled), "..a\r\n...\r\nb.c\r\n..");
    EXPECT_EQ(copied(".a\n..\nb.c\r.", opening_dot::kept), ".a\r\n..\r\nb.c\r\n.");
}

// Of all texts of up to six of these characters, in pieces of every size.
TEST(CrLfText, IsTheSameInPiecesAsAtOnce)
{
    char const characters[] = "\n\r.a";
    for (int number = 0; number < 4096; ++number) {
        std::string text;
        for (int i = 0, left = number; i <= number % 7 && i < 6; ++i, left /= 4) {
            text += characters[left % 4];
        }
        for (opening_dot const dot : {opening_dot::kept, opening_dot::doubled}) {
            std::string const whole = copied(text.c_str(), dot);
            for (std::size_t room = 2; room <= 13; ++room) {
                std::string joined;
                crlf_text   pieces(text.c_str(), dot);
                while (!pieces.at_end()) {
                    std::string       piece(room + 1, '#');
                    std::size_t const size = pieces.next(&piece[0], room);
                    ASSERT_TRUE(size > 0 && size <= room && piece[size] == '#');
                    joined += piece.substr(0, size);
                }
                EXPECT_EQ(joined, whole) << "pieces of " << room;
            }
        }
    }
}

TEST(CrLfText, MayBeMadeOfSeveralStrings)
{
    char const characters[] = "\n\r.a";
    for (int number = 0; number < 4096; ++number) {
        std::string text;
        for (int i = 0, left = number; i < 6; ++i, left /= 4) {
            text += characters[left % 4];
        }
        for (opening_dot const dot : {opening_dot::kept, opening_dot::doubled}) {
            std::string const whole = copied(text.c_str(), dot);
            for (std::size_t first = 0; first <= text.size(); ++first) {
                if (first > 0 && text.compare(first - 1, 2, "\r\n") == 0) {
                    continue;
                }
                char              out[13];
                std::string const parts[] = {text.substr(0, first), text.substr(first)};
                crlf_text         pieces(parts[0], dot);
                std::string       joined(out, pieces.next(out, sizeof out));
                EXPECT_TRUE(pieces.at_end());
                pieces.go_on(parts[1]);
                joined.append(out, pieces.next(out, sizeof out));
                EXPECT_TRUE(pieces.at_end());
                EXPECT_EQ(joined, whole) << first;
            }
        }
    }
}

TEST(CrLfText, IsTheSameAsAString)
{
    struct {
        char const* period;
        char const* reason;
    } const texts[] = {
        {"x", "a single line"},
        {"\n", "empty lines, which make the result twice as long"},
        {".\n", "dots and line breaks, the same"},
        {"\r\nabc", "CR LF on the border of two pieces"},
        {"seventy characters or so make up an ordinary line of an ordinary mail\n", "lines"},
    };
    for (auto const& t : texts) {
        for (std::size_t const size :
             {1u, 16383u, 16384u, 16385u, 32767u, 32768u, 32769u, 100000u}) {
            std::string text;
            while (text.size() < size) {
                text += t.period;
            }
            text.resize(size);
            for (opening_dot const dot : {opening_dot::kept, opening_dot::doubled}) {
                std::string buffer(2 * size + 1, '#');
                int         length = static_cast<int>(buffer.size());
                ASSERT_EQ(write_with_crlf(text.c_str(), &buffer[0], &length, dot), 0);
                buffer.resize(static_cast<std::size_t>(length));
                std::string result;
                EXPECT_TRUE(text_with_crlf(text.c_str(), size, dot, result));
                EXPECT_TRUE(result == buffer) << t.reason << ", " << size;
            }
        }
    }
}

TEST(CopyWithCrLf, RefusesNullAndNoRoom)
{
    for (auto* const function : {copy_with_crlf, write_with_crlf}) {
        char out[8] = "";
        int  size   = sizeof out;
        EXPECT_EQ(function(nullptr, out, &size, opening_dot::kept), -1);
        EXPECT_EQ(function("a", nullptr, &size, opening_dot::kept), -1);
        EXPECT_EQ(function("a", out, nullptr, opening_dot::kept), -1);
        EXPECT_EQ(size, static_cast<int>(sizeof out));
        size = 0;
        EXPECT_EQ(function("a", out, &size, opening_dot::kept), -1);
    }
}

}  // namespace
}  // namespace zelieml
