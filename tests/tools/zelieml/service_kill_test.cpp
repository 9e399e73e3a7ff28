// service_kill_test.cpp - services and posters that are killed at any moment lose nothing

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/service_program.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

// A program that posts "NAME-0.0", "NAME-1.0", ... until it is killed, and tells of each.
class poster
{
public:
    poster(workplace const& work, std::string name)
        : name_(std::move(name)), run_(strings{PEER_PROGRAM, "post"})
    {
        std::string orders;
        for (int i = 0; i < most; ++i) {
            orders += std::string(work.path()) + " zelieml_stocksymbol " + name_ + "-" +
                      std::to_string(i) + " 1\n";
        }
        run_.tell(orders);
    }

    void wait_for(int count) { run_.wait_for("\n", count); }

    void kill()
    {
        run_.signal(SIGKILL);
        run_.wait();
    }

    // The subjects of the mails that it has posted.
    strings posted() const
    {
        std::string const told  = run_.out();
        auto const        count = std::count(told.begin(), told.end(), '\n');
        strings           subjects;
        for (int i = 0; i < count; ++i) {
            subjects.push_back(name_ + "-" + std::to_string(i) + ".0");
        }
        return subjects;
    }

private:
    static constexpr int most = 200;

    std::string name_;
    program     run_;
};

std::map<std::string, int> counts_of(strings const& subjects)
{
    std::map<std::string, int> counts;
    for (std::string const& subject : subjects) {
        ++counts[subject];
    }
    return counts;
}

}  // namespace

TEST(Killed, ServicesAndPostersLoseNothingAndDoubleWhatWasOnTheWire)
{
    constexpr int      rounds = 15;
    constexpr int      each   = 7;  // mails that a round posts at least
    mail_server        server;
    workplace          work(server.smtp_port());
    std::random_device seeds;
    auto const         seed = seeds();
    SCOPED_TRACE(seed);
    std::minstd_rand random(seed);
    auto const       pause = [&](int ms) {
        ::usleep(std::uniform_int_distribution<useconds_t>(0, 1000 * static_cast<useconds_t>(ms))(
            random));
    };

    strings posted;
    int     kills = 0;
    for (int round = 0; round < rounds; ++round) {
        service_program service(QUICK_PROGRAM, work.path(), {"--json", "--stop-timeout", "60"});
        poster          posting(work, "round" + std::to_string(round));
        if (round % 3 != 0) {
            EXPECT_TRUE(service.is_ready());
        }
        posting.wait_for(each);
        pause(300);
        if (round % 5 == 4) {
            EXPECT_TRUE(service.is_ready());
            posting.kill();
            EXPECT_EQ(service.end(), EX_OK) << service.run().err();
        } else {
            service.run().signal(SIGKILL);
            ++kills;
            pause(20);
            posting.kill();
            EXPECT_EQ(service.run().wait(), -SIGKILL);
        }
        strings const these = posting.posted();
        posted.insert(posted.end(), these.begin(), these.end());
    }

    service_program service(QUICK_PROGRAM, work.path());
    EXPECT_TRUE(service.is_ready());  // also when nothing is left for it
    std::map<std::string, int> counts;
    EXPECT_TRUE(wait_until(
        [&] {
            counts = counts_of(subjects_of(server.mails()));
            return std::all_of(posted.begin(), posted.end(), [&](std::string const& subject) {
                return counts.count(subject) != 0;
            });
        },
        std::chrono::seconds(90)));
    EXPECT_EQ(service.end(), EX_OK);
    EXPECT_EQ(list_directory(work.file("undelivered")), strings());
    EXPECT_GE(posted.size(), std::size_t{rounds * each});

    int doubled = 0;
    for (auto const& [subject, count] : counts_of(subjects_of(server.mails()))) {
        doubled += count - 1;
        EXPECT_LE(count, 1 + kills) << subject;
    }
    EXPECT_LE(doubled, kills);
    RecordProperty("posted", static_cast<int>(posted.size()));
    RecordProperty("doubled", doubled);
}

}  // namespace zelieml::test
