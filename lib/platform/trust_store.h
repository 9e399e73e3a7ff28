// trust_store.h - the certificate authorities that the system trusts
//
// lib/platform/linux/trust_store.cpp, lib/platform/macos/trust_store.cpp.

#ifndef ZELIEML_PLATFORM_TRUST_STORE_H
#define ZELIEML_PLATFORM_TRUST_STORE_H

namespace zelieml::platform
{

// trust_store_file - a file that is written whenever the authorities change, or null for none
//
// Only to be looked at: who needs the authorities asks the TLS library for those of the system.
char const* trust_store_file();

}  // namespace zelieml::platform

#endif
