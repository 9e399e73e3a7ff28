// stress_test.cpp - everything at once; an engine's second lasts a millisecond
//
// Meant for the thread sanitizer most of all. What must hold in every build: nothing is lost but
// what has to go, and nothing comes twice.

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>

#include "tests/support/program.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

using namespace std::chrono_literals;

notification_root const root;

constexpr auto duration = 7s;  // three or four looks into the work directory

// Callbacks that come and go: each takes itself out, and the next one in.
template <int number>
struct shifting {
    static int run(void*, void* user)
    {
        EXPECT_EQ(eml_reset_callback(user, run), 0);
        EXPECT_EQ(eml_set_callback(user, shifting<(number + 1) % 3>::run, user), 0);
        return 0;
    }
};

int nothing_to_do(void*, void*)
{
    return 0;
}

// How far the posters are ahead of the engine: never as far as its queue goes.
class lead
{
public:
    explicit lead(result_list const& results) : results_(results) {}

    // Counts mails about to be posted, when no more than so many are on their way.
    bool take(int mails, int limit)
    {
        if (posted_ - static_cast<int>(results_.count()) > limit) {
            return false;
        }
        posted_ += mails;
        return true;
    }

private:
    result_list const& results_;
    std::atomic<int>   posted_{0};
};

// Posts until the time is over.
class poster
{
public:
    template <class Post>
    poster(std::string const& name, lead& ahead, std::atomic<bool> const& over, Post post)
        : name_(name), thread_([this, &ahead, &over, post] {
              while (!over) {
                  if (!ahead.take(20, 150)) {
                      wait_ms(1);
                      continue;
                  }
                  for (int i = 0; i < 20; ++i) {
                      EXPECT_EQ(post(name_ + "." + std::to_string(count_)), 0);
                      ++count_;
                  }
              }
          })
    {
    }

    strings subjects()
    {
        thread_.join();
        return numbered(name_, count_);
    }

private:
    std::string name_;
    int         count_ = 0;
    std::thread thread_;
};

}  // namespace

TEST(Stress, NothingIsLostAndNothingComesTwice)
{
    mail_server       server;
    mail_server       other_server;
    workplace         work(server.smtp_port());
    workplace         other_work(other_server.smtp_port());
    running_engine    engine(work, "steady");
    std::atomic<bool> over{false};
    lead              ahead(engine.results);
    EXPECT_EQ(eml_set_callback(engine.handle(), shifting<0>::run, engine.handle()), 0);

    auto const post_to_engine = [&](std::string const& subject) {
        void* const msg    = new_mail(subject);
        int const   status = eml_post_sys(engine.handle(), msg);
        eml_msg_destroy(msg);
        return status;
    };
    auto const post_from_here = [&](std::string const& subject) {
        return post_mail(work.path(), "steady", subject);
    };
    poster one("one", ahead, over, post_to_engine);
    poster two("two", ahead, over, post_from_here);

    std::thread changing([&] {
        while (!over) {
            EXPECT_EQ(eml_set_callback(engine.handle(), nothing_to_do, nullptr), 0);
            EXPECT_EQ(eml_reset_callback(engine.handle(), nothing_to_do), 0);
            ::usleep(50);
        }
    });
    // An engine that comes and goes, and a process that posts to it and to the steady one.
    program     process({PEER_PROGRAM, "post"});
    int         of_process = 0;
    std::thread starting([&] {
        for (int round = 0; !over; ++round) {
            running_engine passing(other_work, "passing");
            process.tell(std::string(other_work.path()) + " passing p 5\n");
            if (ahead.take(1, 250)) {
                process.tell(std::string(work.path()) + " steady process" +
                             std::to_string(of_process) + " 1\n");
                ++of_process;
            }
            EXPECT_EQ(post_mail(other_work.path(), "passing", "x"), 0);
            wait_ms(round % 7);
        }
    });

    std::this_thread::sleep_for(duration);
    over             = true;
    strings subjects = one.subjects();
    for (std::string const& subject : two.subjects()) {
        subjects.push_back(subject);
    }
    changing.join();
    starting.join();
    EXPECT_EQ(process.wait(), 0) << process.err();
    for (int i = 0; i < of_process; ++i) {
        subjects.push_back("process" + std::to_string(i) + ".0");
    }

    // A file that was met half written waits for its second attempt; all others have been sent.
    server.wait_for_mails(subjects.size(), 3s);
    engine.stop();
    strings all = subjects_of(server.mails());
    for (std::string const& name : work.messages()) {
        all.push_back(subject_of_file(work.file(name)));
    }
    RecordProperty("mails", static_cast<int>(server.mails().size()));
    RecordProperty("waiting", static_cast<int>(work.messages().size()));
    all      = sorted(all);
    subjects = sorted(subjects);
    strings differing;
    std::set_symmetric_difference(all.begin(), all.end(), subjects.begin(), subjects.end(),
                                  std::back_inserter(differing));
    EXPECT_EQ(differing, strings()) << "lost, or come twice";
    EXPECT_GT(server.mails().size(), 500u);
    EXPECT_LT(work.messages().size(), 20u);
    EXPECT_GT(of_process, 10);
    EXPECT_EQ(root.sockets(), strings());
}

TEST(Stress, AFullQueueLosesItsOldest)
{
    struct blocking {
        std::atomic<bool> entered = false;
        std::atomic<bool> go_on   = false;

        static int run(void*, void* user)
        {
            auto* const self = static_cast<blocking*>(user);
            self->entered    = true;
            EXPECT_TRUE(wait_until([&] { return self->go_on.load(); }));
            return 0;
        }
    };
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    blocking       gate;
    EXPECT_EQ(eml_set_callback(engine.handle(), blocking::run, &gate), 0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "first"), 0);
    EXPECT_TRUE(wait_until([&] { return gate.entered.load(); }));

    // The first is still queued while it is reported: of 521, it and 20 more have to go.
    constexpr int posters = 4;
    constexpr int of_each = 130;
    {
        std::vector<std::unique_ptr<program>> programs;
        for (int i = 0; i < posters; ++i) {
            programs.push_back(std::make_unique<program>(strings{PEER_PROGRAM, "post"}));
            programs.back()->tell(std::string(work.path()) + " symbol poster" + std::to_string(i) +
                                  " " + std::to_string(of_each) + "\n");
        }
        for (auto const& poster : programs) {
            EXPECT_EQ(poster->wait(), 0) << poster->err();
        }
    }
    EXPECT_TRUE(wait_until([&] { return work.messages().size() == 500; }));
    gate.go_on = true;
    EXPECT_TRUE(engine.results.wait_for(501));
    EXPECT_TRUE(wait_until([&] { return work.messages().empty(); }));
    engine.stop();
    EXPECT_EQ(engine.results.all(), std::vector<result>(501, sent));
    strings const subjects = subjects_of(server.mails());
    EXPECT_EQ(subjects.size(), 501u);
    for (int i = 0; i < posters; ++i) {
        // What came is the later part of what each has posted, in its order.
        std::string const name  = "poster" + std::to_string(i);
        strings const     came  = beginning_with(name + ".", subjects);
        strings const     whole = numbered(name, of_each);
        ASSERT_LE(came.size(), whole.size());
        EXPECT_EQ(came,
                  strings(whole.end() - static_cast<std::ptrdiff_t>(came.size()), whole.end()));
    }
}

}  // namespace zelieml::test
