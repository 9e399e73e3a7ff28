// libqueue_test.cpp - what waits, what is due, and which files are deleted

#include "libqueue/libqueue.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/libqueue/queue_room.h"
#include "tests/support/fake_clock.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = test::strings;

TEST(Erase, DeletesOneFileAndNoOther)
{
    temp_dir const dir;
    test::write_file(dir.file("a.sme"), "a");
    test::write_file(dir.file("b.sme"), "b");
    test::clear_traces();

    EXPECT_EQ(iqmgr_erase(dir.file("a.sme").c_str()), 0);

    EXPECT_EQ(test::list_directory(dir.path()), strings{"b.sme"});
    EXPECT_EQ(test::trouble_traces(), strings());
}

TEST(Erase, OfASymbolicLinkLeavesWhatItPointsTo)
{
    temp_dir const dir;
    test::write_file(dir.file("target"), "kept");
    ASSERT_EQ(::symlink(dir.file("target").c_str(), dir.file("link.sme").c_str()), 0);
    EXPECT_EQ(iqmgr_erase(dir.file("link.sme").c_str()), 0);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"target"});
}

TEST(Erase, OfWhatCannotBeRemovedIsTracedAndFails)
{
    temp_dir const dir;
    test::write_file(dir.file("file"), "");
    struct row {
        std::string path;
        char const* reason;
    };
    row const rows[] = {
        {dir.file("missing.sme"), "there is no such file"},
        {dir.file("missing/a.sme"), "there is no such directory"},
        {dir.file("file/a.sme"), "the directory is a file"},
        {dir.path(), "a directory that is not empty"},
        {"", "no path"},
        {std::string(5000, 'x'), "longer than any path"},
    };
    for (row const& r : rows) {
        test::clear_traces();
        EXPECT_EQ(iqmgr_erase(r.path.c_str()), -1) << r.reason;
        EXPECT_EQ(test::trouble_traces(), strings{"error:remove(%s)"}) << r.reason;
    }
    EXPECT_EQ(test::list_directory(dir.path()), strings{"file"});
}

TEST(Erase, OfAListDeletesEachFileItCan)
{
    temp_dir const dir;
    test::write_file(dir.file("a.sme"), "a");
    test::write_file(dir.file("b.sme"), "b");
    test::clear_traces();
    EXPECT_EQ(iqmgr_erase_files({dir.file("a.sme"), dir.file("missing"), dir.file("b.sme")}), 0);
    EXPECT_EQ(test::trouble_traces(), strings{"error:remove(%s)"});
    EXPECT_EQ(test::list_directory(dir.path()), strings());

    test::clear_traces();
    EXPECT_EQ(iqmgr_erase_files({}), 0);
    EXPECT_EQ(test::trouble_traces(), strings());
}

// ------------------------------------------------------------------ entries

TEST(QueueEntry, KnowsItsSecondItsPathAndItsAttempts)
{
    test::set_wall_clock(1234567890, 0);
    c_queue entry("/w/a.sme");
    test::set_wall_clock(1234569999, 0);
    EXPECT_EQ(entry.queued_time(), 1234567890);
    EXPECT_EQ(entry.path(), "/w/a.sme");
    EXPECT_EQ(entry.try_count(), 0U);
    entry.hand_out();
    entry.hand_out();
    EXPECT_EQ(entry.try_count(), 2U);
    EXPECT_EQ(entry.queued_time(), 1234567890) << "never renewed";
}

TEST(QueueEntry, EqualsAnotherOfTheSamePath)
{
    test::set_wall_clock(1000, 0);
    c_queue a("/w/a.sme");
    a.hand_out();
    test::set_wall_clock(2000, 0);
    EXPECT_TRUE(a == c_queue("/w/a.sme")) << "time and attempts take no part";
    struct row {
        std::string path;
        char const* reason;
    };
    row const rows[] = {
        {"/w/b.sme", "another byte"},
        {"/w/A.sme", "compared case-sensitively"},
        {"/w/a.sme2", "longer"},
        {"/w/a.sm", "shorter"},
        {"/w//a.sme", "the same file by another path"},
        {std::string("/w/a.sme\0x", 10), "bytes behind a NUL are compared too"},
        {"", "empty"},
    };
    for (row const& r : rows) {
        EXPECT_FALSE(a == c_queue(r.path)) << r.reason;
    }
}

