// tls_sink.cpp - a mail server with TLS in nobody's way: it keeps nothing and answers at once
//
//     tls_sink FOLDER
//
// Takes ports of 127.0.0.1, writes the authority that has signed its certificate into FOLDER/ca.pem
// and "PLAIN-PORT TLS-PORT STARTTLS-PORT" into FOLDER/ready, and serves until it is killed. SMTP
// (RFC 5321) takes every mail of any size.

#include <cstdio>
#include <fstream>
#include <gnutls/gnutls.h>
#include <string>

#include "bench/sink_server.h"
#include "tests/tls/authority.h"

namespace
{

gnutls_certificate_credentials_t credentials = nullptr;

class tls_client : public sink_client
{
public:
    using sink_client::sink_client;
    ~tls_client() override
    {
        if (tls_ != nullptr) {
            gnutls_bye(tls_, GNUTLS_SHUT_WR);
            gnutls_deinit(tls_);
        }
    }

    bool begin_tls()
    {
        gnutls_init(&tls_, GNUTLS_SERVER);
        gnutls_set_default_priority(tls_);
        gnutls_credentials_set(tls_, GNUTLS_CRD_CERTIFICATE, credentials);
        gnutls_transport_set_int(tls_, fd());
        return gnutls_handshake(tls_) == 0;
    }

private:
    ssize_t send(char const* bytes, std::size_t size) override
    {
        return tls_ != nullptr ? gnutls_record_send(tls_, bytes, size)
                               : sink_client::send(bytes, size);
    }
    ssize_t receive(char* bytes, std::size_t size) override
    {
        return tls_ != nullptr ? gnutls_record_recv(tls_, bytes, size)
                               : sink_client::receive(bytes, size);
    }

    gnutls_session_t tls_ = nullptr;
};

void converse(tls_client& peer)
{
    std::string line;
    bool        going = true;
    while (going && peer.hear(line)) {
        if (begins(line, "data")) {
            going = peer.say("354 go on\r\n") && peer.hear_mail() && peer.say("250 forgotten\r\n");
        } else if (begins(line, "starttls")) {
            going = peer.say("220 go on\r\n") && peer.begin_tls();
        } else if (begins(line, "ehlo")) {
            going = peer.say("250-sink\r\n250 STARTTLS\r\n");
        } else if (begins(line, "quit")) {
            peer.say("221 bye\r\n");
            return;
        } else {
            going = peer.say("250 yes\r\n");
        }
    }
}

void serve_in_clear(int fd)
{
    tls_client peer(fd);
    if (peer.say("220 sink\r\n")) {
        converse(peer);
    }
}

void serve_inside_tls(int fd)
{
    tls_client peer(fd);
    if (peer.begin_tls() && peer.say("220 sink\r\n")) {
        converse(peer);
    }
}

void show(zelieml::test::identity const& shown)
{
    auto const datum = [](std::string const& text) {
        return gnutls_datum_t{reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
                              static_cast<unsigned>(text.size())};
    };
    gnutls_datum_t const certificate = datum(shown.certificate);
    gnutls_datum_t const key         = datum(shown.key);
    gnutls_certificate_allocate_credentials(&credentials);
    gnutls_certificate_set_x509_key_mem(credentials, &certificate, &key, GNUTLS_X509_FMT_PEM);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "use: tls_sink FOLDER\n");
        return 2;
    }
    std::string const              folder = argv[1];
    zelieml::test::authority const ca;
    show(ca.issue());
    std::ofstream(folder + "/ca.pem") << ca.certificate();
    int const plain    = listen_for(serve_in_clear);
    int const tls      = listen_for(serve_inside_tls);
    int const starttls = listen_for(serve_in_clear);
    serve_for_ever(folder + "/ready", std::to_string(plain) + " " + std::to_string(tls) + " " +
                                          std::to_string(starttls));
}
