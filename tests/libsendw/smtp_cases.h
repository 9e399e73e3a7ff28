// smtp_cases.h - conversations that begin after the greeting
//
// For tests of single commands and of logins.

#ifndef ZELIEML_TESTS_LIBSENDW_SMTP_CASES_H
#define ZELIEML_TESTS_LIBSENDW_SMTP_CASES_H

#include <functional>
#include <string>
#include <vector>

#include "libsendw/smtp.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

using smtp_act = std::function<int(_s_smtp*)>;

// A call that succeeds, unless it says otherwise.
struct command_case : named_case {
    using named_case::named_case;

    command_case& calls(smtp_act const& its_act)
    {
        act = its_act;
        return *this;
    }
    // Beginning after the greeting.
    command_case& plays(std::string const& its_transcript)
    {
        transcript = its_transcript;
        return *this;
    }
    // The reply that is left in the session.
    command_case& keeps(std::string const& its_reply)
    {
        reply = its_reply;
        return *this;
    }
    command_case& fails(std::string const& its_reply, strings const& trouble)
    {
        result = -1;
        traced = trouble;
        return keeps(its_reply);
    }

    smtp_act    act;
    std::string transcript;
    int         result = 0;
    std::string reply;
    strings     traced;
};

// What the session keeps when nothing is said after the greeting.
constexpr char greeting_reply[] = "220 mail.test ready\r\n";

// The traces of a command whose reply has another code.
inline strings refused(std::string const& error)
{
    return {"error:can not find code (%s)", error};
}

// The traces of a command that gets no reply.
inline strings lost(std::string const& error)
{
    return {"error:read_multiline_reply", error};
}

class smtp_command : public on_a_clean_machine_with<command_case>
{
protected:
    void play()
    {
        command_case const& c = GetParam();
        local_server        server(greeted + c.transcript);
        _s_smtp*            session = nullptr;
        ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
        clear_traces();

        EXPECT_EQ(c.act(session), c.result);
        EXPECT_EQ(session->reply, c.reply);
        EXPECT_EQ(trouble_traces(), c.traced);
        EXPECT_EQ(smtp_end_session(session), 0);
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    }
};

// A session over a connection whose server's end the test holds, for replies that are there, or
// not, before the client asks.
struct hand_held_session {
    hand_held_session()
    {
        session.socket    = pair.client();
        session.connected = true;
    }

    tcp_pair pair;
    _s_smtp  session;
};

}  // namespace zelieml::test

#endif
