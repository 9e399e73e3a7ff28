// queue_contention_test.cpp - several threads at one queue: nothing lost, nothing twice
//
// The callers of the real queue hold two different mutexes, or none; these hold none at all.

#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <thread>

#include "libqueue/libqueue.h"
#include "support/mutex_lock.h"
#include "tests/support/files.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

namespace
{

// Runs each job on a thread of its own; all begin together.
void at_once(std::vector<std::function<void()>> const& jobs)
{
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::function<void()> const& job : jobs) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < jobs.size()) {
                std::this_thread::yield();
            }
            job();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// What several threads were handed, and how often.
class tally
{
public:
    void count(strings const& paths)
    {
        std::lock_guard<std::mutex> const hold(guard_);
        for (std::string const& path : paths) {
            ++counts_[path];
        }
    }
    std::map<std::string, int> counts() const
    {
        std::lock_guard<std::mutex> const hold(guard_);
        return counts_;
    }

private:
    mutable std::mutex         guard_;
    std::map<std::string, int> counts_;
};

std::map<std::string, int> each_once(strings const& paths)
{
    std::map<std::string, int> counts;
    for (std::string const& path : paths) {
        counts[path] = 1;
    }
    return counts;
}

}  // namespace

class QueueContention : public ::testing::Test
{
protected:
    QueueContention() { EXPECT_EQ(iqmgr_create(&queue_), 0); }
    ~QueueContention() override { EXPECT_EQ(iqmgr_destroy(queue_), 0); }

    // Message files of a thread's own.
    strings messages(int thread, int count) const
    {
        strings paths;
        for (int i = 0; i < count; ++i) {
            paths.push_back(dir_.file(std::to_string(thread) + "-" + std::to_string(i) + ".sme"));
            test::write_file(paths.back(), "");
        }
        return paths;
    }
    strings on_disk() const
    {
        strings paths;
        for (std::string const& name : test::list_directory(dir_.path())) {
            paths.push_back(dir_.file(name));
        }
        return paths;
    }
    strings queued()
    {
        strings paths;
        queue_->get(paths, 0, 0);
        paths.clear();
        queue_->get(paths, 1, 0);
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    temp_dir const dir_;
    iqmgr*         queue_ = nullptr;
};

TEST_F(QueueContention, EveryFileIsHandedOutOnceAndErasedOnce)
{
    constexpr int        adders        = 4;
    constexpr int        files_of_each = 100;
    strings              all;
    std::vector<strings> own;
    for (int i = 0; i < adders; ++i) {
        own.push_back(messages(i, files_of_each));
        all.insert(all.end(), own.back().begin(), own.back().end());
    }

    tally                              handed_out;
    std::atomic<std::size_t>           left{all.size()};
    std::vector<std::function<void()>> jobs;
    for (strings const& files : own) {
        jobs.emplace_back([&] {
            for (std::string const& path : files) {
                queue_->add({path});
            }
        });
    }
    for (int getters = 0; getters < 3; ++getters) {
        jobs.emplace_back([&] {
            while (left > 0) {
                strings due;
                queue_->get(due, 0, 0);
                handed_out.count(due);
                queue_->erase(due);
                left -= due.size();
            }
        });
    }
    at_once(jobs);

    EXPECT_EQ(handed_out.counts(), each_once(all));
    EXPECT_EQ(queued(), strings());
    EXPECT_EQ(on_disk(), strings());
}

TEST_F(QueueContention, EachEvictionDeletesOneFile)
{
    constexpr int                      adders        = 4;
    constexpr int                      files_of_each = 250;
    std::vector<std::function<void()>> jobs;
    for (int i = 0; i < adders; ++i) {
        // Half of them as the notification thread does it, half as salvage does.
        jobs.emplace_back([this, i, files = messages(i, files_of_each)] {
            for (std::string const& path : files) {
                if (i % 2 == 0) {
                    mutex_lock const hold(queue_->mutex());
                    queue_->add({path});
                } else {
                    queue_->add({path});
                }
            }
        });
    }
    at_once(jobs);

    strings const left = queued();
    EXPECT_EQ(left.size(), max_queue);
    EXPECT_EQ(on_disk(), left) << "one file went for each that came too many, and no other";
}

TEST_F(QueueContention, APathThatAllAnnounceIsQueuedOnce)
{
    strings const                            files = messages(0, 100);
    tally                                    handed_out;
    std::vector<std::function<void()>> const jobs(5, [&] {
        for (std::string const& path : files) {
            queue_->add({path, path});
            strings due;
            queue_->get(due, 0, 0);
            handed_out.count(due);
        }
    });
    at_once(jobs);

    EXPECT_EQ(handed_out.counts(), each_once(files));
    strings wanted = files;
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(queued(), wanted);
}

TEST_F(QueueContention, ErasersOfTheSameFilesLeaveTheOthers)
{
    strings files = messages(0, 400);
    queue_->add(files);
    strings kept;
    strings erased;
    for (std::size_t i = 0; i < files.size(); ++i) {
        (i % 2 == 0 ? kept : erased).push_back(files[i]);
    }
    std::vector<std::function<void()>> jobs(4, [&] {
        for (std::string const& path : erased) {
            queue_->erase({path});
        }
    });
    jobs.emplace_back([&] {
        for (int pass = 0; pass < 100; ++pass) {
            strings due;
            queue_->get(due, 0, 0);
            queue_->get(due, 1, 0);
        }
    });
    at_once(jobs);

    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(queued(), kept);
    EXPECT_EQ(on_disk(), kept);
}

TEST_F(QueueContention, KeepsEveryAdderSOrder)
{
    constexpr int                      adders        = 4;
    constexpr int                      files_of_each = 100;
    std::vector<strings>               own;
    std::vector<std::function<void()>> jobs;
    for (int i = 0; i < adders; ++i) {
        strings files;
        for (int k = 0; k < files_of_each; ++k) {
            files.push_back(std::to_string(i) + "/" + std::to_string(k));
        }
        own.push_back(files);
    }
    for (strings const& files : own) {
        jobs.emplace_back([&] { queue_->add(files); });
    }
    at_once(jobs);

    strings all;
    queue_->get(all, 0, 0);
    ASSERT_EQ(all.size(), std::size_t{adders} * files_of_each);
    for (strings const& files : own) {
        strings mine;
        std::copy_if(
            all.begin(), all.end(), std::back_inserter(mine),
            [&](std::string const& path) { return path.substr(0, 2) == files[0].substr(0, 2); });
        EXPECT_EQ(mine, files);
    }
}
