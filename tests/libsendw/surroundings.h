// surroundings.h - the machine a mail client runs on, as a test wants it
//
// For programs with the fakes trace_recorder, fake_wait, fake_resolver, fake_heap and
// fake_hostname.

#ifndef ZELIEML_TESTS_LIBSENDW_SURROUNDINGS_H
#define ZELIEML_TESTS_LIBSENDW_SURROUNDINGS_H

#include <cctype>
#include <csignal>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_heap.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/fake_resolver.h"
#include "tests/support/files.h"
#include "tests/support/scripted_server.h"
#include "tests/support/trace_recorder.h"

namespace zelieml::test
{

// The name with which a client greets on this machine.
constexpr char greeting_literal[] = "[192.0.2.10]";

// A server that knows under which name this machine greets, and asks nobody.
class local_server : public scripted_server
{
public:
    explicit local_server(std::string const& transcript) : scripted_server(transcript)
    {
        set_host(greeting_literal);
    }
};

// A machine named client.test, whose address is 192.0.2.10; waits for a server that speaks are
// real. A broken connection that raised SIGPIPE would end the program. What a test leaves open or
// does not give back fails it.
class on_a_clean_machine : public testing::Test
{
protected:
    void SetUp() override
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

    void TearDown() override
    {
        EXPECT_EQ(open_descriptors(), descriptors_) << "descriptors left open";
        EXPECT_EQ(live_heap_buffers(), buffers_) << "buffers not given back";
    }

private:
    int descriptors_ = 0;
    int buffers_     = 0;
};

template <class Case>
class on_a_clean_machine_with : public on_a_clean_machine, public testing::WithParamInterface<Case>
{
};

// A case's name in words, as googletest wants it.
template <class Case>
std::string case_name(testing::TestParamInfo<Case> const& info)
{
    std::string name = info.param.name;
    for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return name;
}

}  // namespace zelieml::test

#endif
