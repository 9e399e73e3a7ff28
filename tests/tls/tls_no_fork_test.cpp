// tls_no_fork_test.cpp - forks that come while another thread uses what a child would find locked
//
// dlopen, gnutls_rnd and gmtime_r come here first, the last also under its name in 32-bit programs
// with 64-bit times: one of them takes its time.

#include <atomic>
#include <ctime>
#include <dlfcn.h>
#include <gnutls/crypto.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/plugin.h"
#include "tests/support/fake_plugin_folder.h"
#include "tests/support/wait_until.h"
#include "tests/tls/authority.h"
#include "tests/tls/plugin_room.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

enum class call {
    none,
    load,
    random,
    date
};

std::atomic<call> slow{call::none};
std::atomic<bool> is_inside{false};

template <class Real>
auto slowly(call which, Real real)
{
    if (slow != which) {
        return real();
    }
    is_inside = true;
    wait_ms(50);
    auto const got = real();
    is_inside      = false;
    return got;
}

// Whether a child that is forked as soon as a thread is in the slow call finds it there.
template <class Thread>
bool comes_between(call which, Thread use)
{
    slow = which;
    std::thread user(use);
    EXPECT_TRUE(wait_until([] { return is_inside.load(); }));
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(is_inside ? 1 : 0);
    }
    slow       = call::none;
    int status = -1;
    ::waitpid(child, &status, 0);
    user.join();
    return status != 0;
}

class TlsNoFork : public plugin_room
{
};

}  // namespace

}  // namespace zelieml::test

extern "C" {

void* __real_dlopen(char const* path, int mode);
void* __wrap_dlopen(char const* path, int mode);
int   __real_gnutls_rnd(gnutls_rnd_level_t level, void* data, std::size_t size);
int   __wrap_gnutls_rnd(gnutls_rnd_level_t level, void* data, std::size_t size);
tm*   __real_gmtime_r(time_t const* when, tm* date);
tm*   __wrap_gmtime_r(time_t const* when, tm* date);

tm* __real___gmtime64_r(time_t const* when, tm* date) __attribute__((weak));
tm* __wrap___gmtime64_r(time_t const* when, tm* date);

void* __wrap_dlopen(char const* path, int mode)
{
    using namespace zelieml::test;
    return slowly(call::load, [&] { return __real_dlopen(path, mode); });
}

int __wrap_gnutls_rnd(gnutls_rnd_level_t level, void* data, std::size_t size)
{
    using namespace zelieml::test;
    return slowly(call::random, [&] { return __real_gnutls_rnd(level, data, size); });
}

tm* __wrap_gmtime_r(time_t const* when, tm* date)
{
    using namespace zelieml::test;
    return slowly(call::date, [&] { return __real_gmtime_r(when, date); });
}

tm* __wrap___gmtime64_r(time_t const* when, tm* date)
{
    using namespace zelieml::test;
    return slowly(call::date, [&] { return __real___gmtime64_r(when, date); });
}

}  // extern "C"

namespace zelieml::test
{

namespace
{

TEST_F(TlsNoFork, ComesWhileThePluginIsLoaded)
{
    EXPECT_FALSE(comes_between(call::load, [] {
        std::string error;
        set_plugin_folder(ZELIEML_TEST_PLUGIN_FOLDER);
        EXPECT_NE(platform::load_function("zelieml-tls", "zelieml_tls_open_1", error), nullptr)
            << error;
    }));
}

TEST_F(TlsNoFork, ComesWhileAGeneratorOfRandomNumbersIsMade)
{
    tls_front server(ca().issue(), {});
    EXPECT_FALSE(comes_between(call::random, [&] { EXPECT_EQ(hear(ask(server.port()), 1), "+"); }));
}

TEST_F(TlsNoFork, ComesWhileADateIsWritten)
{
    tls_front server(ca().issue({{"mail.test"}, {}, -9, -2}), {});
    EXPECT_FALSE(comes_between(call::date, [&] {
        std::string const said = hear(ask(server.port()));
        EXPECT_NE(said.find("expired on 2"), said.npos) << said;
    }));
}

}  // namespace

}  // namespace zelieml::test
