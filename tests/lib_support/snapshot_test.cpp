// snapshot_test.cpp - a list that is replaced as a whole

#include "support/snapshot.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using zelieml::snapshot;

using numbers = snapshot<int>::list;

TEST(Snapshot, IsEmptyAtFirst)
{
    snapshot<int> const list;
    EXPECT_TRUE(list.get()->empty());
}

TEST(Snapshot, IsReplacedByTheChangedCopy)
{
    snapshot<int> list;
    EXPECT_TRUE(list.update([](numbers& l) {
        l.push_back(1);
        return true;
    }));
    EXPECT_TRUE(list.update([](numbers& l) {
        EXPECT_EQ(l, numbers{1});
        l.push_back(2);
        return true;
    }));
    EXPECT_EQ(*list.get(), (numbers{1, 2}));
}

TEST(Snapshot, StaysWhenTheChangeReturnsFalse)
{
    snapshot<int> list;
    auto const    before = list.get();
    EXPECT_FALSE(list.update([](numbers& l) {
        l.push_back(1);
        return false;
    }));
    EXPECT_EQ(list.get(), before);
}

TEST(Snapshot, ThatWasTakenNeverChanges)
{
    snapshot<int> list;
    auto const    add_one = [](numbers& l) {
        l.push_back(1);
        return true;
    };
    list.update(add_one);
    auto const taken = list.get();
    list.update(add_one);
    EXPECT_EQ(taken->size(), 1U);
    EXPECT_EQ(list.get()->size(), 2U);
}

TEST(Snapshot, IsAsItWasWhenTheChangeThrows)
{
    snapshot<int> list;
    auto const    before = list.get();
    EXPECT_THROW(list.update([](numbers& l) -> bool {
        l.push_back(1);
        throw 1;
    }),
                 int);
    EXPECT_EQ(list.get(), before);
}

// Somebody else is faster in the first three rounds.
TEST(Snapshot, StartsOverWithAFreshCopyWhenAnotherWasFaster)
{
    snapshot<int> list;
    int           rounds = 0;
    EXPECT_TRUE(list.update([&](numbers& l) {
        if (rounds++ < 3) {
            list.update([&](numbers& other) {
                other.push_back(rounds);
                return true;
            });
        }
        l.push_back(100);
        return true;
    }));
    EXPECT_EQ(rounds, 4);
    EXPECT_EQ(*list.get(), (numbers{1, 2, 3, 100}));
}

TEST(Snapshot, MayNeedNoChangeWhenItStartsOver)
{
    snapshot<int> list;
    auto          add_once = [&](numbers& l) {
        if (!l.empty()) {
            return false;
        }
        l.push_back(1);
        return true;
    };
    bool first = true;
    EXPECT_FALSE(list.update([&](numbers& l) {
        if (first) {
            first = false;
            list.update(add_once);
        }
        return add_once(l);
    }));
    EXPECT_EQ(*list.get(), numbers{1});
}

// Adders, removers and readers; what is added and not removed is there at the end, once.
TEST(Snapshot, LosesNoChangeOfManyThreads)
{
    constexpr int    adders       = 4;
    constexpr int    numbers_each = 200;
    snapshot<int>    list;
    std::atomic<int> adding{adders};
    std::atomic<int> ready{0};
    auto             together = [&] {
        ++ready;
        while (ready < adders + 2) {
            std::this_thread::yield();
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < adders; ++i) {
        threads.emplace_back([&, i] {
            together();
            for (int k = 0; k < numbers_each; ++k) {
                list.update([&](numbers& l) {
                    l.push_back(i * numbers_each + k);
                    return true;
                });
            }
            --adding;
        });
    }
    int removed = 0;
    threads.emplace_back([&] {  // the odd ones
        together();
        auto const odd = [](int n) { return n % 2 != 0; };
        for (bool last = false; !last;) {
            last = adding == 0;
            int in_this_round;
            list.update([&](numbers& l) {
                auto const end = std::remove_if(l.begin(), l.end(), odd);
                in_this_round  = static_cast<int>(l.end() - end);
                l.erase(end, l.end());
                return in_this_round != 0;
            });
            removed += in_this_round;
        }
    });
    threads.emplace_back([&] {
        together();
        while (adding != 0) {
            auto const taken = list.get();
            EXPECT_EQ(std::set<int>(taken->begin(), taken->end()).size(), taken->size());
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }

    numbers left = *list.get();
    std::sort(left.begin(), left.end());
    numbers wanted;
    for (int n = 0; n < adders * numbers_each; n += 2) {
        wanted.push_back(n);
    }
    EXPECT_EQ(left, wanted);
    EXPECT_EQ(removed, adders * numbers_each / 2);
}

namespace
{

// An element that looks at its list whenever it is copied and when it ends.
struct looker {
    explicit looker(snapshot<looker>& l) : list(&l) {}
    looker(looker const& other) : list(other.list) { list->get(); }
    looker& operator=(looker const&) = delete;
    ~looker() { list->get(); }

    snapshot<looker>* list;
};

}  // namespace

TEST(Snapshot, IsNotLockedWhileElementsAreCopiedAndDestroyed)
{
    snapshot<looker> list;
    for (int i = 0; i < 3; ++i) {
        list.update([&](snapshot<looker>::list& l) {
            l.emplace_back(list);
            return true;
        });
    }
    EXPECT_EQ(list.get()->size(), 3U);
    list.update([](snapshot<looker>::list& l) {
        l.clear();
        return true;
    });
}

// Whatever the parent's other threads were in the middle of.
TEST(Snapshot, OfAForkedChildsOwnIsNeverLocked)
{
    std::atomic<bool>        over{false};
    snapshot<int>            lists[8];
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!over) {
                for (snapshot<int> const& list : lists) {
                    list.get();
                }
            }
        });
    }
    int status = 0;
    for (int children = 0; children < 200 && status == 0; ++children) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::alarm(10);
            snapshot<int> own[64];
            for (snapshot<int>& list : own) {
                list.update([](numbers& l) {
                    l.push_back(1);
                    return true;
                });
            }
            ::_exit(0);
        }
        EXPECT_EQ(::waitpid(child, &status, 0), child);
    }
    over = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(status, 0) << "a child hung";
}