TEST(QueueEntry, CanBeCopiedAndAssigned)
{
    c_queue a("/w/a.sme");
    a.hand_out();
    c_queue b("/w/b.sme");
    b = a;
    EXPECT_EQ(b.path(), "/w/a.sme");
    EXPECT_EQ(b.try_count(), 1U);
    EXPECT_EQ(c_queue(b).try_count(), 1U);
}

// ------------------------------------------------------------- the manager

TEST(QueueManager, IsMadeEmptyAndFreed)
{
    iqmgr* queue = nullptr;
    test::clear_traces();
    ASSERT_EQ(iqmgr_create(&queue), 0);
    ASSERT_NE(queue, nullptr);
    strings due;
    EXPECT_EQ(queue->get(due, 0, 0), 0);
    EXPECT_EQ(queue->get(due, 1, 0), 0);
    EXPECT_EQ(due, strings());
    EXPECT_EQ(iqmgr_destroy(queue), 0);
    EXPECT_EQ(test::trouble_traces(), strings());
}

TEST(QueueManager, ThatIsNullIsNotFreed)
{
    test::clear_traces();
    EXPECT_EQ(iqmgr_destroy(nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:qmbr == 0"});
}

TEST(QueueManager, HasAContextOfItsOwnThatCanBeGivenBackTwice)
{
    iqmgr queue;
    EXPECT_EQ(queue.destroy_context(), 0) << "there is none yet";
    EXPECT_EQ(queue.create_context(), 0);
    EXPECT_EQ(queue.destroy_context(), 0);
    EXPECT_EQ(queue.destroy_context(), 0);
}

TEST(QueueManager, HasAMutexThatItDoesNotLockItself)
{
    iqmgr* queue = nullptr;
    ASSERT_EQ(iqmgr_create(&queue), 0);
    ASSERT_EQ(::pthread_mutex_trylock(&queue->mutex()), 0);
    strings due;
    EXPECT_EQ(queue->add({"/missing/a.sme"}), 0);
    EXPECT_EQ(queue->get(due, 0, 0), 0);
    EXPECT_EQ(queue->erase(due), 0);
    EXPECT_EQ(::pthread_mutex_unlock(&queue->mutex()), 0);
    EXPECT_EQ(iqmgr_destroy(queue), 0);
}

// ------------------------------------------------------------------ the queue

namespace
{

strings operator+(strings a, strings const& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

strings operator*(std::size_t times, strings const& a)
{
    strings all;
    for (std::size_t i = 0; i < times; ++i) {
        all = all + a;
    }
    return all;
}

strings const known      = {"warning:%s is already found"};
strings const queue_full = {"warning:max_queue %d"};

constexpr std::time_t start = 1700000000;

}  // namespace

class Queue : public test::queue_room
{
protected:
    Queue()
    {
        test::set_wall_clock(start, 0);
        test::clear_traces();
    }

    // What has been traced since the last time this was asked; reported: the warnings and errors.
    static strings traced()
    {
        strings all = test::traces();
        test::clear_traces();
        return all;
    }
    static strings reported()
    {
        strings all = test::trouble_traces();
        test::clear_traces();
        return all;
    }
};

// The whole sequence; the other tests look at what is reported.
TEST_F(Queue, TracesEveryStep)
{
    strings const added   = {"posted! %s", "add file %s"};
    strings const tested  = {"is_try_queue in try_count=%d interval=%d"};
    strings const due     = {"is_try_queue(true) %s %d", "get file %s"};
    strings const not_due = {"is_try_queue out with false"};
    strings const deleted = {"erase:%s", "removed %s"};
    strings const files   = messages(max_queue);

    queue().add({files[0], files[1], files[0]});
    EXPECT_EQ(traced(), 2 * added + known);
    get(0, 0);
    EXPECT_EQ(traced(), 2 * (tested + due));
    get(0, 0);
    EXPECT_EQ(traced(), 2 * (tested + not_due));
    get(1, 0);
    EXPECT_EQ(traced(), 2 * (tested + due));

    queue().erase({files[0], files[0]});
    EXPECT_EQ(traced(), deleted + strings{"warning:%s is not found"});
    queue().erase({files[1]});
    EXPECT_EQ(traced(), deleted);
    iqmgr_erase_files({files[0], files[2]});
    EXPECT_EQ(traced(), (strings{"erase:%s", "error:remove(%s)"} + deleted));

    queue().add(files);
    EXPECT_EQ(traced(), max_queue * added);
    message("1000");
    queue().add({message("x"), message("y")});
    EXPECT_EQ(traced(), (queue_full + strings{"remove:%s", "removed %s"} + added));
    queue().add({message("y")});
    EXPECT_EQ(traced(), (queue_full + strings{"remove:%s", "error:remove(%s)"} + added));
}

TEST_F(Queue, KeepsTheOrderOfArrival)
{
    EXPECT_EQ(queue().add({"/w/c.sme", "/w/a.sme"}), 0);
    EXPECT_EQ(queue().add({"/w/b.sme"}), 0);
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(queued(), (strings{"/w/c.sme", "/w/a.sme", "/w/b.sme"}));
}

TEST_F(Queue, AddingNothingIsNoFailure)
{
    EXPECT_EQ(queue().add({}), 0);
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(queued(), strings());
}

TEST_F(Queue, LeavesAPathThatIsQueuedAlready)
{
    queue().add({"/w/a.sme", "/w/b.sme"});
    EXPECT_EQ(get(0, 0).size(), 2U);
    test::set_wall_clock(start + 100, 0);
    test::clear_traces();

    EXPECT_EQ(queue().add({"/w/b.sme", "/w/c.sme", "/w/a.sme", "/w/c.sme"}), 0);

    EXPECT_EQ(reported(), 3 * known);
    EXPECT_EQ(get(0, 0), strings{"/w/c.sme"}) << "those handed out before count as that";
    EXPECT_EQ(get(1, 100000), (strings{"/w/a.sme", "/w/b.sme"})) << "their time is the first one";
}

TEST_F(Queue, TakesTheSameFileByTwoPathsTwice)
{
    queue().add({"/w/a.sme", "/w//a.sme", "/w/./a.sme"});
    EXPECT_EQ(queued().size(), 3U);
}

TEST_F(Queue, HoldsFiveHundred)
{
    strings const files = messages(max_queue);
    EXPECT_EQ(max_queue, 500U);
    EXPECT_EQ(queue().add(files), 0);
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(queued(), files);
    EXPECT_EQ(on_disk(), files);
}

TEST_F(Queue, GivesUpItsOldestForTheFirstNewOneAndTakesNoMore)
{
    strings files = messages(max_queue);
    queue().add(files);
    strings const fresh = {message("x1"), message("x2"), message("x3")};
    test::clear_traces();

    EXPECT_EQ(queue().add(fresh), 0);

    EXPECT_EQ(reported(), queue_full);
    EXPECT_FALSE(test::file_exists(files[0]));
    files.erase(files.begin());
    EXPECT_EQ(on_disk(), files + fresh) << "those that were not taken stay on the disk";
    files.push_back(fresh[0]);
    EXPECT_EQ(queued(), files);
}

TEST_F(Queue, EvictsOncePerCall)
{
    strings files = messages(max_queue);
    queue().add(files);
    strings const fresh = {message("x1"), message("x2"), message("x3")};
    for (int again = 0; again < 3; ++again) {
        queue().add(fresh);
    }
    files.erase(files.begin(), files.begin() + 3);
    EXPECT_EQ(queued(), files + fresh);
    EXPECT_EQ(on_disk(), files + fresh);

    test::clear_traces();
    queue().add(fresh);
    EXPECT_EQ(reported(), 3 * known) << "nothing new, nothing to evict";
}

TEST_F(Queue, BecomesFullInTheMiddleOfAList)
{
    strings const files = messages(max_queue - 1);
    queue().add(files);
    strings const fresh = {message("x1"), message("x2"), message("x3"), message("x4")};
    test::clear_traces();
    queue().add(fresh);
    EXPECT_EQ(reported(), queue_full);
    strings wanted(files.begin() + 1, files.end());
    EXPECT_EQ(queued(), (wanted + strings{fresh[0], fresh[1]}));
    EXPECT_EQ(on_disk(), wanted + fresh);
}

TEST_F(Queue, ThatIsFullPassesOverWhatItKnowsBeforeItEvicts)
{
    strings const files = messages(max_queue);
    queue().add(files);
    test::clear_traces();
    // The oldest one is known when it is looked at, and gone when it is looked at again.
    queue().add({files[0], files[1], message("x"), files[2]});
    EXPECT_EQ(reported(), 2 * known + queue_full);
    EXPECT_FALSE(test::file_exists(files[0]));
    EXPECT_TRUE(test::file_exists(files[1]));
}

TEST_F(Queue, EvictsAlsoWhatItCannotDelete)
{
    queue().add({dir_.file("missing.sme")});
    queue().add(messages(max_queue - 1));
    test::clear_traces();
    EXPECT_EQ(queue().add({message("x")}), 0);
    EXPECT_EQ(reported(), queue_full + strings{"error:remove(%s)"});
    EXPECT_EQ(queued().size(), max_queue);
    EXPECT_EQ(queued().back(), dir_.file("x.sme"));
}

TEST_F(Queue, TakesWhatItEvictedAgain)
{
    strings const files = messages(max_queue);
    queue().add(files);
    queue().add({message("x")});
    test::clear_traces();
    queue().add({message("1000")});
    EXPECT_EQ(reported(), queue_full);
    EXPECT_EQ(queued().back(), files[0]);
}

// --------------------------------------------------------------- what is due

TEST_F(Queue, HandsANewFileOutOnce)
{
    queue().add({"/w/a.sme", "/w/b.sme"});
    EXPECT_EQ(get(0, 0), (strings{"/w/a.sme", "/w/b.sme"}));
    EXPECT_EQ(get(0, 0), strings());

    queue().add({"/w/c.sme"});
    EXPECT_EQ(get(0, 0), strings{"/w/c.sme"});
    EXPECT_EQ(reported(), strings());
}

TEST_F(Queue, LeavesWhatTheListHolds)
{
    queue().add({"/w/a.sme"});
    strings files = {"before"};
    EXPECT_EQ(queue().get(files, 0, 0), 0);
    EXPECT_EQ(files, (strings{"before", "/w/a.sme"}));
}

TEST_F(Queue, AFirstAttemptIgnoresTheInterval)
{
    unsigned int const intervals[] = {0, 1000, 1800000, std::numeric_limits<unsigned int>::max()};
    for (unsigned int const interval : intervals) {
        std::string const path = "/w/" + std::to_string(interval) + ".sme";
        queue().add({path});
        test::set_wall_clock(start - 1000, 0);
        EXPECT_EQ(get(0, interval), strings{path});
    }
}

TEST_F(Queue, ASecondAttemptIsOnlyForWhatHadItsFirst)
{
    queue().add({"/w/a.sme"});
    test::set_wall_clock(start + 100000, 0);
    EXPECT_EQ(get(1, 0), strings());
    EXPECT_EQ(get(0, 0), strings{"/w/a.sme"});
    EXPECT_EQ(get(1, 0), strings{"/w/a.sme"});
}

TEST_F(Queue, NoOtherAttemptIsEverDue)
{
    queue().add({"/w/a.sme", "/w/b.sme"});
    test::set_wall_clock(start + 100000, 0);
    for (int pass = 0; pass < 3; ++pass) {
        for (unsigned int const count : {2U, 3U, std::numeric_limits<unsigned int>::max()}) {
            EXPECT_EQ(get(count, 0), strings());
        }
        get(pass == 0 ? 0 : 1, 0);
    }
}

TEST_F(Queue, ASecondAttemptIsDueByTheTimeSinceQueueing)
{
    constexpr unsigned int longest = std::numeric_limits<unsigned int>::max();  // ms
    struct row {
        unsigned int interval;
        std::time_t  elapsed;
        bool         due;
        char const*  reason;
    };
    row const rows[] = {
        {1800000, 1799, false, "a second too early"},
        {1800000, 1800, true, "exactly"},
        {1800000, 1801, true, "a second later"},
        {1800000, 0, false, "at once"},
        {1800000, -1, false, "the clock went back"},
        {999, 0, true, "less than a second is none"},
        {999, -1, false, "the clock went back, which is less than no time"},
        {0, 0, true, "no interval"},
        {0, -1, false, "no interval, and the clock went back"},
        {1000, 0, false, "a second, at once"},
        {1000, 1, true, "a second, exactly"},
        {1999, 1, true, "cut to a second"},
        {2000, 1, false, "two seconds, one too early"},
        {1000, -1700000000, false, "the clock went back to 1970"},
        {longest, 4294966, false, "the longest interval, a second too early"},
        {longest, 4294967, true, "the longest interval, exactly"},
        {longest, -1, false, "a negative time does not count as a large one"},
    };
    queue().add({"/w/a.sme"});
    get(0, 0);
    for (row const& r : rows) {
        test::set_wall_clock(start + r.elapsed, 0);
        EXPECT_EQ(get(1, r.interval), r.due ? strings{"/w/a.sme"} : strings())
            << r.interval << " ms, " << r.elapsed << " s: " << r.reason;
        EXPECT_EQ(reported(), strings()) << r.reason;
    }
}

TEST_F(Queue, OnceDueASecondAttemptIsDueInEveryPass)
{
    queue().add({"/w/a.sme"});
    get(0, 0);
    for (std::time_t const elapsed : {1800, 1801, 2400, 3000}) {
        test::set_wall_clock(start + elapsed, 0);
        EXPECT_EQ(get(1, 1800000), strings{"/w/a.sme"}) << elapsed;
        EXPECT_EQ(get(0, 0), strings()) << elapsed;
    }
    test::set_wall_clock(start, 0);
    EXPECT_EQ(get(1, 1800000), strings()) << "until the clock goes back";
}

TEST_F(Queue, EachFileIsMeasuredByItself)
{
    queue().add({"/w/a.sme"});
    test::set_wall_clock(start + 10, 0);
    queue().add({"/w/b.sme"});
    test::set_wall_clock(start + 20, 0);
    queue().add({"/w/c.sme"});
    get(0, 0);
    test::set_wall_clock(start + 1810, 0);
    EXPECT_EQ(get(1, 1800000), (strings{"/w/a.sme", "/w/b.sme"}));
}

// ------------------------------------------------------------------- erasing

TEST_F(Queue, ErasesFilesAndTheirEntries)
{
    strings const files = {message("a"), message("b"), message("c"), message("d")};
    queue().add(files);
    get(0, 0);
    test::clear_traces();

    EXPECT_EQ(queue().erase({files[2], files[0]}), 0);

    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(on_disk(), (strings{files[1], files[3]}));
    EXPECT_EQ(get(1, 0), (strings{files[1], files[3]})) << "the others move up";
    EXPECT_EQ(get(0, 0), strings()) << "and keep their counts";
}

TEST_F(Queue, LeavesAFileThatIsNotQueued)
{
    std::string const path = message("a");
    EXPECT_EQ(queue().erase({path}), 0);
    EXPECT_EQ(reported(), strings{"warning:%s is not found"});
    EXPECT_TRUE(test::file_exists(path));

    queue().add({path});
    test::clear_traces();
    EXPECT_EQ(queue().erase({dir_.path() + "//a.sme", path, path}), 0);
    EXPECT_EQ(reported(), (2 * strings{"warning:%s is not found"}));
    EXPECT_EQ(queued(), strings());
}

TEST_F(Queue, ForgetsAlsoWhatItCannotDelete)
{
    std::string const full_directory = dir_.file("full.sme");
    ASSERT_EQ(::mkdir(full_directory.c_str(), 0777), 0);
    test::write_file(full_directory + "/file", "");
    std::string const other = message("other");
    struct row {
        std::string path;
        char const* reason;
    };
    row const rows[] = {
        {dir_.file("missing.sme"), "there is no such file"},
        {other + "/a.sme", "the directory is a file"},
        {full_directory, "a directory that is not empty"},
    };
    for (row const& r : rows) {
        queue().add({r.path, other});
        test::clear_traces();
        EXPECT_EQ(queue().erase({r.path}), 0) << r.reason;
        EXPECT_EQ(reported(), strings{"error:remove(%s)"}) << r.reason;
        EXPECT_EQ(queued(), strings{other}) << r.reason;
    }
    EXPECT_EQ(on_disk(), (strings{full_directory, other}));
}

TEST_F(Queue, TakesAnErasedPathAsANewOne)
{
    std::string const path = message("a");
    queue().add({path});
    get(0, 0);
    queue().erase({path});
    message("a");
    queue().add({path});
    EXPECT_EQ(get(0, 0), strings{path});
}

TEST_F(Queue, IsNotAskedWhenFilesAreDeletedWithoutIt)
{
    std::string const path = message("a");
    queue().add({path});
    test::clear_traces();
    EXPECT_EQ(iqmgr_erase_files({path}), 0);
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(queued(), strings{path});
}

TEST_F(Queue, LeavesItsFilesWhenItIsFreed)
{
    iqmgr* queue = nullptr;
    ASSERT_EQ(iqmgr_create(&queue), 0);
    queue->add(messages(3));
    EXPECT_EQ(iqmgr_destroy(queue), 0);
    EXPECT_EQ(on_disk().size(), 3U);
}

// A random mixture of everything, against a queue that is written down in the plainest way.
TEST_F(Queue, DoesWhatAPlainListWouldDo)
{
    struct entry {
        std::string path;
        std::time_t queued;
        int         tries;
    };
    std::vector<entry> model;
    std::time_t        now   = start;
    unsigned int       state = 1;
    auto               next  = [&state](unsigned int below) {
        state = state * 1103515245U + 12345U;
        return (state >> 16U) % below;
    };
    // Few more than the queue holds, so that most are known and some evict.
    auto any_path = [&] { return dir_.file(std::to_string(1000 + next(max_queue + 30))); };
    auto find     = [&](std::string const& path) {
        return std::find_if(model.begin(), model.end(),
                                [&](entry const& e) { return e.path == path; });
    };

    for (int step = 0; step < 4000; ++step) {
        unsigned int const what = next(20);
        if (what < 14) {
            strings const files = {any_path(), any_path(), any_path()};
            queue().add(files);
            for (std::string const& path : files) {
                if (find(path) != model.end()) {
                    continue;
                }
                bool const full = model.size() == max_queue;
                if (full) {
                    model.erase(model.begin());
                }
                model.push_back({path, now, 0});
                if (full) {
                    break;
                }
            }
        } else if (what < 16) {
            std::string const path = any_path();
            queue().erase({path});
            if (find(path) != model.end()) {
                model.erase(find(path));
            }
        } else if (what < 18) {
            unsigned int const count    = next(2);
            unsigned int const interval = next(50) * 1000;
            strings            wanted;
            for (entry& e : model) {
                if (count == 0 ? e.tries == 0
                               : e.tries > 0 && now - e.queued >= std::time_t{interval / 1000}) {
                    ++e.tries;
                    wanted.push_back(e.path);
                }
            }
            ASSERT_EQ(get(count, interval), wanted) << "step " << step;
        } else {
            now += static_cast<std::time_t>(next(30)) - 5;
            test::set_wall_clock(now, 0);
        }
    }
    ASSERT_EQ(model.size(), max_queue) << "the limit has been met";
}
