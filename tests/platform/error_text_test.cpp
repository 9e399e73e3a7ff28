#include "platform/error_text.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

using zelieml::platform::error_text;

namespace
{

std::string text_of(int error)
{
    return error_text(error).c_str();
}

}  // namespace

TEST(ErrorText, SaysWhatAnErrorMeans)
{
    EXPECT_EQ(text_of(ENOENT), "No such file or directory");
    EXPECT_EQ(text_of(ECONNREFUSED), "Connection refused");
}

TEST(ErrorText, KnowsNoTextForSomeNumbers)
{
    for (int error : {-1, 99999}) {
        EXPECT_EQ(text_of(error).compare(0, 13, "Unknown error"), 0) << text_of(error);
    }
}
