// tls_front.cpp - the TLS of a mail server, in front of a plain one of the tests

#include "tests/tls/tls_front.h"

#include <arpa/inet.h>
#include <csignal>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <utility>

#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

constexpr int patience_ms = 20 * 1000;
constexpr int glance_ms   = 5;

// Reads a byte; false at the end.
bool read_byte(int fd, char& c)
{
    pollfd entry = {fd, POLLIN, 0};
    return ::poll(&entry, 1, patience_ms) > 0 && ::recv(fd, &c, 1, 0) == 1;
}

unique_fd connect_to(std::uint16_t port)
{
    unique_fd   fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in peer     = {};
    peer.sin_family      = AF_INET;
    peer.sin_port        = htons(port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0) {
        fd.reset();
    }
    return fd;
}

// Where the bytes go.
struct trickle {
    int fd;
    int pause_ms;
};

// Without the flags that not every system has.
ssize_t push(gnutls_transport_ptr_t where, void const* data, std::size_t size)
{
    return ::send(static_cast<trickle*>(where)->fd, data, size, 0);
}

ssize_t push_slowly(gnutls_transport_ptr_t where, void const* data, std::size_t size)
{
    auto const& way = *static_cast<trickle*>(where);
    for (std::size_t i = 0; i < size; ++i) {
        if (::send(way.fd, static_cast<char const*>(data) + i, 1, 0) != 1) {
            return -1;
        }
        wait_ms(way.pause_ms);
    }
    return static_cast<ssize_t>(size);
}

ssize_t pull(gnutls_transport_ptr_t where, void* data, std::size_t size)
{
    return ::recv(static_cast<trickle*>(where)->fd, data, size, 0);
}

int pull_timeout(gnutls_transport_ptr_t where, unsigned ms)
{
    pollfd entry = {static_cast<trickle*>(where)->fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(ms));
}

gnutls_datum_t datum_of(std::string const& text)
{
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
            static_cast<unsigned>(text.size())};
}

}  // namespace

std::vector<exchange> starttls_for(std::string const& own_name)
{
    return {{"220 mail.test ready\r\n", "ehlo " + own_name},
            {"250-mail.test\r\n250-SIZE 1000\r\n250 STARTTLS\r\n", "starttls"},
            {"220 go on\r\n", ""}};
}

std::vector<exchange> stls()
{
    return {
        {"+OK ready\r\n", "capa"}, {"+OK\r\nUSER\r\nSTLS\r\n.\r\n", "stls"}, {"+OK go on\r\n", ""}};
}

void in_clear(gnutls_session_t session, std::string const& text)
{
    push(gnutls_transport_get_ptr(session), text.data(), text.size());
}

tls_front::tls_front(identity const& shown, tls_manners manners) : manners_(std::move(manners))
{
    gnutls_datum_t const certificate = datum_of(shown.certificate);
    gnutls_datum_t const key         = datum_of(shown.key);
    gnutls_certificate_allocate_credentials(&credentials_);
    if (gnutls_certificate_set_x509_key_mem(credentials_, &certificate, &key,
                                            GNUTLS_X509_FMT_PEM) != 0) {
        throw std::runtime_error("no identity");
    }
    thread_ = std::thread([this] { serve(); });
}

tls_front::~tls_front()
{
    over_ = true;
    thread_.join();
    gnutls_certificate_free_credentials(credentials_);
}

bool tls_front::wait()
{
    return wait_until([this] { return clients_ == gone_; });
}

std::string tls_front::heard_in_clear()
{
    wait();
    std::lock_guard<std::mutex> const hold(guard_);
    return in_clear_;
}

std::string tls_front::heard_inside()
{
    wait();
    std::lock_guard<std::mutex> const hold(guard_);
    return inside_;
}

void tls_front::serve()
{
    sigset_t pipe;  // see mailserver/quiet.h
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    while (!over_) {
        pollfd entry = {door_.fd(), POLLIN, 0};
        if (::poll(&entry, 1, glance_ms) <= 0) {
            continue;
        }
        unique_fd client = door_.accept();
        ++clients_;
        meet(client.get());
        client.reset();
        ++gone_;
    }
}

