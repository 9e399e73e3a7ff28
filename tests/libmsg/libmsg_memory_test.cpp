// libmsg_memory_test.cpp - no memory for a message record

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
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

// The size of a file is only a hint: its body may be much smaller.
TEST(MessageRecordWithoutMemory, IsLoadedWhenOnlyTheSizeOfItsFileIsTooMuch)
{
    test::temp_dir const dir;
    std::string const    path = dir.file("a.sme");
    test::write_file(path, std::string(10000, 'x'));
    message_file const file   = open_message_file(path.c_str());
    void*              loaded = nullptr;
    int                result = -1;
    {
        test::failing_new const no_memory(1, 1);  // the record, then the hint
        result = msg_load(&loaded, file);
        EXPECT_TRUE(test::failing_new::refused());
    }
    message_holder const msg(loaded);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(msg_get_body(msg.get()), std::string(10000, 'x'));
}

TEST(MessageRecordWithoutMemory, StoresABodyThatCannotBeConvertedAsItIs)
{
    void* created = nullptr;
    ASSERT_EQ(msg_create(&created), 0);
    message_holder const msg(created);
    std::string const    body   = std::string(100000, 'x') + "\n" + std::string(100000, 'y') + "\n";
    int                  result = -1;
    {
        test::failing_new const no_memory(0, 1);
        result = msg_set_body(msg.get(), body.c_str());
        EXPECT_TRUE(test::failing_new::refused());
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(msg_get_body(msg.get()), body);
}

}  // namespace
}  // namespace zelieml
