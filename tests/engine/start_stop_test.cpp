// start_stop_test.cpp - starting and stopping very often; an engine's second lasts a millisecond

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "tests/support/counting_new.h"
#include "tests/support/fake_heap.h"
#include "tests/support/program.h"
#include "tests/support/threads.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;
closed_port const       nobody;

constexpr int rounds = 200;

// A thread that waits for a round to be called, and then posts at once.
class watchful_poster
{
public:
    explicit watchful_poster(workplace const& work)
        : thread_([this, &work] {
              for (int posted = 0; posted < rounds; ++posted) {
                  while (called_ <= posted) {
                      std::this_thread::yield();
                  }
                  if (called_ > rounds) {
                      return;
                  }
                  EXPECT_EQ(post_mail(work.path(), "symbol", "thread"), 0);
              }
          })
    {
    }
    ~watchful_poster()
    {
        called_ = rounds + 1;
        thread_.join();
    }

    void call() { ++called_; }

private:
    std::atomic<int> called_{0};
    std::thread      thread_;
};

int count_result(void*, void* user)
{
    ++*static_cast<std::atomic<int>*>(user);
    return 0;
}

struct own_stop {
    void*            eml     = nullptr;
    std::atomic<int> stopped = 0;

    static int stop(void*, void* user)
    {
        auto* const self = static_cast<own_stop*>(user);
        EXPECT_EQ(eml_stop(self->eml), 0);
        ++self->stopped;
        return 0;
    }
};

// What the process holds.
struct holdings {
    int     objects     = live_objects();
    int     buffers     = live_heap_buffers();
    int     descriptors = open_descriptors();
    int     running     = running_threads();
    strings sockets     = root.sockets();
};

bool operator==(holdings const& a, holdings const& b)
{
    return a.objects == b.objects && a.buffers == b.buffers && a.descriptors == b.descriptors &&
           a.running == b.running && a.sockets == b.sockets;
}

void PrintTo(holdings const& h, std::ostream* out)
{
    *out << h.objects << " objects, " << h.buffers << " buffers, " << h.descriptors
         << " descriptors, " << h.running << " threads, " << h.sockets.size() << " sockets";
}

}  // namespace

TEST(StartStop, AMailPostedAfterTheStartIsNeverTakenForALeftover)
{
    mail_server     server;
    workplace       work(server.smtp_port());
    watchful_poster thread(work);
    program         process({PEER_PROGRAM, "post"});
    std::size_t     mails = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        for (int leftover = 0; leftover < 5; ++leftover) {
            write_file(work.file("leftover" + std::to_string(leftover) + ".sme"), "to: x@b.test\n");
        }
        void* eml = nullptr;
        ASSERT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &eml), 0);
        thread.call();
        if (round % 4 == 0) {
            wait_for_registration();
            process.tell(std::string(work.path()) + " symbol process 1\n");
            ++mails;
        }
        EXPECT_EQ(post_mail(work.path(), "symbol", "same"), 0);
        mails += 2;
        EXPECT_TRUE(server.wait_for_mails(mails));
        EXPECT_TRUE(wait_until([&] { return work.messages().empty(); }));
        EXPECT_EQ(eml_stop(eml), 0);
    }
    EXPECT_EQ(process.wait(), 0) << process.err();
    EXPECT_EQ(server.mails().size(), mails);
}

TEST(StartStop, LeavesNothingBehind)
{
    workplace        work(nobody.number());
    std::atomic<int> results{0};
    auto const       run_once = [&] {
        void* eml = nullptr;
        EXPECT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &eml), 0);
        EXPECT_EQ(eml_set_callback(eml, count_result, &results), 0);
        int const before = results;
        EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
        EXPECT_TRUE(wait_until([&] { return results > before; }));
        EXPECT_EQ(eml_stop(eml), 0);
    };
    run_once();
    holdings const before;
    for (int round = 0; round < rounds; ++round) {
        run_once();
    }
    EXPECT_EQ(holdings(), before);
    EXPECT_EQ(results, rounds + 1);
    EXPECT_EQ(before.sockets, strings());
}

TEST(StartStop, InACallbackLeavesNothingBehind)
{
    workplace work(nobody.number());
    running_engine(work).stop();  // what stays from the first engine on is there
    int const  idle = running_threads();
    own_stop   mine;
    auto const run_once = [&] {
        EXPECT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &mine.eml), 0);
        EXPECT_EQ(eml_set_callback(mine.eml, own_stop::stop, &mine), 0);
        int const before = mine.stopped;
        EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
        EXPECT_TRUE(wait_until([&] { return mine.stopped > before; }));
    };
    run_once();
    EXPECT_TRUE(wait_for_running_threads(idle));
    holdings const before;
    for (int round = 0; round < rounds; ++round) {
        run_once();
    }
    EXPECT_TRUE(wait_until([&] { return holdings() == before; }));
    EXPECT_EQ(holdings(), before);
    EXPECT_EQ(mine.stopped, rounds + 1);
}

TEST(StartStop, ThatFailsLeavesNothingBehind)
{
    workplace  work(nobody.number());
    auto const run_once = [&] {
        void* eml = nullptr;
        EXPECT_EQ(eml_start_with_stocksymbol(work.path(), "", &eml), -1);
        EXPECT_EQ(eml_start_with_stocksymbol(std::string(256, 'd').c_str(), "symbol", &eml), -1);
    };
    run_once();
    holdings const before;
    for (int round = 0; round < rounds; ++round) {
        run_once();
    }
    EXPECT_EQ(holdings(), before);
}

// The same symbol again at once, by several threads with directories of their own.
TEST(StartStop, OfSeveralThreadsDoNotMeet)
{
    constexpr int            count = 4;
    std::vector<std::thread> hosts;
    for (int host = 0; host < count; ++host) {
        hosts.emplace_back([host] {
            workplace         work(nobody.number());
            std::string const symbol = "host" + std::to_string(host);
            for (int round = 0; round < rounds / count; ++round) {
                running_engine engine(work, symbol);
                EXPECT_EQ(post_mail(work.path(), symbol, "x"), 0);
                EXPECT_TRUE(engine.results.wait_for(1));
                engine.stop();
                EXPECT_EQ(engine.results.all().size(), 1u);
            }
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(root.sockets(), strings());
}

}  // namespace zelieml::test
