// trust.h - whether a server's certificate is trusted
//
// Threads: any; one at a time does it.

#ifndef ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_TRUST_H
#define ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_TRUST_H

#include <Security/Security.h>
#include <string>

#include "plugins/tls/secure_transport/authorities.h"

namespace zelieml::tls
{

// require_trust - throw a failure that says why, unless it is
//
// trust  what the server has shown
void require_trust(SecTrustRef trust, std::string const& host, authorities const& by);

}  // namespace zelieml::tls

#endif
