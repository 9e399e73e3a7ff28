// gate_test.cpp - a gate, and threads that wait until it is open

#include "support/gate.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "tests/support/skip.h"

using zelieml::gate;

namespace
{

// The folder in which the system describes the calling thread; empty on a system without /proc.
std::string own_folder()
{
    std::error_code             missing;
    std::filesystem::path const link = std::filesystem::read_symlink("/proc/thread-self", missing);
    return missing ? "" : "/proc/" + link.string();
}

// Whether the thread of that folder sleeps: 'S' behind its number and, in parentheses, its name.
bool is_asleep(std::string const& folder)
{
    std::ifstream in(folder + "/stat");
    std::string   stat;
    std::getline(in, stat);
    std::size_t const name_end = stat.rfind(") ");
    return name_end != std::string::npos && stat[name_end + 2] == 'S';
}

// A thread that goes through a gate as soon as it can.
class visitor
{
public:
    explicit visitor(gate& g)
        : thread_([this, &g] {
              folder_ = own_folder();
              came_   = true;
              g.wait();
              is_through_ = true;
          })
    {
    }
    ~visitor() { thread_.join(); }
    visitor(visitor const&)            = delete;
    visitor& operator=(visitor const&) = delete;

    // Returns when it sleeps before the gate, or is through: whether it sleeps.
    bool is_held_up() const
    {
        while (!is_through_ && !(came_ && is_asleep(folder_))) {
            std::this_thread::yield();
        }
        return !is_through_;
    }

private:
    std::string       folder_;
    std::atomic<bool> came_{false};
    std::atomic<bool> is_through_{false};
    std::thread       thread_;
};

}  // namespace

TEST(Gate, ThatIsOpenHoldsNobodyUp)
{
    gate g;
    g.open();
    g.wait();
    g.open();
    g.wait();
}

TEST(Gate, HoldsEverybodyUpUntilItIsOpen)
{
    SKIP_UNLESS(!own_folder().empty(), "threads are seen to sleep through /proc");
    gate          g;
    visitor const visitors[4] = {visitor(g), visitor(g), visitor(g), visitor(g)};
    for (visitor const& v : visitors) {
        EXPECT_TRUE(v.is_held_up());
    }
    g.open();
}

TEST(Gate, CanBeClosedAgain)
{
    SKIP_UNLESS(!own_folder().empty(), "threads are seen to sleep through /proc");
    gate g;
    g.open();
    g.wait();
    g.close();
    visitor const v(g);
    EXPECT_TRUE(v.is_held_up());
    g.open();
}

TEST(Gate, ShowsWhatWasDoneBeforeItWasOpened)
{
    for (int again = 0; again < 50; ++again) {
        gate        g;
        int         number = 0;
        std::thread other([&] {
            number = 7;
            g.open();
        });
        g.wait();
        EXPECT_EQ(number, 7);
        other.join();
    }
}
