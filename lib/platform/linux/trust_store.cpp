// trust_store.cpp - the bundle of update-ca-certificates or of update-ca-trust

#include "platform/trust_store.h"

#include <unistd.h>

namespace zelieml::platform
{

char const* trust_store_file()
{
    static constexpr char const* files[] = {"/etc/ssl/certs/ca-certificates.crt",
                                            "/etc/pki/tls/certs/ca-bundle.crt"};
    for (char const* const file : files) {
        if (::access(file, R_OK) == 0) {
            return file;
        }
    }
    return nullptr;
}

}  // namespace zelieml::platform
