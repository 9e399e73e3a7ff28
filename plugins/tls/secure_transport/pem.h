// pem.h - certificates in a text (RFC 7468)

#ifndef ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_PEM_H
#define ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_PEM_H

#include <string>
#include <vector>

namespace zelieml::tls
{

// certificates_in - the bytes of each certificate of a text
//
// What stands between certificates is passed over. One that is not complete has no bytes.
std::vector<std::string> certificates_in(std::string const& text);

}  // namespace zelieml::tls

#endif
