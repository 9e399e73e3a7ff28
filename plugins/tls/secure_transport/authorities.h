// authorities.h - the certificate authorities of a file
//
// Threads: any.

#ifndef ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_AUTHORITIES_H
#define ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_AUTHORITIES_H

#include <string>
#include <vector>

#include "platform/macos/cf_owner.h"

namespace zelieml::tls
{

struct authorities {
    platform::cf_owner<CFMutableArrayRef> certificates;  // empty for those of the system
    std::vector<std::string>              subjects;      // DER
};

// trusted - the authorities of a file, or of the system when it is empty
//
// Throws a failure.
authorities trusted(std::string const& ca_file);

}  // namespace zelieml::tls

#endif
