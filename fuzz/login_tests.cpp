// login_tests.cpp - test_smtp_auth and test_pop_auth
//
// The input is a byte, its bits what is tested and how, a user, a password, and what the servers
// say. Everything is compared with a model.

#include <cstring>
#include <vector>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/scarce_memory.h"
#include "tests/libsendw/send_model.h"
#include "tests/support/fake_mail_server.h"
#include "zelieml.h"

namespace fuzz = zelieml::fuzz;
namespace test = zelieml::test;
using fuzz::require;

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    unsigned char const            choice   = input.byte();
    bool const                     smtp     = (choice & 1) != 0;
    bool const                     before   = (choice & 2) != 0;
    bool const                     auth     = (choice & 4) != 0;
    bool const                     apop     = (choice & 8) != 0;
    std::string const              user     = input.c_string();
    std::string const              password = input.c_string();

    void* server = nullptr;
    require(server_info_create(&server) == 0, "a server record can be made");
    server_info_set_pop(server, test::server_name, user.c_str(), password.c_str(),
                        apop ? "apop" : "pop", 110, -1);
    server_info_set_smtp(server, test::server_name, user.c_str(), password.c_str(),
                         auth ? "on" : "off", 25);

    // A reply is never longer than all that the servers say.
    std::vector<char> message(input.rest().size() + 1, '#');
    {
        test::fake_mail_servers const servers(test::played_servers(input.rest()));
        eml_send_e                    code   = eml_send_ok;
        auto const                    memory = fuzz::with_memory(input.memory(), [&] {
            code = smtp ? test_smtp_auth(server, before ? "on" : "off", message.data())
                                           : test_pop_auth(server, message.data());
        });
        require(memory != fuzz::memory_result::threw, "nothing is thrown to a caller in C");
        require(code == eml_send_ok || code == eml_send_error_other ||
                    code == eml_send_error_connection || code == eml_send_error_auth,
                "a result is one of the four codes");
        require(memory == fuzz::memory_result::ran_out ||
                    std::memchr(message.data(), '\0', message.size()) != nullptr,
                "a message is a string");

        if (memory == fuzz::memory_result::sufficed) {
            test::login_room room;
            room.smtp            = smtp;
            room.pop_before_smtp = before;
            room.apop            = apop;
            room.auth            = auth;
            room.wait_ms         = -1;
            room.user            = user;
            room.password        = password;
            room.servers         = test::played_servers(input.rest());
            require(test::send_outcome{code, message.data(), servers.record()} ==
                        test::model_login(room),
                    "a login test ends as the rules say");
        }

        auto const& sent = servers.record().sent;
        require(sent.size() <= (smtp && before ? 2U : 1U), "each server is asked once");
        if (code == eml_send_ok) {
            require(!sent.empty() && sent.back().back() == "quit\r\n",
                    "a login test ends with QUIT");
        }
        for (test::sent_strings const& strings : sent) {
            for (std::string const& line : strings) {
                require(line.size() <= 1023, "a command has at most 1023 bytes");
                require(!fuzz::begins_with(line, "mail from"), "a login test sends no mail");
            }
        }
    }
    server_info_destroy(server);
    return 0;
}
