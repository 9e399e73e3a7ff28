// message_close_test.cpp - what only closing a message file reports, as a full disk does on some
// file systems, and calls that signals cut short

#include <cerrno>
#include <gtest/gtest.h>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"
#include "zelieml.h"

using namespace zelieml;

using strings = std::vector<std::string>;

namespace
{

int failing       = 0;  // the error of each call of close
int interruptions = 0;  // reads and writes that end with EINTR first
int reads         = 0;

bool interrupted()
{
    if (interruptions == 0) {
        return false;
    }
    --interruptions;
    errno = EINTR;
    return true;
}

}  // namespace

extern "C" {

int     __real_close(int fd);
ssize_t __real_write(int fd, void const* data, size_t size);
ssize_t REAL_PREAD(int fd, void* data, size_t size, off_t position);

int __wrap_close(int fd)
{
    int const status = __real_close(fd);
    if (failing != 0) {
        errno = failing;
        return -1;
    }
    return status;
}

ssize_t __wrap_write(int fd, void const* data, size_t size)
{
    return interrupted() ? -1 : __real_write(fd, data, size);
}

ssize_t WRAP_PREAD(int fd, void* data, size_t size, off_t position)
{
    if (++reads > 10) {
        errno = 0;  // whoever reads again and again comes to an end
        return 0;
    }
    return interrupted() ? -1 : REAL_PREAD(fd, data, size, position);
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

TEST(MessageFileWhoseCallsSignalsCutShort, IsWrittenAndReadWhole)
{
    test::temp_dir const dir;
    message_file const   file = create_message_file(dir.file("a.sme").c_str());
    interruptions             = 2;
    EXPECT_TRUE(file.write("subject: s", 10));
    EXPECT_EQ(interruptions, 0);

    char bytes[20];
    interruptions = 2;
    reads         = 0;
    EXPECT_EQ(file.read(bytes, sizeof bytes, 0), 10);
    EXPECT_EQ(reads, 3);
    EXPECT_EQ(std::string(bytes, 10), "subject: s");
}
