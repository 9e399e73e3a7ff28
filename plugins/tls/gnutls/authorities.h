// authorities.h - the certificate authorities that are trusted
//
// Loading those of the system takes longer than a mail: they are kept for as long as their file
// stays the same.
//
// Threads: any.

#ifndef ZELIEML_PLUGINS_TLS_GNUTLS_AUTHORITIES_H
#define ZELIEML_PLUGINS_TLS_GNUTLS_AUTHORITIES_H

#include <gnutls/gnutls.h>
#include <memory>
#include <string>

namespace zelieml::tls
{

using credentials = std::shared_ptr<gnutls_certificate_credentials_st>;

// trusted - credentials with the authorities of a file, or of the system when it is empty
//
// Never to be changed: several sessions use them. Throws a failure.
credentials trusted(std::string const& ca_file);

}  // namespace zelieml::tls

#endif
