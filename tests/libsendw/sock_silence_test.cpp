// The real thing: no fakes.

#include <chrono>
#include <gtest/gtest.h>

#include "libsendw/sock.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

TEST(SockReadline, WaitsFifteenSecondsForASilentPeer)
{
    using std::chrono::seconds;
    using std::chrono::steady_clock;

    tcp_pair    pair;
    std::string line;
    auto const  start = steady_clock::now();
    EXPECT_EQ(sock_readline(pair.client(), line), -1);
    auto const waited = steady_clock::now() - start;
    EXPECT_GE(waited, seconds(15));
    EXPECT_LT(waited, seconds(60)) << "3001 short waits, each a little longer on a busy machine";
}

}  // namespace

}  // namespace zelieml::test
