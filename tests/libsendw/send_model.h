// send_model.h - what a send and the login tests do with servers, by the rules
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

// What a login test depends on. Each of its servers is server_name, port 110 or 25.
struct login_room {
    bool                       smtp            = false;  // or POP3 only
    bool                       pop_before_smtp = false;
    bool                       apop            = false;
    bool                       auth            = false;  // the authentication switch
    int                        wait_ms         = 0;
    std::string                user;
    std::string                password;
    std::vector<played_server> servers;
};

bool operator==(send_outcome const& a, send_outcome const& b);
void PrintTo(send_outcome const& outcome, std::ostream* out);

// model_send - the outcome of isendw::send
//
// reply  what the caller's string holds before
send_outcome model_send(send_room const& room, std::string const& reply);

// model_login - the outcome of test_smtp_auth or test_pop_auth; its result is an eml_send_e
send_outcome model_login(login_room const& room);

}  // namespace zelieml::test

#endif
