// fake_mail_server.h - the mail servers that a client meets, without a network
//
// fake_mail_server.cpp replaces the library's sockets, waits and sleeps (lib/platform). A
// connection is a pair of sockets, whose other end plays the server: it says its pieces whatever
// the client says. Nothing waits, and no thread is needed. Programs with it need fake_hostname and
// fake_resolver too.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_MAIL_SERVER_H
#define ZELIEML_TESTS_SUPPORT_FAKE_MAIL_SERVER_H

#include <cstdint>
#include <string>
#include <vector>

namespace zelieml::test
{

// What a server does when it has said everything.
enum class server_end {
    closes,     // when the client waits for more
    hangs_up,   // at once: nothing can be sent to it either
    is_silent,  // says nothing until the client gives up
};

// A server in one connection. The first piece is said at once, each other one when the client waits
// for more. Those that were not waited for are said when the client ends the connection.
struct played_server {
    std::vector<std::string> pieces;
    server_end               end = server_end::closes;
};

// Servers written as bytes: pieces are separated by next_piece, and servers by next_server. A
// server that hangs up or is silent ends with that mark; what follows it is left out. Only the
// first silence of all counts, since each takes 3001 attempts to read.
constexpr char next_server = '\x1d';
constexpr char next_piece  = '\x1e';
constexpr char silence     = '\x1f';
constexpr char hanging_up  = '\x1a';

std::vector<played_server> played_servers(std::string const& bytes);

// The two hosts that are found: the server, and this machine, which greets with its address.
constexpr char server_name[]    = "mail.test";
constexpr char server_address[] = "127.0.0.1";
constexpr char client_name[]    = "client.test";
constexpr char client_address[] = "192.0.2.10";
constexpr char greeting_name[]  = "[192.0.2.10]";

// What a client sent in one connection, one string for each time it sent.
using sent_strings = std::vector<std::string>;

// Where a client connected to.
struct played_peer {
    std::uint32_t address;  // network byte order
    std::uint16_t port;
};

// What clients did.
struct server_record {
    std::vector<played_peer>  peers;      // of all attempts to connect
    std::vector<sent_strings> sent;       // connection by connection
    std::vector<std::int64_t> sleeps;     // microseconds
    std::int64_t              waits = 0;  // for the servers to say more
};

bool operator==(played_peer const& a, played_peer const& b);
bool operator==(server_record const& a, server_record const& b);

// The servers of one run, gone at its end. One object at a time.
class fake_mail_servers
{
public:
    // servers  in the order of the connections; after the last one, connecting fails
    explicit fake_mail_servers(std::vector<played_server> servers);
    ~fake_mail_servers();
    fake_mail_servers(fake_mail_servers const&)            = delete;
    fake_mail_servers& operator=(fake_mail_servers const&) = delete;

    server_record const& record() const;
};

}  // namespace zelieml::test

#endif
