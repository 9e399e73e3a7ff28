// authorities.cpp - the certificate authorities of a file

#include "plugins/tls/secure_transport/authorities.h"

#include <Security/Security.h>
#include <new>
#include <sys/stat.h>

#include "plugins/tls/ca_file.h"
#include "plugins/tls/secure_transport/certificate.h"
#include "plugins/tls/secure_transport/pem.h"

namespace zelieml::tls
{

namespace
{

using platform::cf_owner;

void add(std::string const& der, authorities& to, std::string const& ca_file)
{
    certificate read;
    if (!read_certificate(der, read)) {
        damaged_certificate(ca_file);
    }
    cf_owner<CFDataRef> const data(::CFDataCreate(kCFAllocatorDefault,
                                                  reinterpret_cast<UInt8 const*>(der.data()),
                                                  static_cast<CFIndex>(der.size())));
    if (!data) {
        throw std::bad_alloc();
    }
    cf_owner<SecCertificateRef> const made(
        ::SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
    if (!made) {
        damaged_certificate(ca_file);
    }
    ::CFArrayAppendValue(to.certificates.get(), made.get());
    to.subjects.push_back(read.subject);
}

}  // namespace

authorities trusted(std::string const& ca_file)
{
    authorities read;
    if (ca_file.empty()) {
        return read;
    }
    struct stat                    is = {};
    std::vector<std::string> const all =
        certificates_in(read_ca_file(open_ca_file(ca_file, is), ca_file));
    if (all.empty()) {
        no_certificates(ca_file);
    }
    read.certificates.reset(::CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    if (!read.certificates) {
        throw std::bad_alloc();
    }
    for (std::string const& der : all) {
        add(der, read, ca_file);
    }
    return read;
}

}  // namespace zelieml::tls
