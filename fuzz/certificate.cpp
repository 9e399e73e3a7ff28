// certificate.cpp - certificates as macOS's plug-in for TLS reads them, and those in a file
//
// The input is a certificate in DER, or after "-----BEGIN" a text.

#include "plugins/tls/secure_transport/certificate.h"

#include "fuzz/support/fuzz.h"
#include "plugins/tls/secure_transport/pem.h"

using namespace zelieml;
using fuzz::begins_with;
using fuzz::require;

namespace
{

void check(tls::certificate const& read, std::string const& der)
{
    for (std::string const& when : {read.from, read.until}) {
        require(when.size() == 14 && when.find_first_not_of("0123456789") == when.npos,
                "a time has fourteen digits");
    }
    for (std::string const& name : {read.issuer, read.subject}) {
        require(!name.empty() && der.find(name) != der.npos, "a name is a part of the certificate");
    }
    require(read.is_for_servers || der.find("\x55\x1D\x25") != der.npos,
            "who says nothing of a purpose may be a server");
    require(read.issuer_name.find('\n') == read.issuer_name.npos, "a reason is one line");
    for (std::string const& host : read.hosts) {
        require(host.find('\n') == host.npos, "a reason is one line");
        bool const is_plain =
            !host.empty() && host.find('*') == host.npos && !tls::is_address(host);
        require(!is_plain || tls::is_for(read, host), "it is for the hosts that it names");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const input(reinterpret_cast<char const*>(data), size);
    std::string       der = input;
    if (begins_with(input, "-----BEGIN")) {
        for (std::string const& one : tls::certificates_in(input)) {
            der = one;
        }
    }
    tls::certificate read;
    if (tls::read_certificate(der, read)) {
        check(read, der);
    }
    return 0;
}
