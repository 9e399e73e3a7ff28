// authority.cpp - certificates, made on the spot

#include "tests/tls/authority.h"

#include <arpa/inet.h>
#include <atomic>
#include <ctime>
#include <gnutls/x509.h>
#include <stdexcept>

namespace zelieml::test
{

namespace
{

constexpr time_t day_s = 24 * 60 * 60;

void must(int status)
{
    if (status < 0) {
        throw std::runtime_error(gnutls_strerror(status));
    }
}

struct key_pair {
    gnutls_x509_privkey_t key = nullptr;

    key_pair()
    {
        must(gnutls_x509_privkey_init(&key));
        must(gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                                          GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0));
    }
    ~key_pair() { gnutls_x509_privkey_deinit(key); }
    key_pair(key_pair const&)            = delete;
    key_pair& operator=(key_pair const&) = delete;

    std::string pem() const
    {
        gnutls_datum_t text = {};
        must(gnutls_x509_privkey_export2(key, GNUTLS_X509_FMT_PEM, &text));
        std::string const all(reinterpret_cast<char*>(text.data), text.size);
        gnutls_free(text.data);
        return all;
    }
};

struct certificate_of {
    gnutls_x509_crt_t crt = nullptr;

    certificate_of(std::string const& name, key_pair const& owner, int from_day, int until_day)
    {
        static std::atomic<unsigned char> last{0};
        unsigned char const               serial = ++last;
        time_t const                      now    = std::time(nullptr);
        must(gnutls_x509_crt_init(&crt));
        must(gnutls_x509_crt_set_version(crt, 3));
        must(gnutls_x509_crt_set_serial(crt, &serial, sizeof serial));
        must(gnutls_x509_crt_set_activation_time(crt, now + from_day * day_s));
        must(gnutls_x509_crt_set_expiration_time(crt, now + until_day * day_s));
        must(gnutls_x509_crt_set_dn(crt, ("CN=" + name).c_str(), nullptr));
        must(gnutls_x509_crt_set_key(crt, owner.key));
    }
    ~certificate_of() { gnutls_x509_crt_deinit(crt); }
    certificate_of(certificate_of const&)            = delete;
    certificate_of& operator=(certificate_of const&) = delete;

    void name(wanted_certificate const& wanted)
    {
        for (std::string const& purpose : wanted.purposes) {
            must(gnutls_x509_crt_set_key_purpose_oid(crt, purpose.c_str(), 0));
        }
        for (std::string const& host : wanted.hosts) {
            must(gnutls_x509_crt_set_subject_alt_name(crt, GNUTLS_SAN_DNSNAME, host.data(),
                                                      static_cast<unsigned>(host.size()),
                                                      GNUTLS_FSAN_APPEND));
        }
        for (std::string const& dotted : wanted.addresses) {
            in_addr address = {};
            ::inet_pton(AF_INET, dotted.c_str(), &address);
            must(gnutls_x509_crt_set_subject_alt_name(crt, GNUTLS_SAN_IPADDRESS, &address,
                                                      sizeof address, GNUTLS_FSAN_APPEND));
        }
    }

    void sign(certificate_of const& issuer, key_pair const& by)
    {
        must(gnutls_x509_crt_sign2(crt, issuer.crt, by.key, GNUTLS_DIG_SHA256, 0));
    }

    std::string pem() const
    {
        gnutls_datum_t text = {};
        must(gnutls_x509_crt_export2(crt, GNUTLS_X509_FMT_PEM, &text));
        std::string const all(reinterpret_cast<char*>(text.data), text.size);
        gnutls_free(text.data);
        return all;
    }
};

}  // namespace

struct authority::made {
    key_pair       key;
    certificate_of own;

    made(std::string const& name, int until_day) : own(name, key, -100, until_day) {}
};

authority::authority(std::string const& name, int until_day)
    : made_(std::make_unique<made>(name, until_day))
{
    must(gnutls_x509_crt_set_basic_constraints(made_->own.crt, 1, -1));
    must(gnutls_x509_crt_set_key_usage(made_->own.crt, GNUTLS_KEY_KEY_CERT_SIGN));
    made_->own.sign(made_->own, made_->key);
}

authority::~authority() = default;

std::string authority::certificate() const
{
    return made_->own.pem();
}

identity authority::issue(wanted_certificate const& wanted) const
{
    key_pair const key;
    certificate_of issued("a server", key, wanted.from_day, wanted.until_day);
    issued.name(wanted);
    issued.sign(made_->own, made_->key);
    return {issued.pem(), key.pem()};
}

identity self_signed(wanted_certificate const& wanted)
{
    key_pair const key;
    certificate_of own("a server", key, wanted.from_day, wanted.until_day);
    own.name(wanted);
    own.sign(own, key);
    return {own.pem(), key.pem()};
}

std::string day_in(int days)
{
    time_t const when     = std::time(nullptr) + days * day_s;
    char         text[32] = "";
    tm           date     = {};
    std::strftime(text, sizeof text, "%Y-%m-%d", ::gmtime_r(&when, &date));
    return text;
}

}  // namespace zelieml::test
