// queue_memory_test.cpp - without memory the queue fails as a whole, and loses nothing

#include "libqueue/libqueue.h"

#include <functional>
#include <gtest/gtest.h>
#include <new>

#include "tests/support/failing_new.h"
#include "tests/support/files.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

namespace
{

// Makes the call again and again, with memory for one request more each time, until none is
// refused. One request fails, and those after it succeed.
//
// call     says whether it succeeded; may throw std::bad_alloc
// refused  after each call that was refused memory and failed
void until_it_succeeds(std::function<bool()> const& call, std::function<void()> const& refused)
{
    int failures = 0;
    for (int good = 0; good < 10000; ++good) {
        bool succeeded = false;
        try {
            test::failing_new const once(good, 1);
            succeeded = call();
        } catch (std::bad_alloc const&) {
        }
        if (!test::failing_new::refused()) {
            EXPECT_TRUE(succeeded);
            EXPECT_GT(failures, 0) << "it needs no memory";
            return;
        }
        EXPECT_FALSE(succeeded) << "at request " << good;
        ++failures;
        SCOPED_TRACE("request " + std::to_string(good));
        refused();
    }
    ADD_FAILURE() << "the call never succeeds";
}

}  // namespace

TEST(QueueManagerMemory, WithoutItNoManagerIsMadeAndNothingThrown)
{
    void*  something = &something;
    iqmgr* queue     = nullptr;
    int    made      = 0;
    until_it_succeeds(
        [&] {
            queue = static_cast<iqmgr*>(something);  // has to be overwritten
            made  = 1;                               // so has this
            made  = iqmgr_create(&queue);
            return made == 0;
        },
        [&] {
            EXPECT_EQ(made, -1);
            EXPECT_EQ(queue, nullptr);
        });
    EXPECT_EQ(iqmgr_destroy(queue), 0);
}

class QueueMemory : public ::testing::Test
{
protected:
    QueueMemory() { EXPECT_EQ(iqmgr_create(&queue_), 0); }
    ~QueueMemory() override { EXPECT_EQ(iqmgr_destroy(queue_), 0); }

    // A message file; its path is longer than a string keeps by itself.
    std::string message(int number) const
    {
        std::string path =
            dir_.file("a message file with a name of some length" + std::to_string(number));
        test::write_file(path, "");
        return path;
    }
    strings messages(std::size_t count) const
    {
        strings paths;
        for (std::size_t i = 0; i < count; ++i) {
            paths.push_back(message(static_cast<int>(i)));
        }
        return paths;
    }
    strings queued()
    {
        strings paths;
        queue_->get(paths, 0, 0);
        paths.clear();
        queue_->get(paths, 1, 0);
        return paths;
    }

    temp_dir const dir_;
    iqmgr*         queue_ = nullptr;
};

TEST_F(QueueMemory, WithoutItAnAdditionChangesNothing)
{
    strings const     files = messages(20);
    std::string const fresh = message(20);
    queue_->add(files);
    until_it_succeeds([&] { return queue_->add({fresh}) == 0; },
                      [&] { EXPECT_EQ(queued(), files); });
    EXPECT_EQ(queued().size(), 21U);
}

TEST_F(QueueMemory, WithoutItNothingIsEvicted)
{
    strings const     files = messages(max_queue);
    std::string const fresh = message(max_queue);
    queue_->add(files);
    until_it_succeeds([&] { return queue_->add({fresh}) == 0; },
                      [&] { ASSERT_TRUE(test::file_exists(files[0])); });
    EXPECT_FALSE(test::file_exists(files[0]));
    strings wanted(files.begin() + 1, files.end());
    wanted.push_back(fresh);
    EXPECT_EQ(queued(), wanted);
}

TEST_F(QueueMemory, WithoutItNothingCountsAsHandedOut)
{
    strings const files = messages(20);
    queue_->add(files);
    strings due;
    until_it_succeeds([&] { return queue_->get(due, 0, 0) == 0; },
                      [&] { EXPECT_EQ(due, strings()); });
    EXPECT_EQ(due, files) << "all were still new";
}

// The file goes first, and an entry without its file is what the worst case leaves.
TEST_F(QueueMemory, WithoutItNoFileLeavesTheQueueAndStaysOnTheDisk)
{
    strings const files = messages(20);
    queue_->add(files);
    until_it_succeeds([&] { return queue_->erase({files[0]}) == 0; },
                      [&] { EXPECT_EQ(queued(), files); });
    EXPECT_EQ(queued(), strings(files.begin() + 1, files.end()));
    EXPECT_FALSE(test::file_exists(files[0]));
}
