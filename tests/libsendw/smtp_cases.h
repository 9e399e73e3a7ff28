// smtp_cases.h - conversations that begin after the greeting
//
// For tests of single commands and of logins.

#ifndef ZELIEML_TESTS_LIBSENDW_SMTP_CASES_H
#define ZELIEML_TESTS_LIBSENDW_SMTP_CASES_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "libsendw/smtp.h"
#include "tests/support/clean_machine.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

using smtp_act = std::function<int(_s_smtp*)>;

struct command_case {
    char const* name;
    std::string transcript;  // after the greeting
    smtp_act    act;
    int         result;
    std::string reply;  // what the session keeps
    strings     trouble = {};
};

inline void PrintTo(command_case const& c, std::ostream* out)
{
    *out << c.name;
}

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
        local_server        server("S: 220 mail.test ready\n" + c.transcript);
        _s_smtp*            session = nullptr;
        ASSERT_EQ(smtp_start_session("127.0.0.1", server.port(), &session), 0);
        clear_traces();

        EXPECT_EQ(c.act(session), c.result);
        EXPECT_EQ(session->reply, c.reply);
        EXPECT_EQ(trouble_traces(), c.trouble);
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
