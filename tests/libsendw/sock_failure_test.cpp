// sock_failure_test.cpp - connections when the system refuses a step
//
// The program is linked so that the library's calls of close and ioctl come here first.

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

#include "libsendw/sock.h"
#include "tests/support/clean_machine.h"
#include "tests/support/peers.h"

namespace
{

int  failing_close_fd = -1;     // the descriptor whose closing fails, having closed it
int  closes           = 0;      // of that descriptor
bool failing_blocking = false;  // the way back to blocking mode fails

int fail()
{
    errno = EIO;
    return -1;
}

}  // namespace

extern "C" {

int __real_close(int fd);
int REAL_IOCTL(int fd, unsigned long request, int* mode);

int __wrap_close(int fd)
{
    int const result = __real_close(fd);
    if (fd != failing_close_fd) {
        return result;
    }
    ++closes;
    return fail();
}

int WRAP_IOCTL(int fd, unsigned long request, int* mode)
{
    return failing_blocking && request == FIONBIO && *mode == 0 ? fail()
                                                                : REAL_IOCTL(fd, request, mode);
}

}  // extern "C"

namespace zelieml::test
{

namespace
{

class SockFailure : public on_a_clean_machine
{
protected:
    void TearDown() override
    {
        failing_close_fd = -1;
        closes           = 0;
        failing_blocking = false;
        on_a_clean_machine::TearDown();
    }
};

// A second close would hit a descriptor that another thread has got meanwhile.
TEST_F(SockFailure, ToCloseIsReportedAndNotTriedTwice)
{
    for (auto const end : {sock_shutdown_connection, sock_end_connection}) {
        tcp_pair pair;
        pair.server_closes();
        clear_traces();
        closes           = 0;
        failing_close_fd = pair.release_client();
        EXPECT_EQ(end(failing_close_fd), -1);
        failing_close_fd = -1;
        EXPECT_EQ(closes, 1);
        EXPECT_EQ(trouble_traces(), strings{"error:close"});
    }
}

TEST_F(SockFailure, ToGoBackToBlockingModeIsTracedAndTheBytesCount)
{
    tcp_pair pair;
    pair.say("hello");
    failing_blocking = true;
    char buf[8]      = "";
    EXPECT_EQ(_recv(pair.client(), buf, 5, 0), 5);
    EXPECT_STREQ(buf, "hello");
    EXPECT_EQ(trouble_traces(), strings{"error:ioctl(mode=0):%d %d"});
}

}  // namespace

}  // namespace zelieml::test