void tls_front::meet(int client)
{
    if (!talk_in_clear(client)) {
        return;
    }
    if (manners_.stalls && manners_.hears) {
        manners_.hears("");
        return;
    }
    if (manners_.stalls) {
        char c;
        while (read_byte(client, c)) {
        }
        return;
    }
    talk_inside(client);
}

void tls_front::keep(std::string& where, char const* data, std::size_t size)
{
    std::lock_guard<std::mutex> const hold(guard_);
    where.append(data, size);
}

bool tls_front::talk_in_clear(int client)
{
    for (exchange const& part : manners_.in_clear) {
        send_all(client, part.says);
        std::string line;
        char        c = 0;
        while (!part.hears.empty() && c != '\n') {
            if (!read_byte(client, c)) {
                return false;
            }
            keep(in_clear_, &c, 1);
            line += c;
        }
        if (!part.hears.empty() && line != part.hears + "\r\n") {
            return false;
        }
    }
    return true;
}

void tls_front::talk_inside(int client)
{
    trickle          way     = {client, manners_.pause_ms};
    gnutls_session_t session = nullptr;
    gnutls_init(&session, GNUTLS_SERVER);
    gnutls_priority_set_direct(session, manners_.priority.c_str(), nullptr);
    gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, credentials_);
    gnutls_handshake_set_timeout(session, patience_ms);
    gnutls_transport_set_ptr(session, &way);
    gnutls_transport_set_push_function(session, manners_.trickles ? push_slowly : push);
    gnutls_transport_set_pull_function(session, pull);
    gnutls_transport_set_pull_timeout_function(session, pull_timeout);
    int status = 0;
    do {
        status = gnutls_handshake(session);
    } while (status < 0 && gnutls_error_is_fatal(status) == 0);
    if (status == 0) {
        ++handshakes_;
        if (manners_.in_front_of != 0) {
            forward(session, client);
        } else if (manners_.inside) {
            manners_.inside(session);
        }
        if (!manners_.just_closes) {
            gnutls_bye(session, GNUTLS_SHUT_WR);
        }
    } else {
        if (status == GNUTLS_E_FATAL_ALERT_RECEIVED) {
            alert_ = gnutls_alert_get(session);
        }
        gnutls_alert_send_appropriate(session, status);
    }
    gnutls_deinit(session);
}

void tls_front::pass_on(std::string const& said, int mail)
{
    if (manners_.hears) {
        manners_.hears(said);
    }
    send_all(mail, said);
}

void tls_front::forward(gnutls_session_t session, int client)
{
    unique_fd const mail = connect_to(manners_.in_front_of);
    char            bytes[16384];
    char            greeting = '\0';
    pass_on("", mail.get());
    while (manners_.greeted && greeting != '\n' && read_byte(mail.get(), greeting)) {
    }
    bool client_speaks = true;
    for (;;) {
        pollfd     both[]  = {{client_speaks ? client : -1, POLLIN, 0}, {mail.get(), POLLIN, 0}};
        bool const pending = client_speaks && gnutls_record_check_pending(session) > 0;
        if (!pending && ::poll(both, 2, patience_ms) <= 0) {
            return;
        }
        if (pending || both[0].revents != 0) {
            ssize_t const got = gnutls_record_recv(session, bytes, sizeof bytes);
            if (got == 0) {
                ++goodbyes_;
            }
            if (got > 0) {
                keep(inside_, bytes, static_cast<std::size_t>(got));
                pass_on(std::string(bytes, static_cast<std::size_t>(got)), mail.get());
            } else if (got == 0 || gnutls_error_is_fatal(static_cast<int>(got)) != 0) {
                client_speaks = false;
                ::shutdown(mail.get(), SHUT_WR);
            }
        }
        if (both[1].revents != 0) {
            ssize_t const got = ::recv(mail.get(), bytes, sizeof bytes, 0);
            if (got <= 0) {
                return;
            }
            gnutls_record_send(session, bytes, static_cast<std::size_t>(got));
        }
    }
}

}  // namespace zelieml::test
