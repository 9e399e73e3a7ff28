// no_locks_test.cpp - a file system that has no locks

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "libemlw/salvage.h"
#include "libmsg/libmsg.h"
#include "tests/support/files.h"
#include "zelieml.h"

using namespace zelieml;

using strings = std::vector<std::string>;

namespace
{

int lock_error = 0;
int lock_calls = 0;

}  // namespace

extern "C" int __wrap_flock(int /*fd*/, int /*operation*/)
{
    ++lock_calls;
    errno = lock_error;
    return -1;
}

TEST(WithoutLocks, MessagesAreSavedAndFoundAllTheSame)
{
    for (int const error : {ENOLCK, EOPNOTSUPP, ENOSYS, EINVAL}) {
        lock_error = error;
        lock_calls = 0;
        test::temp_dir const dir;
        std::string const    path = dir.file("a.sme");
        message_file         file = create_message_file(path.c_str());
        ASSERT_TRUE(file.write("to: a", 5));

        _s_iemlw engine;
        iqmgr*   queue = nullptr;
        ASSERT_EQ(iqmgr_create(&queue), 0);
        engine.queue = queue;
        dir.path().copy(engine.workdir, workdir_size - 1);
        strings found;
        EXPECT_EQ(salvage_queue(&engine, true), 0);
        queue->get(found, 0, 0);
        EXPECT_EQ(found, strings{path}) << error;
        EXPECT_TRUE(file.close());
        EXPECT_EQ(lock_calls, 2) << "a lock that was not had is not given up";
        EXPECT_EQ(iqmgr_destroy(engine.queue.exchange(nullptr)), 0);
    }
}
