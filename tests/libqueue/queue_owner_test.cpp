// queue_owner_test.cpp - an entry remembers whose file it is to be

#include <gtest/gtest.h>

#include "libqueue/libqueue.h"

using namespace zelieml;

namespace
{

struct queue_destroyer {
    void operator()(iqmgr* queue) const { iqmgr_destroy(queue); }
};

class QueueOwner : public ::testing::Test
{
protected:
    QueueOwner()
    {
        iqmgr* made = nullptr;
        EXPECT_EQ(iqmgr_create(&made), 0);
        queue_.reset(made);
    }
    std::vector<c_queue> due(unsigned int try_count)
    {
        std::vector<c_queue> entries;
        EXPECT_EQ(queue_->get(entries, try_count, 0), 0);
        return entries;
    }

    std::unique_ptr<iqmgr, queue_destroyer> queue_;
};

}  // namespace

TEST_F(QueueOwner, ComesBackWithEachAttempt)
{
    queue_->add({"/w/a.sme"});
    queue_->add({"/w/b.sme", "/w/c.sme"}, 1000);
    for (unsigned int const try_count : {0U, 1U}) {
        std::vector<c_queue> const entries = due(try_count);
        ASSERT_EQ(entries.size(), 3U);
        EXPECT_EQ(entries[0].owner(), std::nullopt);
        EXPECT_EQ(entries[1].owner(), uid_t{1000});
        EXPECT_EQ(entries[2].path(), "/w/c.sme");
        EXPECT_EQ(entries[2].owner(), uid_t{1000});
    }
}

TEST_F(QueueOwner, IsNoPartOfAnEntrysIdentity)
{
    EXPECT_TRUE(c_queue("/w/a.sme") == c_queue("/w/a.sme", 1000));
    queue_->add({"/w/a.sme"}, 1000);
    queue_->add({"/w/a.sme"});
    std::vector<c_queue> const entries = due(0);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].owner(), uid_t{1000}) << "a path that is queued is not announced anew";
}
