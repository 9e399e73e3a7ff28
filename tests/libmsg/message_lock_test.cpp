// message_lock_test.cpp - a message file is locked while it is written or sent

#include <csignal>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "tests/support/files.h"

using namespace zelieml;

namespace
{

class MessageLock : public ::testing::Test
{
protected:
    // As an engine's look sees it.
    bool locked() const { return open_message_file(path_.c_str()).is_locked_elsewhere(); }

    test::temp_dir const dir_;
    std::string const    path_ = dir_.file("a.sme");
};

}  // namespace

TEST_F(MessageLock, LastsUntilTheFileIsClosed)
{
    message_file made = create_message_file(path_.c_str());
    EXPECT_TRUE(locked());
    made.close();
    EXPECT_FALSE(locked());
    {
        message_file const overwritten = overwrite_message_file(path_.c_str());
        EXPECT_TRUE(locked());
        message_file const second = overwrite_message_file(path_.c_str());
        EXPECT_TRUE(second) << "it is advisory";
    }
    EXPECT_FALSE(locked());
}

TEST_F(MessageLock, IsNotHeldByReaders)
{
    test::write_file(path_, "subject: s");
    message_file const engines = open_message_file(path_.c_str());
    message_file const loading = follow_message_file(path_.c_str());
    EXPECT_FALSE(locked());
    EXPECT_FALSE(engines.is_locked_elsewhere());
    EXPECT_FALSE(loading.is_locked_elsewhere()) << "looking leaves no lock behind";
}

TEST_F(MessageLock, EndsAlthoughAForkedChildHasTheFileToo)
{
    message_file file  = create_message_file(path_.c_str());
    pid_t const  child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    EXPECT_TRUE(locked());
    file.close();
    EXPECT_FALSE(locked());
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST_F(MessageLock, MovesWithTheFileAndEndsWhenAnotherTakesItsPlace)
{
    message_file file;
    file = create_message_file(path_.c_str());
    unique_fd const childs(::dup(file.descriptor()));  // as a forked child has it
    EXPECT_TRUE(locked());
    file = message_file();
    EXPECT_FALSE(locked());
}

TEST_F(MessageLock, OfASecondWriterIsNotEndedByTheFirst)
{
    message_file       first  = create_message_file(path_.c_str());
    message_file       second = overwrite_message_file(path_.c_str());
    message_file const third  = overwrite_message_file(path_.c_str());
    second.close();
    EXPECT_TRUE(locked()) << "only who has it gives it up";
    first.close();
    EXPECT_FALSE(locked());
}
