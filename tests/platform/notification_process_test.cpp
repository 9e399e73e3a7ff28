// notification_process_test.cpp - observers and posters that are processes of their own

#include <algorithm>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "tests/platform/notification_peers.h"
#include "tests/support/notification_room.h"
#include "tests/support/skip.h"
#include "tests/support/threads.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

using texts = std::vector<std::string>;

surroundings within(notification_room const& room)
{
    return {{room.variable()}};
}

template <class Function>
milliseconds time_of(Function function)
{
    auto const start = steady_clock::now();
    function();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

// What a post costs that waits for nobody, on a busy machine.
constexpr auto at_once = milliseconds(490);
// And one that waits for somebody who does not take it.
constexpr auto half_a_second = milliseconds(1000);

// Values "a 0", "a 1", "b 0"...: how many there are of each tag, which must be in order.
std::map<std::string, int> count_in_order(texts const& values)
{
    std::map<std::string, int> next;
    for (std::string const& value : values) {
        std::istringstream words(value);
        std::string        tag;
        int                number = -1;
        words >> tag >> number;
        EXPECT_EQ(number, next[tag]) << value;
        next[tag] = number + 1;
    }
    return next;
}

// ------------------------------------------------------------------ who hears whom

TEST(Processes, HearEachOther)
{
    notification_room const room;
    notification_peer       first(within(room));
    notification_peer       second(within(room));
    listener                here("shared");
    EXPECT_EQ(first.observe("shared", 0), "0");
    EXPECT_EQ(first.observe("shared", 1), "0");
    EXPECT_EQ(first.observe("first's", 2), "0");
    EXPECT_EQ(second.observe("shared", 0), "0");
    EXPECT_EQ(second.observe("second's", 1), "0");

    EXPECT_EQ(second.post("shared", "from the second").result, 0);
    EXPECT_EQ(second.post("first's", "for the first").result, 0);
    EXPECT_EQ(first.post("second's", "for the second").result, 0);
    EXPECT_EQ(first.post("shared", "from the first").result, 0);
    EXPECT_EQ(post("shared", "from here"), 0);
    texts const all = {"from the second", "from the first", "from here"};
    EXPECT_EQ(here.heard().wait_for(3), 3U);
    EXPECT_EQ(here.heard().all(), all);
    for (int const id : {0, 1}) {
        EXPECT_EQ(first.wait_for(3, id), 3U);
        EXPECT_EQ(first.values(id), all);
    }
    EXPECT_EQ(second.wait_for(3), 3U);
    EXPECT_EQ(second.values(), all);
    EXPECT_EQ(first.wait_for(1, 2), 1U);
    EXPECT_EQ(first.values(2), texts{"for the first"});
    EXPECT_EQ(second.wait_for(1, 1), 1U);
    EXPECT_EQ(second.values(1), texts{"for the second"});

    EXPECT_EQ(first.remove(0), "0");
    EXPECT_EQ(first.remove(0), "-1");
    EXPECT_EQ(first.post("shared", "again").result, 0);
    EXPECT_EQ(first.wait_for(4, 1), 4U);
    EXPECT_EQ(second.wait_for(4), 4U);
    EXPECT_EQ(first.wait_for(3, 0), 3U) << "removed";
}

TEST(Processes, WithOddSymbolsHearEachOther)
{
    notification_room const room;
    notification_peer       observer(within(room));
    notification_peer       poster(within(room));
    texts const symbols = {std::string(254, '\xff'), "a b/c%d\nd", "../..", "\xe5\x8d\xb0", "-"};
    for (std::size_t i = 0; i < symbols.size(); ++i) {
        EXPECT_EQ(observer.observe(symbols[i], static_cast<int>(i)), "0");
    }
    for (std::string const& symbol : symbols) {
        EXPECT_EQ(poster.post(symbol, "for " + symbol).result, 0);
    }
    for (std::size_t i = 0; i < symbols.size(); ++i) {
        EXPECT_EQ(observer.wait_for(1, static_cast<int>(i)), 1U);
        EXPECT_EQ(observer.values(static_cast<int>(i)), texts{"for " + symbols[i]});
    }
}

TEST(Processes, InOtherSurroundingsHearEachOther)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    surroundings const cases[] = {
        {{room.variable()}, ::geteuid(), "/"},
        {{room.variable()}, ::geteuid(), room.root()},
        {{room.variable(), "TMPDIR=/nonexistent", "HOME=/nonexistent"}, ::geteuid(), "/usr"},
        {{room.variable(), "TMPDIR=" + room.root(), "HOME=/root", "USER=nobody",
          "XDG_RUNTIME_DIR=/run/user/4711", "LANG=ja_JP.eucJP", "PATH="},
         ::geteuid(),
         "/dev"},
    };
    std::size_t count = 0;
    for (surroundings const& around : cases) {
        notification_peer poster(around);
        EXPECT_EQ(poster.post("object", around.directory).result, 0);
        EXPECT_EQ(observer.wait_for(++count), count) << around.directory;
    }
}

