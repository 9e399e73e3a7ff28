// salvage_lock_test.cpp - the look passes over files that are being written or sent

#include "libemlw/salvage.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "platform/clock.h"
#include "tests/support/fake_clock.h"
#include "tests/support/files.h"
#include "tests/support/peers.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/workplace.h"
#include "zelieml.h"

using namespace zelieml;

using strings = std::vector<std::string>;

namespace
{

message_holder new_mail()
{
    void* made = nullptr;
    msg_create(&made);
    msg_set_to(made, "anna@a.test");
    return message_holder(made);
}

// As if its last change were so long ago.
void age(std::string const& path, int seconds)
{
    timespec const then     = {platform::wall_seconds() - seconds, 0};
    timespec const times[2] = {then, then};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

class SalvageLock : public ::testing::Test
{
protected:
    SalvageLock()
    {
        test::set_wall_clock(::time(nullptr), 0);  // and there it stays
        iqmgr* queue = nullptr;
        EXPECT_EQ(iqmgr_create(&queue), 0);
        engine_.queue = queue;
        dir_.path().copy(engine_.workdir, workdir_size - 1);
    }
    ~SalvageLock() override { EXPECT_EQ(iqmgr_destroy(engine_.queue.exchange(nullptr)), 0); }

    // What the look queues.
    strings found()
    {
        test::clear_traces();
        EXPECT_EQ(salvage_queue(&engine_, true), 0);
        strings paths;
        engine_.queue.load()->get(paths, 0, 0);
        return paths;
    }

    test::temp_dir const dir_;
    std::string const    path_ = dir_.file("a.sme");
    _s_iemlw             engine_;
};

}  // namespace

TEST_F(SalvageLock, KeepsAHalfWrittenFileFromBeingQueued)
{
    message_file file = overwrite_message_file(path_.c_str());
    ASSERT_TRUE(file.write("to: an", 6));
    EXPECT_EQ(found(), strings());
    EXPECT_EQ(test::traces(), strings{"salvage_queue salvage"}) << "it is not spoken of";
    ASSERT_TRUE(file.write("na@a.test\n", 10));
    file.close();
    EXPECT_EQ(found(), strings{path_});
}

TEST_F(SalvageLock, EndsWithTheSave)
{
    EXPECT_EQ(eml_msg_save(new_mail().get(), path_.c_str()), 0);
    EXPECT_EQ(found(), strings{path_});
}

TEST_F(SalvageLock, LastsForAnHourAfterTheLastChange)
{
    test::write_file(path_, "to: anna@a.test\n");
    // Whoever can read a file can lock it.
    unique_fd const reader(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(reader.get(), LOCK_SH), 0);
    EXPECT_EQ(found(), strings{path_}) << "a reader's lock does not say that it is written";
    engine_.queue.load()->erase({path_});

    test::write_file(path_, "to: anna@a.test\n");
    unique_fd const holder(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
    age(path_, 3599);
    EXPECT_EQ(found(), strings());
    age(path_, 3600);
    EXPECT_EQ(found(), strings{path_});
}

TEST_F(SalvageLock, IsNotThereYetOnAFileThatIsEmpty)
{
    test::write_file(path_, "");
    EXPECT_EQ(found(), strings());
    age(path_, 59);
    EXPECT_EQ(found(), strings());
    age(path_, 60);
    EXPECT_EQ(found(), strings{path_});
}

// A mail that is sent on the spot, in another process, while an engine looks through the directory.
TEST_F(SalvageLock, KeepsAMailThatIsBeingSentFromBeingSentTwice)
{
    test::listening_socket const server;
    test::write_file(dir_.file("zelismes.cf"), test::settings_for(server.port()));
    pid_t const poster = ::fork();
    if (poster == 0) {
        void* result = nullptr;
        eml_post_sync(dir_.path().c_str(), new_mail().get(), &result);
        ::_exit(0);
    }
    unique_fd connection = server.accept();  // and keeps it waiting
    EXPECT_EQ(test::list_directory(dir_.path()).size(), 2U);
    EXPECT_EQ(found(), strings());
    connection.reset();
    EXPECT_EQ(::waitpid(poster, nullptr, 0), poster);
    EXPECT_EQ(test::list_directory(dir_.path()), strings{"zelismes.cf"});
}

TEST_F(SalvageLock, DoesNotProtectAFileWhenAnEngineStarts)
{
    message_file const file = overwrite_message_file(path_.c_str());
    EXPECT_EQ(salvage_queue(&engine_, false), 0);
    EXPECT_FALSE(test::file_exists(path_));
}
