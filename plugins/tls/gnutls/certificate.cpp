// certificate.cpp - why a server's certificate is not trusted

#include "plugins/tls/gnutls/certificate.h"

#include <ctime>
#include <gnutls/x509.h>
#include <memory>
#include <vector>

#include "platform/zone_lock.h"

namespace zelieml::tls
{

namespace
{

using certificate = std::unique_ptr<gnutls_x509_crt_int, decltype(&gnutls_x509_crt_deinit)>;

// The authority of a certificate, if it is one of those that are trusted.
certificate authority_of(gnutls_session_t session, gnutls_x509_crt_t issued)
{
    void*             trust  = nullptr;
    gnutls_x509_crt_t issuer = nullptr;
    if (gnutls_credentials_get(session, GNUTLS_CRD_CERTIFICATE, &trust) != 0 ||
        gnutls_certificate_get_issuer(static_cast<gnutls_certificate_credentials_t>(trust), issued,
                                      &issuer, GNUTLS_TL_GET_COPY) != 0) {
        issuer = nullptr;
    }
    return certificate(issuer, gnutls_x509_crt_deinit);
}

// What the server has sent, its own certificate first, those that can be read; and the authority
// that they lead to.
std::vector<certificate> chain_of(gnutls_session_t session)
{
    unsigned                    count = 0;
    gnutls_datum_t const* const sent  = gnutls_certificate_get_peers(session, &count);
    std::vector<certificate>    chain;
    for (unsigned i = 0; i < count; ++i) {
        gnutls_x509_crt_t made = nullptr;
        if (gnutls_x509_crt_init(&made) == 0) {
            certificate read(made, gnutls_x509_crt_deinit);
            if (gnutls_x509_crt_import(made, &sent[i], GNUTLS_X509_FMT_DER) == 0) {
                chain.push_back(std::move(read));
            }
        }
    }
    if (!chain.empty()) {
        certificate authority = authority_of(session, chain.back().get());
        if (authority) {
            chain.push_back(std::move(authority));
        }
    }
    return chain;
}

std::string day(time_t when)
{
    char text[32] = "an unknown day";
    tm   date     = {};

    platform::zone_lock const alone;  // gmtime_r takes the lock of localtime_r
    if (::gmtime_r(&when, &date) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d", &date);
    }
    return text;
}

// The names a certificate is for, a few of them.
std::string names_of(gnutls_x509_crt_t owner)
{
    constexpr unsigned most = 3;
    std::string        all;
    char               name[256];
    for (unsigned i = 0; i < most; ++i) {
        std::size_t size = sizeof name;
        if (gnutls_x509_crt_get_subject_alt_name(owner, i, name, &size, nullptr) !=
            GNUTLS_SAN_DNSNAME) {
            break;
        }
        all += (i == 0 ? "" : ", ") + std::string(name, size);
    }
    return all;
}

std::string issuer_of(gnutls_x509_crt_t issued)
{
    char        name[256];
    std::size_t size = sizeof name;
    return gnutls_x509_crt_get_issuer_dn(issued, name, &size) == 0 ? std::string(name, size)
                                                                   : "an unknown issuer";
}

bool is_self_signed(gnutls_x509_crt_t signed_by)
{
    return gnutls_x509_crt_check_issuer(signed_by, signed_by) != 0;
}

std::string of_validity(std::vector<certificate> const& chain, unsigned status)
{
    time_t const now = std::time(nullptr);
    for (std::size_t i = 0; i < chain.size(); ++i) {
        std::string const whose = i == 0 ? "" : "the certificate of its issuer ";
        time_t const      until = gnutls_x509_crt_get_expiration_time(chain[i].get());
        time_t const      from  = gnutls_x509_crt_get_activation_time(chain[i].get());
        if ((status & GNUTLS_CERT_EXPIRED) != 0 && until < now) {
            return whose + "expired on " + day(until);
        }
        if ((status & GNUTLS_CERT_NOT_ACTIVATED) != 0 && from > now) {
            return whose + "not valid before " + day(from);
        }
    }
    return "not valid now";
}

// In words of our own: those of GnuTLS are in the language of the program.
std::string in_other_words(unsigned status)
{
    return (status & GNUTLS_CERT_INSECURE_ALGORITHM) != 0
               ? "signed with an algorithm that is not secure"
           : (status & GNUTLS_CERT_SIGNER_NOT_CA) != 0 ? "signed by what is no authority"
           : (status & GNUTLS_CERT_SIGNER_CONSTRAINTS_FAILURE) != 0
               ? "its authority may not sign for this host"
               : "not valid";
}

}  // namespace

std::string why_not_trusted(gnutls_session_t session)
{
    unsigned const                 status = gnutls_session_get_verify_cert_status(session);
    std::vector<certificate> const chain  = chain_of(session);
    if (chain.empty()) {
        return in_other_words(status);
    }
    gnutls_x509_crt_t const own = chain.front().get();
    if ((status & (GNUTLS_CERT_EXPIRED | GNUTLS_CERT_NOT_ACTIVATED)) != 0) {
        return of_validity(chain, status);
    }
    if ((status & GNUTLS_CERT_SIGNATURE_FAILURE) != 0) {
        return "not signed by the authority that it names, " + issuer_of(own);
    }
    if ((status & GNUTLS_CERT_SIGNER_NOT_FOUND) != 0) {
        return is_self_signed(own) ? "self-signed, by none of the trusted authorities"
                                   : "issued by an unknown authority, " + issuer_of(own);
    }
    if ((status & GNUTLS_CERT_PURPOSE_MISMATCH) != 0) {
        return "it is not for servers";
    }
    if ((status & GNUTLS_CERT_UNEXPECTED_OWNER) != 0) {
        std::string const names = names_of(own);
        return names.empty() ? "it is for another host" : "it is for " + names;
    }
    return in_other_words(status);
}

}  // namespace zelieml::tls
