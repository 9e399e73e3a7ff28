// charset_fork_test.cpp - forks while another thread converts

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/charset.h"

namespace zelieml::platform
{

namespace
{

char const* const charsets[] = {"EUC-JP", "GBK", "BIG5", "KOI8-R", "ISO-8859-2"};
constexpr int     count      = 5;

bool convert(int which)
{
    std::string out;
    return append_as_utf8(charsets[which % count], "a", out) && out == "a";
}

TEST(Charset, AForkedChildConvertsWhateverAnotherThreadWasDoing)
{
    std::atomic<bool> over = false;
    std::thread       other([&] {
        for (int i = 0; !over; ++i) {
            EXPECT_TRUE(convert(i));
        }
    });
    for (int i = 0; i < 300 && !HasFailure(); ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::alarm(20);  // a child that waits for ever is ended
            ::_exit(convert(i) ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "fork " << i;
    }
    over = true;
    other.join();
}

}  // namespace

}  // namespace zelieml::platform
