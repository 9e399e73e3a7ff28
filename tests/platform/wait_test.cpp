// Real waits, and what signals do to them: nothing.

#include "platform/wait.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>

#include "platform/sleep.h"
#include "platform/socket.h"
#include "tests/support/peers.h"
#include "tests/support/signal_storm.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

template <class Function>
steady_clock::duration time_of(Function function)
{
    auto const start = steady_clock::now();
    function();
    return steady_clock::now() - start;
}

TEST(PlatformWait, EndsWhenSomethingIsThereToReceive)
{
    tcp_pair pair;
    pair.say("x");
    EXPECT_LT(time_of([&] { platform::wait_readable(pair.client(), 20000000); }), seconds(10));
}

TEST(PlatformWait, EndsWhenSomethingComes)
{
    tcp_pair pair;
    waiter   waiting([&] { platform::wait_readable(pair.client(), 20000000); });
    EXPECT_TRUE(waiting.gets_blocked());
    EXPECT_LT(time_of([&] {
                  pair.say("x");
                  waiting.join();
              }),
              seconds(10));
}

TEST(PlatformWait, EndsWhenThePeerClosesOrBreaksTheConnection)
{
    tcp_pair closed;
    closed.server_closes();
    EXPECT_LT(time_of([&] { platform::wait_readable(closed.client(), 20000000); }), seconds(10));
    tcp_pair broken;
    broken.server_resets();
    EXPECT_LT(time_of([&] { platform::wait_readable(broken.client(), 20000000); }), seconds(10));
}

TEST(PlatformWait, TakesNoLessThanItsTimeWhenNothingComes)
{
    tcp_pair pair;
    for (int const us : {1, 5000, 5001, 40000}) {
        EXPECT_GE(time_of([&] { platform::wait_readable(pair.client(), us); }),
                  std::chrono::microseconds(us));
    }
}

TEST(PlatformWait, SaysWhetherADescriptorTakesBytes)
{
    tcp_pair pair;
    EXPECT_TRUE(platform::wait_writable(pair.client(), 20000000));
    send_until_full(pair.client());
    bool writable = true;
    EXPECT_GE(time_of([&] { writable = platform::wait_writable(pair.client(), 20000); }),
              milliseconds(20));
    EXPECT_FALSE(writable);
}

TEST(PlatformWait, IsNotEndedBySignals)
{
    tcp_pair     pair;
    signal_storm storm;
    EXPECT_GE(time_of([&] { platform::wait_readable(pair.client(), 100000); }), milliseconds(100));
    EXPECT_GT(signals_caught, 3);

    send_until_full(pair.client());
    bool writable = true;
    EXPECT_GE(time_of([&] { writable = platform::wait_writable(pair.client(), 100000); }),
              milliseconds(100));
    EXPECT_FALSE(writable);
}

TEST(PlatformWait, EndsWhenSomethingComesAmidSignals)
{
    tcp_pair pair;
    signals_caught     = 0;
    std::thread server = start_undisturbed([&] {
        wait_until([] { return signals_caught > 3; });
        pair.say("x");
    });
    {
        signal_storm storm;
        EXPECT_LT(time_of([&] { platform::wait_readable(pair.client(), 20000000); }), seconds(10));
    }
    server.join();
    EXPECT_GT(signals_caught, 3);
}

TEST(PlatformConnect, IsNotEndedBySignals)
{
    silent_port       port;
    sockaddr_in const peer = platform::ipv4_peer(htonl(INADDR_LOOPBACK), htons(port.number()));
    std::thread       host = start_undisturbed([&] {
        std::this_thread::sleep_for(milliseconds(300));
        port.open();
    });
    {
        signal_storm storm;
        unique_fd    late(platform::open_stream_socket());
        EXPECT_GE(time_of([&] {
                      EXPECT_EQ(platform::connect_within(late.get(), peer, 150000), -1);
                      EXPECT_EQ(errno, ETIMEDOUT);
                  }),
                  milliseconds(150));
        late.reset();  // or it would go before the next one
        unique_fd const patient(platform::open_stream_socket());
        EXPECT_EQ(platform::connect_within(patient.get(), peer, 20000000), 0);
    }
    host.join();
    EXPECT_GT(signals_caught, 3);
}

TEST(PlatformSleep, TakesNoLessThanItsTime)
{
    for (int const us : {1, 999, 20000, 1000001}) {
        EXPECT_GE(time_of([&] { platform::sleep_microseconds(us); }),
                  std::chrono::microseconds(us));
    }
}

TEST(PlatformSleep, IsNotEndedBySignals)
{
    signal_storm storm;
    EXPECT_GE(time_of([] { platform::sleep_microseconds(100000); }), milliseconds(100));
    EXPECT_GT(signals_caught, 3);
}

TEST(PlatformSleep, HasNothingToWaitForInNoTimeOrLess)
{
    for (std::int64_t const us :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-2147483648} * 1000}) {
        EXPECT_LT(time_of([&] { platform::sleep_microseconds(us); }), seconds(5));
    }
}

}  // namespace

}  // namespace zelieml::test
