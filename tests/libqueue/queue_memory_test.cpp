// queue_memory_test.cpp - without memory the queue fails as a whole, and loses nothing

#include <functional>
#include <gtest/gtest.h>
#include <new>

#include "tests/libqueue/queue_room.h"
#include "tests/support/failing_new.h"

using namespace zelieml;

using strings = test::strings;

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

TEST(QueueManagerWithoutMemory, IsNotMadeAndNothingIsThrown)
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

class QueueWithoutMemory : public test::queue_room
{
};

TEST_F(QueueWithoutMemory, AddsNothing)
{
    strings const     files = messages(20);
    std::string const fresh = message("fresh");
    queue().add(files);
    until_it_succeeds([&] { return queue().add({fresh}) == 0; },
                      [&] { EXPECT_EQ(queued(), files); });
    EXPECT_EQ(queued().size(), 21U);
}

TEST_F(QueueWithoutMemory, EvictsNothing)
{
    strings const     files = messages(max_queue);
    std::string const fresh = message("fresh");
    queue().add(files);
    until_it_succeeds([&] { return queue().add({fresh}) == 0; },
                      [&] { ASSERT_TRUE(test::file_exists(files[0])); });
    EXPECT_FALSE(test::file_exists(files[0]));
    strings wanted(files.begin() + 1, files.end());
    wanted.push_back(fresh);
    EXPECT_EQ(queued(), wanted);
}

TEST_F(QueueWithoutMemory, CountsNothingAsHandedOut)
{
    strings const files = messages(20);
    queue().add(files);
    strings due;
    until_it_succeeds([&] { return queue().get(due, 0, 0) == 0; },
                      [&] { EXPECT_EQ(due, strings()); });
    EXPECT_EQ(due, files) << "all were still new";
}

// The file goes first: at the worst an entry without a file is left.
TEST_F(QueueWithoutMemory, KeepsTheEntryOfAFileThatMayStillBeThere)
{
    strings const files = messages(20);
    queue().add(files);
    until_it_succeeds([&] { return queue().erase({files[0]}) == 0; },
                      [&] { EXPECT_EQ(queued(), files); });
    EXPECT_EQ(queued(), strings(files.begin() + 1, files.end()));
    EXPECT_FALSE(test::file_exists(files[0]));
}
