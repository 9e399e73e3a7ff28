// stop_failure_test.cpp - a worker that cannot be waited for

#include <cerrno>
#include <gtest/gtest.h>
#include <pthread.h>

#include "tests/libemlw/engine_room.h"
#include "tests/support/fake_thread.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::strings;

namespace
{

// While true, joining fails, and the thread is kept for the test to join.
bool      refused = false;
pthread_t kept    = {};

}  // namespace

extern "C" {
int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result);

int __wrap_pthread_join(pthread_t thread, void** result)
{
    if (refused) {
        kept = thread;
        return EINVAL;
    }
    return __real_pthread_join(thread, result);
}
}

class StopFailure : public test::engine_room
{
protected:
    StopFailure() { refused = true; }
    ~StopFailure() override { refused = false; }

    static void join_the_worker() { EXPECT_EQ(__real_pthread_join(kept, nullptr), 0); }
};

// The worker ends all the same, and the engine can be stopped again.
TEST_F(StopFailure, IsToldAndLeavesTheEngineAsItIs)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    ASSERT_EQ(factory.create(&engine), 0);
    ASSERT_EQ(engine->start(workdir().c_str(), symbol), 0);
    test::wait_for_pause();
    test::clear_traces();

    EXPECT_EQ(engine->stop(), -1);

    strings const said = test::trouble_traces();
    EXPECT_EQ(said, strings{"error:stop_thread"});
    test::wait_for_threads_to_end();
    EXPECT_EQ(test::observers(), 1);
    EXPECT_NE(engine->get_context()->queue, nullptr);

    refused = false;
    EXPECT_EQ(engine->stop(), 0);
    EXPECT_EQ(test::observers(), 0);
    EXPECT_EQ(factory.destroy(engine), 0);
}

TEST_F(StopFailure, IsNotLookedAtWhenTheEngineIsFreed)
{
    start();
    post("a");
    std::weak_ptr<void const> const record = context().callbacks.get();
    test::clear_traces();
    EXPECT_EQ(eml_stop(engine_), 0);
    engine_ = nullptr;
    test::wait_for_threads_to_end();
    EXPECT_EQ(test::traces().front(), "eml_stop in");
    EXPECT_EQ(test::observers(), 0) << "the last share ends the observer";
    EXPECT_TRUE(record.expired());
    EXPECT_EQ(on_disk(), strings{"a.sme"});
    join_the_worker();
}
