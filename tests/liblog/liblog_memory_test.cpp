// liblog_memory_test.cpp - no memory for a line of the log

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "liblog/liblog.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

TEST(LogWithoutMemory, LeavesTheLineOutAndThrowsNothing)
{
    test::temp_dir    dir;
    std::string const work = dir.file("a work directory with a name of some length");
    {
        test::failing_new const none(0);
        EXPECT_NO_THROW(liblog(work.c_str(), "lost"));
        EXPECT_TRUE(test::failing_new::refused());
    }
    EXPECT_EQ(test::list_directory(dir.path()), std::vector<std::string>());
    liblog(work.c_str(), "kept");
    EXPECT_EQ(test::list_directory(dir.path()).size(), 1U);
}

}  // namespace
}  // namespace zelieml
