#include "tests/support/clean_machine.h"

#include <csignal>

namespace zelieml::test
{

void on_a_clean_machine::SetUp()
{
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);

    set_host_name("client.test");
    clear_hosts();
    add_host("client.test", "192.0.2.10");
    reset_waits(true);
    fail_heap_after(-1);
    clear_traces();
    descriptors_ = open_descriptors();
    buffers_     = live_heap_buffers();
}

void on_a_clean_machine::TearDown()
{
    fail_heap_after(-1);
    EXPECT_EQ(open_descriptors(), descriptors_) << "descriptors left open";
    EXPECT_EQ(live_heap_buffers(), buffers_) << "buffers not given back";
}

}  // namespace zelieml::test
