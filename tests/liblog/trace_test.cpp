// trace_test.cpp - the trace hook of the shipped library

#include "liblog/trace.h"

#include <gtest/gtest.h>
#include <string>

namespace zelieml
{
namespace
{

TEST(TraceHook, DoesNothingWithAnyText)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (char const* text : {"eml_start in", "error:conf_get_string %s", "%s%s%n%d", "",
                             static_cast<char const*>(nullptr)}) {
        trace_msg(text);
    }
    trace_msg(std::string(1000000, '%').c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace zelieml
