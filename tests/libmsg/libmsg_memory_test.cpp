// libmsg_memory_test.cpp - no memory for a message record

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/failing_new.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

TEST(MessageRecordWithoutMemory, IsNotMade)
{
    int   something = 0;
    void* created   = &something;
    void* loaded    = &something;
    test::clear_traces();
    {
        test::failing_new const none(0);
        EXPECT_EQ(msg_create(&created), -1);
        EXPECT_EQ(msg_load(&loaded, "/"), -1);
    }
    EXPECT_EQ(created, nullptr);
    EXPECT_EQ(loaded, nullptr);
    EXPECT_EQ(test::trouble_traces(), std::vector<std::string>()) << "the file was not looked at";
}

}  // namespace
}  // namespace zelieml
