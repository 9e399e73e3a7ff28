// libmsg_memory_test.cpp - no memory for a message record

#include <cstddef>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/trace_recorder.h"

namespace
{

bool no_records = false;

}  // namespace

// The record is what the library asks for in this form.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    if (no_records) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

namespace zelieml
{
namespace
{

TEST(MessageRecordWithoutMemory, IsNotMade)
{
    int   something = 0;
    void* msg       = &something;
    no_records      = true;
    EXPECT_EQ(msg_create(&msg), -1);
    EXPECT_EQ(msg, nullptr);

    test::clear_traces();
    msg = &something;
    EXPECT_EQ(msg_load(&msg, "/"), -1);
    EXPECT_EQ(msg, nullptr);
    EXPECT_EQ(test::trouble_traces(), std::vector<std::string>()) << "the file was not looked at";
    no_records = false;
}

}  // namespace
}  // namespace zelieml
