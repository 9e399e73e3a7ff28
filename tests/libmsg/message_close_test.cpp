// message_close_test.cpp - what only closing a message file reports, as a full disk does on some
// file systems, calls that signals cut short, and reads that give less than they are asked for

#include <cerrno>
#include <gtest/gtest.h>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "tests/support/files.h"
#include "tests/support/interruptions.h"
#include "tests/support/trace_recorder.h"
#include "zelieml.h"

using namespace zelieml;
using test::interrupted;  // reads and writes
using test::interruptions;

using strings = std::vector<std::string>;

namespace
{

int failing   = 0;  // the error of each call of close
int reads     = 0;
int most_read = 0;  // bytes that one call of pread gives; 0: any number

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
    if (interrupted()) {
        return -1;
    }
    auto const most = static_cast<size_t>(most_read);
    return REAL_PREAD(fd, data, most > 0 && most < size ? most : size, position);
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
    message_file         file = create_message_file(dir.file("a.sme").c_str());
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

// As in the middle of a file on some network file systems.
TEST(MessageFileWhoseReadsAreShort, IsLoadedWhole)
{
    test::temp_dir const dir;
    std::string const    path = dir.file("a.sme");
    std::string const    body(5000, 'x');
    message_file         written = create_message_file(path.c_str());
    ASSERT_TRUE(written.write(body.data(), body.size()));
    struct {
        char const*         opened;
        message_file const& file;
        int                 reads;
    } const cases[] = {
        {"by an engine", open_message_file(path.c_str()), 5},
        {"for a user", follow_message_file(path.c_str()), 5},
        {"when it was written", written, 5},
    };
    for (auto const& c : cases) {
        void* loaded                = nullptr;
        most_read                   = 1000;
        reads                       = 0;
        int const            result = msg_load(&loaded, c.file);
        message_holder const msg(loaded);
        most_read = 0;
        EXPECT_EQ(result, 0) << c.opened;
        EXPECT_EQ(msg_get_body(msg.get()).size(), body.size()) << c.opened;
        EXPECT_EQ(reads, c.reads) << c.opened;
    }
}

TEST(MessageFileThatGrewOrShrank, IsLoadedAsItIs)
{
    test::temp_dir const dir;
    std::string const    path = dir.file("a.sme");
    for (std::size_t const size : {0U, 10U, 5000U, 9000U}) {
        test::write_file(path, std::string(4500, 'x'));
        message_file const file = open_message_file(path.c_str());
        test::write_file(path, std::string(size, 'x'));
        void* loaded = nullptr;
        reads        = 0;
        EXPECT_EQ(msg_load(&loaded, file), 0) << size;
        message_holder const msg(loaded);
        EXPECT_EQ(msg_get_body(msg.get()).size(), size);
    }
}
