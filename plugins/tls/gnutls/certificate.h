// certificate.h - why a server's certificate is not trusted

#ifndef ZELIEML_PLUGINS_TLS_GNUTLS_CERTIFICATE_H
#define ZELIEML_PLUGINS_TLS_GNUTLS_CERTIFICATE_H

#include <gnutls/gnutls.h>
#include <string>

namespace zelieml::tls
{

// why_not_trusted - what is wrong with it, after a handshake that failed with
// GNUTLS_E_CERTIFICATE_VERIFICATION_ERROR
std::string why_not_trusted(gnutls_session_t session);

}  // namespace zelieml::tls

#endif
