// certificate.h - what a certificate says of itself (RFC 5280)
//
// Its signature is not looked at: what is read here can only refuse a certificate that the system
// trusts, and say why the system does not trust one.

#ifndef ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_CERTIFICATE_H
#define ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_CERTIFICATE_H

#include <string>
#include <vector>

namespace zelieml::tls
{

struct certificate {
    std::string              subject;      // DER
    std::string              issuer;       // DER
    std::string              issuer_name;  // for a reader: "C=US,O=An Authority,CN=Its Name"
    std::string              from;         // "20260131235959", of Greenwich
    std::string              until;
    std::vector<std::string> hosts;
    std::vector<std::string> addresses;              // bytes in network order
    bool                     is_for_servers = true;  // or says nothing of its purpose
};

// read_certificate - read one in DER
//
// Returns false for anything else.
bool read_certificate(std::string const& der, certificate& read);

// is_for - whether a certificate names a host, or an IP address
//
// In the names and addresses that are there for that; the subject's name is none of them. A "*" can
// be the first label of a name.
bool is_for(certificate const& shown, std::string const& host);

// is_address - whether a host is an IP address
bool is_address(std::string const& host);

}  // namespace zelieml::tls

#endif
