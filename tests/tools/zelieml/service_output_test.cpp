// service_output_test.cpp - what a service prints

#include "tools/zelieml/service_output.h"

#include <gtest/gtest.h>
#include <string>

#include "tests/support/failing_new.h"

namespace zelieml::test
{

namespace
{

TEST(ServiceOutput, ComplainsWithoutMemory)
{
    testing::internal::CaptureStderr();
    {
        program::service_output output;
        std::string const       text = "something that is too long to be kept in the string itself";
        for (int good = 0; good < 3; ++good) {
            failing_new const none(good);
            output.complain(text);
        }
        {
            failing_new const none(0, 1);
            output.complain(text);
        }
        output.finish();
    }
    std::string const told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("zelieml: there is not enough memory\n"), told.npos) << told;
    EXPECT_NE(told.find("lines are missing here"), told.npos) << told;
}

}  // namespace

}  // namespace zelieml::test
