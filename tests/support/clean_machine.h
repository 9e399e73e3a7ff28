// clean_machine.h - the machine a mail client runs on, as a test wants it
//
// For programs with the fakes trace_recorder, fake_wait, fake_resolver, fake_heap and
// fake_hostname.

#ifndef ZELIEML_TESTS_SUPPORT_CLEAN_MACHINE_H
#define ZELIEML_TESTS_SUPPORT_CLEAN_MACHINE_H

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/case_name.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_heap.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/fake_resolver.h"
#include "tests/support/files.h"
#include "tests/support/scripted_server.h"
#include "tests/support/trace_recorder.h"

namespace zelieml::test
{

using strings = std::vector<std::string>;

// The name with which a client greets on this machine.
constexpr char greeting_literal[] = "[192.0.2.10]";

// A server that knows the name with which clients on this machine greet, without a look-up.
class local_server : public scripted_server
{
public:
    explicit local_server(std::string const& transcript) : scripted_server(transcript)
    {
        set_host(greeting_literal);
    }
};

// A machine named client.test, whose address is 192.0.2.10. Waits for a server that speaks are
// real. A broken connection that raised SIGPIPE would end the program. What a test leaves open or
// does not give back fails it.
class on_a_clean_machine : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    int descriptors_ = 0;
    int buffers_     = 0;
};

template <class Case>
class on_a_clean_machine_with : public on_a_clean_machine, public testing::WithParamInterface<Case>
{
};

}  // namespace zelieml::test

#endif
