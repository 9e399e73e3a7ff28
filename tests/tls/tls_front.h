// tls_front.h - the TLS of a mail server, in front of a plain one of the tests
//
//     scripted_server mail(...);
//     tls_front       server(ca.issue(), {.in_front_of = mail.port()}) ...
//
// Each client is served for itself, one after the other: what is said in clear, the handshake, then
// whatever the plain server and the client say to each other.

#ifndef ZELIEML_TESTS_TLS_TLS_FRONT_H
#define ZELIEML_TESTS_TLS_TLS_FRONT_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <gnutls/gnutls.h>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "tests/support/peers.h"
#include "tests/tls/authority.h"

namespace zelieml::test
{

// What a server says, and what it hears then.
struct exchange {
    std::string says;   // with line ends
    std::string hears;  // a command without its line end; empty: it hears nothing
};

// How a server behaves; as it should where nothing is said.
struct tls_manners {
    std::uint16_t         in_front_of = 0;   // a port; 0: see inside
    bool                  greeted  = false;  // what the plain server greets with is not passed on
    std::vector<exchange> in_clear = {};
    std::string           priority = "NORMAL";
    bool                  stalls   = false;     // instead of the handshake
    bool                  trickles = false;     // byte by byte
    int                   pause_ms = 0;         // between two bytes
    bool                  just_closes = false;  // in the end, without close_notify
    // Called with what a client says before it goes to the plain server, at first with nothing.
    // With stalls: called once, and the server closes then; without it, when the client has gone.
    std::function<void(std::string const&)> hears = nullptr;
    // What happens inside TLS, instead of a plain server.
    std::function<void(gnutls_session_t)> inside = nullptr;
};

// Exchanges before TLS, as they should be.
std::vector<exchange> starttls_for(std::string const& own_name);
std::vector<exchange> stls();

// in_clear - says something outside of TLS, to a client that is inside
void in_clear(gnutls_session_t session, std::string const& text);

class tls_front
{
public:
    tls_front(identity const& shown, tls_manners manners);
    ~tls_front();
    tls_front(tls_front const&)            = delete;
    tls_front& operator=(tls_front const&) = delete;

    std::uint16_t port() const { return door_.port(); }

    // Waits until every client that has come is gone. Returns false when that takes 20 s.
    bool wait();

    // The bytes that clients said without TLS.
    std::string heard_in_clear();
    // The bytes that clients said inside TLS to no plain server, or to one.
    std::string heard_inside();
    // Clients that came, and those with whom TLS began.
    int clients() const { return clients_; }
    int handshakes() const { return handshakes_; }
    // Clients that ended TLS with close_notify.
    int goodbyes() const { return goodbyes_; }
    // The alert with which the last one ended a handshake; -1 if none has.
    int alert() const { return alert_; }

private:
    void serve();
    void meet(int client);
    bool talk_in_clear(int client);
    void talk_inside(int client);
    void forward(gnutls_session_t session, int client);
    void pass_on(std::string const& said, int mail);
    void keep(std::string& where, char const* data, std::size_t size);

    listening_socket                 door_;
    tls_manners                      manners_;
    gnutls_certificate_credentials_t credentials_ = nullptr;
    std::atomic<bool>                over_{false};
    std::atomic<int>                 clients_{0};
    std::atomic<int>                 gone_{0};
    std::atomic<int>                 handshakes_{0};
    std::atomic<int>                 goodbyes_{0};
    std::atomic<int>                 alert_{-1};
    std::mutex                       guard_;
    std::string                      in_clear_;
    std::string                      inside_;
    std::thread                      thread_;
};

// A server that listens to one client, and says nothing.
class listener
{
public:
    listener()
        : thread_([this] {
              unique_fd const client = door_.accept();
              char            bytes[512];
              while (::recv(client.get(), bytes, sizeof bytes, 0) > 0) {
                  has_heard_ = true;
              }
              has_ended_ = true;
          })
    {
    }
    ~listener() { thread_.join(); }
    listener(listener const&)            = delete;
    listener& operator=(listener const&) = delete;

    std::uint16_t port() const { return door_.port(); }
    bool          has_heard() const { return has_heard_; }  // anything
    bool          has_ended() const { return has_ended_; }  // the client

private:
    listening_socket  door_;
    std::atomic<bool> has_heard_{false};
    std::atomic<bool> has_ended_{false};
    std::thread       thread_;
};

}  // namespace zelieml::test

#endif
