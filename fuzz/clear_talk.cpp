// clear_talk.cpp - what is said before TLS
//
// The input is what a server says, after a byte that says which one it is.

#include "plugins/tls/clear_talk.h"

#include "fuzz/support/fuzz.h"
#include "plugins/tls/failure.h"
#include "support/ascii.h"
#include "tests/tls/written_server.h"

using namespace zelieml;
using fuzz::begins_with;
using fuzz::require;

namespace
{

// check_greeting - the session reads one reply and nothing behind it, of a server that is ready
void check_greeting(std::string const& greeting, bool smtp)
{
    require(greeting.size() <= tls::most_greeting, "a greeting is short");
    std::size_t at = 0;
    for (bool last = false; !last;) {
        std::size_t const end = greeting.find("\r\n", at);
        require(end != greeting.npos, "each line of a greeting has its end");
        std::string const line = greeting.substr(at, end - at);
        require(line.find_first_of(std::string("\r\n\0", 3)) == line.npos, "a line is one line");
        last = !smtp || line[3] == ' ';
        require(equal_ignoring_case(std::string_view(line).substr(0, 3), smtp ? "220" : "+OK"),
                "the server is ready");
        require(last || line[3] == '-', "a line that is not the last one says so");
        at = end + 2;
    }
    require(at == greeting.size(), "nothing comes behind the last line");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::input          input(data, size);
    bool const           smtp = input.byte() % 2 == 0;
    test::written_server server(input.rest());
    std::string const    all    = smtp ? "ehlo me\r\nstarttls\r\n" : "capa\r\nstls\r\n";
    bool                 begins = false;
    try {
        check_greeting(smtp ? ask_smtp(server, "me") : ask_pop(server), smtp);
        begins = true;
    } catch (tls::failure const& failed) {
        require(failed.cause != eml_cause_none && !failed.why.empty(), "a failure has a reason");
    }
    require(begins_with(all, server.heard.c_str()), "nothing else is said in clear");
    require(!begins || server.heard == all, "TLS begins after the server was asked");
    require(!begins || !server.has_more(), "TLS does not begin while the server speaks");
    return 0;
}
