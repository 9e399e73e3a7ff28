// engine_tick_test.cpp - an engine's second by the real clock, and its descriptors

#include <chrono>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "libnotifyw/libnotifyw.h"
#include "tests/support/fake_notification.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/files.h"
#include "tests/support/workplace.h"
#include "zelieml.h"

using namespace zelieml;

using seconds = std::chrono::duration<double>;

class EngineTick : public ::testing::Test
{
protected:
    ~EngineTick() override
    {
        EXPECT_EQ(test::open_descriptors(), descriptors_);
        EXPECT_EQ(test::observers(), 0);
    }

    int start() { return eml_start_with_stocksymbol(dir_.path().c_str(), "s", &engine_); }

    // The time since the object was made.
    double elapsed() const { return seconds(std::chrono::steady_clock::now() - begin_).count(); }

    test::temp_dir const dir_;
    void*                engine_      = nullptr;
    int const            descriptors_ = test::open_descriptors();

private:
    std::chrono::steady_clock::time_point const begin_ = std::chrono::steady_clock::now();
};

TEST_F(EngineTick, IsASecond)
{
    test::result_list   attempts;
    std::vector<double> times;
    attempts.action = [&] { times.push_back(elapsed()); };
    ASSERT_EQ(start(), 0);
    ASSERT_EQ(eml_set_callback(engine_, test::result_list::note, &attempts), 0);
    for (std::size_t made = 1; made <= 3; ++made) {
        std::string const path = dir_.file(std::to_string(made) + ".sme");
        test::write_file(path, "");
        test::deliver(notify_name, "s", notify_path_key, path.c_str());
        ASSERT_TRUE(attempts.wait_for(made));
    }
    EXPECT_EQ(eml_stop(engine_), 0);
    ASSERT_EQ(times.size(), 3U);
    EXPECT_GT(times[1] - times[0], 0.95);
    EXPECT_GT(times[2] - times[1], 0.95);
}

TEST_F(EngineTick, EndsWhenTheEngineIsStopped)
{
    constexpr int engines = 200;
    for (int i = 0; i < engines; ++i) {
        ASSERT_EQ(start(), 0);
        ASSERT_EQ(eml_stop(engine_), 0);
    }
    EXPECT_LT(elapsed(), 0.5 * engines);
}

TEST_F(EngineTick, NeedsDescriptorsWithoutWhichThereIsNoEngine)
{
    // Once with descriptors: the sanitizers need some for what they have not seen before.
    ASSERT_EQ(start(), 0);
    ASSERT_EQ(eml_stop(engine_), 0);
    engine_ = nullptr;

    for (int spare : {0, 1}) {
        int started = 0;
        {
            test::few_descriptors const limited(spare);
            started = start();
        }
        EXPECT_EQ(started, -1) << spare;
        EXPECT_EQ(engine_, nullptr);
        EXPECT_EQ(test::observers(), 0);
    }
}

TEST_F(EngineTick, OfTheParentIsGivenBackByAChildThatStopsItsCopy)
{
    ASSERT_EQ(start(), 0);
    int const     with_engine = test::open_descriptors();
    ::pid_t const child       = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        ::alarm(30);
        bool const good = eml_stop(engine_) == 0 && test::open_descriptors() == with_engine - 2;
        ::_exit(good ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(eml_stop(engine_), 0);
}

// Each has its own directory, its own symbol and its own callbacks.
TEST_F(EngineTick, OfSeveralEnginesDoNotMeet)
{
    constexpr std::size_t count = 3;
    test::result_list     attempts[count];
    void*                 engines[count];
    for (std::size_t i = 0; i < count; ++i) {
        std::string const workdir = dir_.file(std::to_string(i));
        std::string const symbol  = "s" + std::to_string(i);
        ::mkdir(workdir.c_str(), 0777);
        ASSERT_EQ(eml_start_with_stocksymbol(workdir.c_str(), symbol.c_str(), &engines[i]), 0);
        ASSERT_EQ(eml_set_callback(engines[i], test::result_list::note, &attempts[i]), 0);
        for (std::size_t file = 0; file <= i; ++file) {
            std::string const path = workdir + "/" + std::to_string(file) + ".sme";
            test::write_file(path, "");
            EXPECT_EQ(test::deliver(notify_name, symbol.c_str(), notify_path_key, path.c_str()), 1);
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(attempts[i].wait_for(i + 1));
        EXPECT_EQ(eml_stop(engines[i]), 0);
        EXPECT_EQ(attempts[i].count(), i + 1);
    }
}
