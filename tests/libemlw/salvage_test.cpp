// salvage_test.cpp - what lies in the work directory is queued, or thrown away

#include "libemlw/salvage.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

class Salvage : public ::testing::Test
{
protected:
    Salvage()
    {
        iqmgr* queue = nullptr;
        EXPECT_EQ(iqmgr_create(&queue), 0);
        engine_.queue = queue;
        use(dir_.path());
        test::clear_traces();
    }
    ~Salvage() override { EXPECT_EQ(iqmgr_destroy(engine_.queue.exchange(nullptr)), 0); }

    void   use(std::string const& workdir) { workdir.copy(engine_.workdir, workdir_size - 1); }
    iqmgr& queue() { return *engine_.queue.load(); }

    std::string message(std::string const& name) const
    {
        std::string path = dir_.file(name + ".sme");
        test::write_file(path, name);
        return path;
    }
    // Those that were never handed out, sorted: a directory has no order.
    strings fresh()
    {
        strings paths;
        queue().get(paths, 0, 0);
        std::sort(paths.begin(), paths.end());
        return paths;
    }
    strings salvage(bool salvage)
    {
        test::clear_traces();
        EXPECT_EQ(salvage_queue(&engine_, salvage), 0);
        return test::traces();
    }

    temp_dir const dir_;
    _s_iemlw       engine_;
};

TEST_F(Salvage, QueuesWhatIsThere)
{
    strings const files = {message("a"), message("b")};
    test::write_file(dir_.file("zelismes.cf"), "");
    EXPECT_EQ(salvage(true), (strings{"salvage_queue salvage", "posted! %s", "add file %s",
                                      "posted! %s", "add file %s"}));
    EXPECT_EQ(fresh(), files);
    EXPECT_EQ(test::list_directory(dir_.path()).size(), 3U) << "no file is touched";
}

TEST_F(Salvage, QueuesNothingTwice)
{
    queue().add({message("known")});
    fresh();
    std::string const found = message("found");
    strings const     said  = salvage(true);
    EXPECT_EQ(said.front(), "salvage_queue salvage");
    EXPECT_EQ(std::count(said.begin(), said.end(), "warning:%s is already found"), 1);
    EXPECT_EQ(std::count(said.begin(), said.end(), "add file %s"), 1);
    EXPECT_EQ(fresh(), strings{found});
    EXPECT_EQ(salvage(true), (strings{"salvage_queue salvage", "warning:%s is already found",
                                      "warning:%s is already found"}));
    EXPECT_EQ(fresh(), strings());
}

// The queue's limit: the first one too many costs the oldest its file, and those after it wait.
TEST_F(Salvage, StopsAtTheFirstFileTooMany)
{
    constexpr std::size_t surplus = 10;
    for (std::size_t i = 0; i < max_queue + surplus; ++i) {
        message(std::to_string(i));
    }
    strings const said = salvage(true);
    EXPECT_EQ(said.size(), 1 + 2 * max_queue + 5);
    EXPECT_EQ(std::count(said.begin(), said.end(), "remove:%s"), 1);
    EXPECT_EQ(fresh().size(), max_queue);
    EXPECT_EQ(test::list_directory(dir_.path()).size(), max_queue + surplus - 1);

    salvage(true);
    EXPECT_EQ(fresh().size(), 1U) << "the next time it is one more";
    EXPECT_EQ(test::list_directory(dir_.path()).size(), max_queue + surplus - 2);
}

TEST_F(Salvage, DeletesWhatIsThere)
{
    message("a");
    message("b.sme.c");
    test::write_file(dir_.file("zelismes.cf"), "");
    EXPECT_EQ(salvage(false),
              (strings{"salvage_queue erase", "erase:%s", "removed %s", "erase:%s", "removed %s"}));
    EXPECT_EQ(test::list_directory(dir_.path()), strings{"zelismes.cf"});
}

TEST_F(Salvage, DoesNotAskTheQueueWhenItDeletes)
{
    std::string const path = message("a");
    queue().add({path});
    salvage(false);
    EXPECT_FALSE(test::file_exists(path));
    EXPECT_EQ(fresh(), strings{path});

    // There need not even be one.
    _s_iemlw without;
    dir_.path().copy(without.workdir, workdir_size - 1);
    message("b");
    EXPECT_EQ(salvage_queue(&without, false), 0);
    EXPECT_EQ(test::list_directory(dir_.path()), strings());
}

// A directory is taken for a message file by its name: an empty one goes, a full one stays.
TEST_F(Salvage, DeletesWhatItCan)
{
    ASSERT_EQ(::mkdir(dir_.file("empty.sme").c_str(), 0777), 0);
    EXPECT_EQ(salvage(false), (strings{"salvage_queue erase", "erase:%s", "removed %s"}));
    ASSERT_EQ(::mkdir(dir_.file("full.sme").c_str(), 0777), 0);
    test::write_file(dir_.file("full.sme") + "/a.sme", "");
    EXPECT_EQ(salvage(false), (strings{"salvage_queue erase", "erase:%s", "error:remove(%s)"}));
    EXPECT_TRUE(test::file_exists(dir_.file("full.sme") + "/a.sme"));
}

TEST_F(Salvage, OfNothingIsNoFailure)
{
    for (std::string const& workdir : {dir_.path(), dir_.file("missing")}) {
        use(workdir);
        EXPECT_EQ(salvage(true), strings{"salvage_queue salvage"});
        EXPECT_EQ(salvage(false), strings{"salvage_queue erase"});
    }
    EXPECT_EQ(fresh(), strings());
}
