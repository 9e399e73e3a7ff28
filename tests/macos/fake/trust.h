// trust.h - trust in what a server has shown

#ifndef ZELIEML_TESTS_MACOS_TRUST_H
#define ZELIEML_TESTS_MACOS_TRUST_H

#include <Security/Security.h>
#include <gnutls/x509.h>

namespace zelieml::fake
{

// make_trust - a trust with certificates in DER, the server's own first, and no policy
SecTrustRef make_trust(gnutls_datum_t const* shown, unsigned count);

}  // namespace zelieml::fake

#endif
