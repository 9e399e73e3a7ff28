// resolver.h - the first IPv4 address of a host name
//
// lib/platform/macos/resolver.cpp: gethostbyname, whose result is per thread on that system.
// lib/platform/linux/resolver.cpp: gethostbyname_r.
//
// Alone in its object, so that a test can replace it and ask no name server.

#ifndef ZELIEML_PLATFORM_RESOLVER_H
#define ZELIEML_PLATFORM_RESOLVER_H

#include <cstdint>

namespace zelieml::platform
{

// resolve_ipv4 - look a host name up with the system's resolver
//
// name     host name; a dotted IPv4 address is returned as it is
// address  receives the first IPv4 address in network byte order; untouched on failure
//
// Returns false when the name has no IPv4 address. Takes as long as the system's resolver takes.
// Any thread.
bool resolve_ipv4(char const* name, std::uint32_t& address);

}  // namespace zelieml::platform

#endif