// The places that all processes of the machine share: with a symbol that nobody else has.
void meet_in_the_real_places(uid_t user)
{
    std::random_device random;
    std::string const  symbol = "zelieml test " + std::to_string(random()) +
                               std::to_string(random()) + std::to_string(::getpid());
    std::string const own =
        user == 0 ? "/run/zelieml-root" : "/tmp/.zelieml-" + std::to_string(user);
    bool const         was_here = file_exists(own);
    surroundings const without  = {{}, user, "/"};
    {
        notification_peer observer(without);
        notification_peer poster({{}, user, "/usr"});
        notification_peer other({{"TMPDIR=/nonexistent", "HOME=/nonexistent"}, user, "/dev"});
        EXPECT_EQ(observer.observe(symbol), "0");
        EXPECT_EQ(poster.post(symbol, "from an empty environment").result, 0);
        EXPECT_EQ(other.post(symbol, "from another").result, 0);
        EXPECT_EQ(observer.wait_for(2), 2U);
        EXPECT_EQ(observer.values(), (texts{"from an empty environment", "from another"}));
        EXPECT_EQ(observer.remove(), "0");
    }
    if (!was_here) {
        ::rmdir(own.c_str());
    }
}

TEST(Processes, WithoutAnyEnvironmentMeetInTheRealPlaces)
{
    meet_in_the_real_places(::geteuid());
}

TEST(Processes, OfAnotherUserWithoutAnyEnvironmentMeetThereToo)
{
    SKIP_UNLESS_ROOT("another user");
    meet_in_the_real_places(4711);
}

// ------------------------------------------------------------------ many at once

TEST(Posts, ThatNobodyHearsReturnAtOnce)
{
    notification_room const room;
    notification_peer       poster(within(room));
    poster.begin_burst("nobody", "n", 500);
    std::istringstream words(poster.answer());
    int                result = -2;
    int                ms     = -1;
    words >> result >> ms;
    EXPECT_EQ(result, 0);
    EXPECT_LT(ms, 5000);
}

// So many posters, each with so many posts, and a live observer.
void burst(int posters, int posts)
{
    notification_room const                         room;
    notification_peer                               observer(within(room));
    std::vector<std::unique_ptr<notification_peer>> all;
    ASSERT_EQ(observer.observe("object"), "0");
    for (int i = 0; i < posters; ++i) {
        all.push_back(std::make_unique<notification_peer>(within(room)));
        all.back()->post("nobody", "ready");
    }
    for (int i = 0; i < posters; ++i) {
        all[static_cast<std::size_t>(i)]->begin_burst("object", std::string(1, char('a' + i)),
                                                      posts);
    }
    for (auto const& poster : all) {
        EXPECT_EQ(poster->answer().substr(0, 2), "0 ");
    }
    auto const total = static_cast<std::size_t>(posters * posts);
    EXPECT_EQ(observer.wait_for(total), total) << "none is lost";
    for (auto const& [tag, count] : count_in_order(observer.values())) {
        EXPECT_EQ(count, posts) << tag;
    }
}

TEST(Posts, OfFourProcessesAtOnceAllArrive)
{
    burst(4, 75);
}

TEST(Posts, InALongBurstAllArriveInTheOrderOfEachPoster)
{
    burst(4, 5000);
}

// ------------------------------------------------------------------ observers that do not read

