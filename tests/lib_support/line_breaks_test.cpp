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
