// mail_server.h - the mail servers that a client meets, made of a fuzzer's bytes
//
// mail_server.cpp replaces the library's sockets, waits and sleeps (lib/platform). A connection is
// a pair of sockets, whose other end plays the server: it says the bytes of the connection whatever
// the client says, and closes when the client waits for more or ends the connection. Nothing waits,
// and no thread is needed.

#ifndef ZELIEML_FUZZ_SUPPORT_MAIL_SERVER_H
#define ZELIEML_FUZZ_SUPPORT_MAIL_SERVER_H

#include <string>
#include <vector>

namespace zelieml::fuzz
{

// In a server's bytes.
constexpr char next_connection = '\x1d';
constexpr char next_piece      = '\x1e';  // what follows comes when the client waits for it
constexpr char silence         = '\x1f';  // the server says nothing until the client gives up

// The one host that is found, and the name with which clients on this machine greet.
constexpr char server_name[]   = "mail.test";
constexpr char greeting_name[] = "[192.0.2.10]";

// What a client sent in one connection, one string for each time it sent.
using sent_strings = std::vector<std::string>;

// The servers of one run, gone at its end. One at a time.
class mail_servers
{
public:
    // bytes  of the connections, in order; after the last one, connecting fails. Only the first
    //        silence of all counts, since each takes 3001 attempts to read.
    explicit mail_servers(std::string const& bytes);
    ~mail_servers();
    mail_servers(mail_servers const&)            = delete;
    mail_servers& operator=(mail_servers const&) = delete;

    // sent - what the client sent, connection by connection
    std::vector<sent_strings> const& sent() const;
};

// require_command_line - what was sent is one command line: up to 1023 bytes, with one LF, at its
// end, after a CR
void require_command_line(std::string const& sent);

}  // namespace zelieml::fuzz

#endif