// Posts "n 0", "n 1"... until one does not fit. Returns how many fitted.
int fill(std::string const& object)
{
    for (int i = 0; i < 5000; ++i) {
        auto const time = time_of([&] { EXPECT_EQ(post(object, "n " + std::to_string(i)), 0); });
        EXPECT_LT(time, half_a_second);
        if (time > at_once) {
            return i;
        }
    }
    ADD_FAILURE() << "the buffer has no end";
    return 0;
}

TEST(StoppedObserver, CostsAPostHalfASecondWhenItsBufferIsFull)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    observer.signal(SIGSTOP);
    EXPECT_LT(time_of([] { post("object", "n 0"); }), at_once) << "there is room";
    observer.signal(SIGCONT);
    EXPECT_EQ(observer.wait_for(1), 1U);
    EXPECT_EQ(observer.values(), texts{"n 0"});

    observer.signal(SIGSTOP);
    auto const fitted = static_cast<std::size_t>(fill("object"));
    EXPECT_GE(fitted, 1U);
    auto const time = time_of([] { EXPECT_EQ(post("object", "too much"), 0); });
    EXPECT_GE(time, milliseconds(400)) << "it waits for room";
    EXPECT_LT(time, half_a_second);
    EXPECT_LT(time_of([] { post("another", "hello"); }), at_once) << "others do not wait";

    observer.signal(SIGCONT);
    EXPECT_EQ(observer.wait_for(1 + fitted), 1 + fitted);
    EXPECT_EQ(post("object", "n " + std::to_string(fitted)), 0) << "there is room again";
    EXPECT_EQ(observer.wait_for(2 + fitted), 2 + fitted);
    texts values = observer.values();
    values.erase(values.begin());
    EXPECT_EQ(count_in_order(values)["n"], static_cast<int>(fitted) + 1) << "what fitted came";
}

TEST(StoppedObserver, CostsNoMoreThanThatWhenThereAreMany)
{
    notification_room const                         room;
    std::vector<std::unique_ptr<notification_peer>> stopped;
    for (int i = 0; i < 3; ++i) {
        stopped.push_back(std::make_unique<notification_peer>(within(room)));
        for (int id = 0; id < 3; ++id) {
            ASSERT_EQ(stopped.back()->observe("object", id), "0");
        }
        stopped.back()->signal(SIGSTOP);
    }
    fill("object");
    listener alive("object");
    for (int i = 0; i < 3; ++i) {
        EXPECT_LT(time_of([] { post("object", "hello"); }), half_a_second) << "nine that are full";
    }
    EXPECT_EQ(alive.heard().wait_for(3), 3U) << "the live one hears all";
}

TEST(StoppedObserver, IsWaitedForUntilItGoesOn)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    observer.signal(SIGSTOP);
    auto const      fitted = static_cast<std::size_t>(fill("object"));
    thread_id const poster = this_thread();
    std::thread     waker([&] {
        EXPECT_TRUE(wait_until_blocked(poster));
        observer.signal(SIGCONT);
    });
    EXPECT_EQ(post("object", "n " + std::to_string(fitted)), 0);
    waker.join();
    EXPECT_EQ(observer.wait_for(fitted + 1), fitted + 1);
    EXPECT_EQ(count_in_order(observer.values())["n"], static_cast<int>(fitted) + 1);
}

TEST(StoppedObserver, IsWaitedForNoLongerWhenSignalsCome)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    observer.signal(SIGSTOP);
    fill("object");
    struct sigaction counted = {};
    struct sigaction before  = {};
    counted.sa_handler       = [](int) {};
    ::sigaction(SIGALRM, &counted, &before);
    itimerval const every = {{0, 7000}, {0, 7000}};
    ::setitimer(ITIMER_REAL, &every, nullptr);
    auto const      time  = time_of([] { EXPECT_EQ(post("object", "too much"), 0); });
    itimerval const never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(time, milliseconds(400));
    EXPECT_LT(time, half_a_second);
}

// ------------------------------------------------------------------ sudden ends

