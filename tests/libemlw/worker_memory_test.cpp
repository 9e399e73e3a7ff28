// worker_memory_test.cpp - a worker without memory loses an attempt at most, and never the process
//
// The worker's requests for memory fail one by one; the test's own and the server's do not.

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <optional>
#include <vector>

#include "libemlw/send.h"
#include "libemlw/thread.h"
#include "support/c_boundary.h"
#include "tests/libemlw/engine_room.h"
#include "tests/support/failing_new.h"
#include "tests/support/mail_server.h"

using namespace zelieml;
using zelieml::test::failing_new;
using zelieml::test::mail_server;
using zelieml::test::strings;

class WorkerMemory : public test::engine_room, public ::testing::WithParamInterface<int>
{
protected:
    WorkerMemory()
    {
        test::after_each_pause([this] {
            if (limit_) {
                refused_ = failing_new::refused();
            }
            limit_.reset();
            if (good_ >= 0) {
                limit_.emplace(good_, GetParam());
            }
        });
    }
    ~WorkerMemory() override
    {
        stop();
        test::after_each_pause(nullptr);
    }

    // Passes a cycle in which so many of the worker's requests succeed and the next one fails, or
    // all after them. Returns whether it made more than those.
    bool hungry_cycle(int good)
    {
        good_ = good;
        test::pass_pauses(1);
        good_ = -1;
        test::pass_pauses(1);
        return refused_;
    }

    // Queued, whether tried or not.
    bool is_queued(std::string const& path)
    {
        strings all;
        queue().get(all, 0, 0);
        queue().get(all, 1, 0);
        return std::find(all.begin(), all.end(), path) != all.end();
    }

private:
    std::optional<failing_new> limit_;  // made and ended on the worker's thread
    bool                       refused_ = false;
    std::atomic<int>           good_{-1};
};

INSTANTIATE_TEST_SUITE_P(Requests, WorkerMemory,
                         ::testing::Values(1, std::numeric_limits<int>::max()),
                         [](auto const& row) { return row.param == 1 ? "OneFails" : "AllFail"; });

TEST_P(WorkerMemory, MayLackInAnyAttempt)
{
    mail_server server;
    settings(server.smtp_port());
    start();
    int good = 0;
    for (bool refused = true; refused; ++good) {
        SCOPED_TRACE(good);
        ASSERT_LT(good, 10000);
        std::string const path   = message("a message with a name of some length");
        std::size_t const before = attempts_.count();
        announce(path);

        refused = hungry_cycle(good);

        std::vector<eml_send_e> const made = attempts_.codes();
        EXPECT_LE(made.size(), before + 1);
        if (made.size() > before && made.back() == eml_send_ok) {
            EXPECT_FALSE(test::file_exists(path)) << "what was sent is never sent again";
        }
        if (test::file_exists(path)) {
            EXPECT_TRUE(is_queued(path)) << "nobody forgets a file that is there";
        }
        if (!refused) {
            ASSERT_EQ(made.size(), before + 1);
            EXPECT_EQ(made.back(), eml_send_ok);
            EXPECT_FALSE(test::file_exists(path));
        }
        queue().erase({path});
        EXPECT_EQ(on_disk(), strings());
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(good, 20) << "an attempt asks for memory more often than that";
}

// By itself, since the worker looks only once in 1800 cycles.
TEST_P(WorkerMemory, MayLackInTheLookIntoTheWorkDirectory)
{
    start();
    test::wait_for_pause();
    std::string const path = message("a message with a name of some length");
    int               good = 0;
    for (bool refused = true; refused; ++good) {
        SCOPED_TRACE(good);
        ASSERT_LT(good, 1000);
        contained([&] {
            failing_new const limit(good, GetParam());
            timer_proc_queue_salvage(&context());
        });
        refused = failing_new::refused();
        EXPECT_TRUE(test::file_exists(path));
        EXPECT_TRUE(refused || is_queued(path));
    }
    EXPECT_GT(good, 5);
}

class PassMemory : public test::engine_room
{
protected:
    ~PassMemory() override { stop(); }
};

// The first of three lacks memory for a queue without it.
TEST_F(PassMemory, LackingInOneAttemptIsThereForTheOthers)
{
    mail_server server;
    settings(server.smtp_port());
    std::optional<failing_new> limit;
    attempts_.action = [&] {
        attempts_.action = [&] { limit.reset(); };
        limit.emplace(0, 1);
    };
    start();
    post("a");
    post("b");
    post("c");
    test::pass_pauses(1);
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>(3, eml_send_ok));
    EXPECT_EQ(on_disk(), strings());
    strings tried;
    queue().get(tried, 1, 0);
    EXPECT_EQ(tried, strings{file("a")}) << "its entry stays, for an attempt without a file";
}

TEST_F(PassMemory, LackingBeforeAnAttemptMeansThatThereIsNone)
{
    mail_server server;
    settings(server.smtp_port());
    start();
    test::wait_for_pause();
    std::string const path = message("a message with a name of some length");
    {
        failing_new const limit(0, 1);
        EXPECT_THROW(_send_queue(&context(), path, 1), std::bad_alloc);
    }
    EXPECT_EQ(server.mails().size(), 0U);
    EXPECT_EQ(attempts_.count(), 0U);
    EXPECT_TRUE(test::file_exists(path));
}
