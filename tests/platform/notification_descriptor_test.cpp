// notification_descriptor_test.cpp - observers of hosts that close descriptors which are not theirs

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

using std::chrono::seconds;
using std::chrono::steady_clock;

// The exit status of a child that runs body; -1 when it has not ended in time.
int status_of_child(std::function<int()> const& body)
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    auto const until = steady_clock::now() + seconds(30);
    for (;;) {
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            return status;
        }
        if (steady_clock::now() > until) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

TEST(HostThatClosesAllDescriptors, RemovesItsObserver)
{
    notification_room const room;
    EXPECT_EQ(status_of_child([] {
                  listener  one("object");
                  int const highest = ::dup(0);
                  for (int fd = 3; fd <= highest; ++fd) {
                      ::close(fd);
                  }
                  return one.added() == 0 && one.remove() == 0 ? 0 : 1;
              }),
              0);
}

TEST(HostWithoutStandardStreams, KeepsTheirNumbersForItself)
{
    notification_room const room;
    EXPECT_EQ(status_of_child([] {
                  for (int const fd : {0, 1, 2}) {
                      ::close(fd);
                  }
                  listener one("object");
                  if (post("object", "hello") != 0 || one.heard().wait_for(1) != 1) {
                      return 1;
                  }
                  for (int const fd : {0, 1, 2}) {
                      if (::fcntl(fd, F_GETFD) != -1) {
                          return 2 + fd;
                      }
                  }
                  return 0;
              }),
              0);
}

}  // namespace
}  // namespace zelieml::test