TEST(KilledObserver, LeavesAFileThatTheNextPostRemoves)
{
    notification_room const room;
    {
        notification_peer observer(within(room));
        ASSERT_EQ(observer.observe("object"), "0");
        ASSERT_EQ(observer.observe("another", 1), "0");
        observer.signal(SIGKILL);
    }
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 2U);
    EXPECT_LT(time_of([] { EXPECT_EQ(post("object", "hello"), 0); }), at_once);
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 1U) << "the other symbol's is left";
    notification_peer next(within(room));
    EXPECT_EQ(next.observe("another"), "0");
    EXPECT_EQ(post("another", "hello"), 0);
    EXPECT_EQ(next.wait_for(1), 1U);
    EXPECT_EQ(next.values(), texts{"hello"});
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 1U) << "the living one's";
}

TEST(KilledObserver, FreesThoseWhoWaitForIt)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    observer.signal(SIGSTOP);
    fill("object");
    thread_id const poster = this_thread();
    std::thread     killer([&] {
        EXPECT_TRUE(wait_until_blocked(poster));
        observer.signal(SIGKILL);
    });
    EXPECT_LT(time_of([] { EXPECT_EQ(post("object", "too much"), 0); }), at_once);
    killer.join();
    post("object", "once more");
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
}

TEST(KilledPoster, HarmsNobody)
{
    notification_room const room;
    listener                one("object");
    for (int i = 0; i < 5; ++i) {
        std::size_t const heard = one.heard().all().size();
        notification_peer victim(within(room));
        victim.begin_burst("object", std::string(1, static_cast<char>('a' + i)), 1000000);
        EXPECT_GE(one.heard().wait_for(heard + 50), heard + 50);
        victim.signal(SIGKILL);
    }
    notification_peer poster(within(room));
    EXPECT_EQ(poster.post("object", "z 0").result, 0);
    EXPECT_TRUE(one.heard().wait_for_last("z 0"));
    EXPECT_EQ(count_in_order(one.heard().all()).size(), 6U);
}

// ------------------------------------------------------------------ forks

// A process that is no child of the test.
class orphan
{
public:
    explicit orphan(pid_t process) : process_(process) {}
    ~orphan()
    {
        if (process_ > 1) {
            ::kill(process_, SIGKILL);
        }
    }
    orphan(orphan const&)            = delete;
    orphan& operator=(orphan const&) = delete;

    bool lives() const { return process_ > 1 && ::kill(process_, 0) == 0; }

private:
    pid_t process_;
};

TEST(ForkedChild, ThatOutlivesTheObserverIsNotTakenForIt)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.observe("object"), "0");
    std::istringstream words(observer.ask("fork"));
    pid_t              process = -1;
    int                sockets = -1;
    int                removed = -2;
    words >> process >> sockets >> removed;
    orphan const child(process);
    EXPECT_EQ(sockets, 0) << "the child's copies are closed";
    EXPECT_EQ(removed, -1) << "the child does not observe";

    EXPECT_EQ(post("object", "to the parent"), 0);
    EXPECT_EQ(observer.wait_for(1), 1U) << "the parent observes";

    observer.signal(SIGKILL);
    ASSERT_TRUE(child.lives());
    EXPECT_LT(time_of([] { EXPECT_EQ(post("object", "to nobody"), 0); }), at_once);
    EXPECT_TRUE(notification_room::sockets(room.own()).empty()) << "the next post removes it";

    notification_peer next(within(room));
    ASSERT_EQ(next.observe("object"), "0");
    EXPECT_EQ(post("object", "to the next"), 0);
    EXPECT_EQ(next.wait_for(1), 1U);
    EXPECT_EQ(next.values(), texts{"to the next"});
    EXPECT_TRUE(child.lives());
}

TEST(ForkedChild, OfAProcEndsWhereItsProcDoes)
{
    notification_room const room;
    notification_peer       observer(within(room));
    ASSERT_EQ(observer.ask("observe-and-fork 0 " + hex(test_name) + " " + hex("object")), "0");
    for (std::size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(post("object", "fork"), 0);
        EXPECT_EQ(observer.wait_for(i), i);
    }
    EXPECT_EQ(observer.values(), texts(3, "the child ended"));
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 1U);
}

TEST(ForkedChild, HasNoSocketWheneverItIsMade)
{
    notification_room const room;
    notification_peer       changing(within(room));
    EXPECT_EQ(changing.ask("forks 100"), "0");
}

}  // namespace
}  // namespace zelieml::test
