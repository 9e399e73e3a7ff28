// line_breaks_test.cpp - line breaks and opening dots; the limits of the buffer are in libmsg_test
// and smtpmsg_test

#include "support/line_breaks.h"

#include <gtest/gtest.h>
#include <string>

namespace zelieml
{
namespace
{

std::string copied(char const* in, opening_dot dot)
{
    char out[64];
    int  size = sizeof out;
    return copy_with_crlf(in, out, &size, dot) == 0
               ? std::string(out, static_cast<std::size_t>(size))
               : "refused";
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

}  // namespace
}  // namespace zelieml
