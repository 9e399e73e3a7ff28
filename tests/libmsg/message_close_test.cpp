// message_close_test.cpp - what only closing a message file reports, as a full disk does on some
// file systems

#include <cerrno>
#include <gtest/gtest.h>

#include "libmsg/libmsg.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"
#include "zelieml.h"

using namespace zelieml;

using strings = std::vector<std::string>;

namespace
{

int failing = 0;  // the error of each call

}  // namespace

extern "C" {

int __real_close(int fd);

int __wrap_close(int fd)
{
    int const status = __real_close(fd);
    if (failing != 0) {
        errno = failing;
        return -1;
    }
    return status;
}
}

TEST(MessageFileThatCannotBeClosed, IsNotSaved)
{
    test::temp_dir const dir;
    void*                made = nullptr;
    ASSERT_EQ(msg_create(&made), 0);
    message_holder const msg(made);
    test::clear_traces();

    failing = ENOSPC;
    EXPECT_EQ(eml_msg_save(msg.get(), dir.file("a.sme").c_str()), -1);
    failing = 0;
    EXPECT_EQ(test::traces(), strings{"error:ofstream(%s)"});

    test::clear_traces();
    failing = ENOSPC;
    EXPECT_EQ(eml_post(dir.path().c_str(), msg.get()), -1);
    failing = 0;
    EXPECT_EQ(test::trouble_traces(), (strings{"error:ofstream(%s)", "error:msg_save(%s)"}));
    EXPECT_EQ(test::list_directory(dir.path()).size(), 2U) << "what was written stays";
}

// A close that a signal cuts short has closed the file, and what was written is in it.
TEST(MessageFileWhoseClosingASignalCutsShort, IsSaved)
{
    test::temp_dir const dir;
    void*                made = nullptr;
    ASSERT_EQ(msg_create(&made), 0);
    message_holder const msg(made);
    test::clear_traces();

    failing          = EINTR;
    int const saved  = eml_msg_save(msg.get(), dir.file("a.sme").c_str());
    int const posted = eml_post(dir.path().c_str(), msg.get());
    failing          = 0;
    EXPECT_EQ(saved, 0);
    EXPECT_EQ(posted, 0);
    EXPECT_EQ(test::trouble_traces(), strings{});
    EXPECT_EQ(test::list_directory(dir.path()).size(), 2U);
}
