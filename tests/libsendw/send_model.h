// send_model.h - what the send driver does with a message file, settings and servers, by the rules
//
// A second implementation of docs/FORMATS.md and the headers of lib/libsendw, slow and without
// sockets. Only digests and stored passwords are the library's: tests of their own hold them to
// published values.

#ifndef ZELIEML_TESTS_LIBSENDW_SEND_MODEL_H
#define ZELIEML_TESTS_LIBSENDW_SEND_MODEL_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/fake_mail_server.h"

namespace zelieml::test
{

// What a send depends on.
struct send_room {
    std::optional<std::string> settings;  // the bytes of the file, if there is one
    std::optional<std::string> message;   // the same
    std::vector<played_server> servers;
    std::string                greeting_name = test::greeting_name;
    std::string                date;  // of the header
};

// What comes of it.
struct send_outcome {
    int           result = 0;
    std::string   reply;  // as the caller sees it
    server_record record;
};

bool operator==(send_outcome const& a, send_outcome const& b);
void PrintTo(send_outcome const& outcome, std::ostream* out);

// model_send - the outcome of isendw::send
//
// reply  what the caller's string holds before
send_outcome model_send(send_room const& room, std::string const& reply);

}  // namespace zelieml::test

#endif
