// scripted_client.h - a client that plays a written conversation with a server under test
//
// The transcripts of scripted_server.h read from the other side: the client sends what follows
// C and compares what follows S, {any} included.

#ifndef ZELIEML_TESTS_SUPPORT_SCRIPTED_CLIENT_H
#define ZELIEML_TESTS_SUPPORT_SCRIPTED_CLIENT_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/mailserver/socket.h"

namespace zelieml::test
{

// A connection to a port of 127.0.0.1 that gives up on a silent server after that time.
mailserver::stream connect_to(std::uint16_t             port,
                              std::chrono::milliseconds patience = std::chrono::seconds(20));

// All that the server says until it closes; a silent one adds "(silent)".
std::string hear_all(mailserver::stream& server);

// A line without its end; "(closed)" and "(silent)" when there is none.
std::string hear_line(mailserver::stream& server);

struct dialogue {
    std::string came;
    std::string wanted;
};

// Plays the transcript. Lines:
//     C: text    sends the text and CR LF         C- text  sends the text alone
//     S: text    the server must send this line   S: (closes)  the server must close
//     C: (closes)  closes our direction
// Leaves the server alone after the first thing that was not as written. EXPECT_EQ(came, wanted)
// is the whole check.
dialogue talk(std::uint16_t port, std::string const& transcript);
dialogue talk(mailserver::stream& server, std::string const& transcript);

}  // namespace zelieml::test

#endif
