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

#include "support/mutex_lock.h"
#include "tests/libqueue/queue_room.h"

using namespace zelieml;

using strings = test::strings;

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

class QueueContention : public test::queue_room
{
protected:
    // Message files of a thread's own.
    strings messages_of(int thread, std::size_t count) const
    {
        return messages(count, std::to_string(thread) + "-");
    }
    strings sorted_queue()
    {
        strings paths = queued();
        std::sort(paths.begin(), paths.end());
        return paths;
    }
};

TEST_F(QueueContention, EveryFileIsHandedOutOnceAndErasedOnce)
{
    constexpr int         adders        = 4;
    constexpr std::size_t files_of_each = 100;
    strings               all;
    std::vector<strings>  own;
    for (int i = 0; i < adders; ++i) {
        own.push_back(messages_of(i, files_of_each));
        all.insert(all.end(), own.back().begin(), own.back().end());
    }

    tally                              handed_out;
    std::atomic<std::size_t>           left{all.size()};
    std::vector<std::function<void()>> jobs;
    for (strings const& files : own) {
        jobs.emplace_back([&] {
            for (std::string const& path : files) {
                queue().add({path});
            }
        });
    }
    for (int getters = 0; getters < 3; ++getters) {
        jobs.emplace_back([&] {
            while (left > 0) {
                strings due;
                queue().get(due, 0, 0);
                handed_out.count(due);
                queue().erase(due);
                left -= due.size();
            }
        });
    }
    at_once(jobs);

    EXPECT_EQ(handed_out.counts(), each_once(all));
    EXPECT_EQ(sorted_queue(), strings());
    EXPECT_EQ(on_disk(), strings());
}

TEST_F(QueueContention, EachEvictionDeletesOneFile)
{
    constexpr int                      adders        = 4;
    constexpr std::size_t              files_of_each = 250;
    std::vector<std::function<void()>> jobs;
    for (int i = 0; i < adders; ++i) {
        // Half of them as the notification thread does it, half as salvage does.
        jobs.emplace_back([this, i, files = messages_of(i, files_of_each)] {
            for (std::string const& path : files) {
                if (i % 2 == 0) {
                    mutex_lock const hold(queue().mutex());
                    queue().add({path});
                } else {
                    queue().add({path});
                }
            }
        });
    }
    at_once(jobs);

    strings const left = sorted_queue();
    EXPECT_EQ(left.size(), max_queue);
    EXPECT_EQ(on_disk(), left) << "one file went for each that came too many, and no other";
}

TEST_F(QueueContention, APathThatAllAnnounceIsQueuedOnce)
{
    strings const                            files = messages_of(0, 100);
    tally                                    handed_out;
    std::vector<std::function<void()>> const jobs(5, [&] {
        for (std::string const& path : files) {
            queue().add({path, path});
            strings due;
            queue().get(due, 0, 0);
            handed_out.count(due);
        }
    });
    at_once(jobs);

    EXPECT_EQ(handed_out.counts(), each_once(files));
    strings wanted = files;
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(sorted_queue(), wanted);
}

TEST_F(QueueContention, ErasersOfTheSameFilesLeaveTheOthers)
{
    strings files = messages_of(0, 400);
    queue().add(files);
    strings kept;
    strings erased;
    for (std::size_t i = 0; i < files.size(); ++i) {
        (i % 2 == 0 ? kept : erased).push_back(files[i]);
    }
    std::vector<std::function<void()>> jobs(4, [&] {
        for (std::string const& path : erased) {
            queue().erase({path});
        }
    });
    jobs.emplace_back([&] {
        for (int pass = 0; pass < 100; ++pass) {
            strings due;
            queue().get(due, 0, 0);
            queue().get(due, 1, 0);
        }
    });
    at_once(jobs);

    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(sorted_queue(), kept);
    EXPECT_EQ(on_disk(), kept);
}

TEST_F(QueueContention, KeepsTheOrderOfEveryAdder)
{
    constexpr int                      adders        = 4;
    constexpr std::size_t              files_of_each = 100;
    std::vector<strings>               own;
    std::vector<std::function<void()>> jobs;
    for (int i = 0; i < adders; ++i) {
        strings files;
        for (std::size_t k = 0; k < files_of_each; ++k) {
            files.push_back(std::to_string(i) + "/" + std::to_string(k));
        }
        own.push_back(files);
    }
    for (strings const& files : own) {
        jobs.emplace_back([&] { queue().add(files); });
    }
    at_once(jobs);

    strings all;
    queue().get(all, 0, 0);
    ASSERT_EQ(all.size(), adders * files_of_each);
    for (strings const& files : own) {
        strings mine;
        std::copy_if(
            all.begin(), all.end(), std::back_inserter(mine),
            [&](std::string const& path) { return path.substr(0, 2) == files[0].substr(0, 2); });
        EXPECT_EQ(mine, files);
    }
}
