// resolver.h - from a host's name to its first IPv4 address
//
// lib/platform/macos/resolver.cpp: gethostbyname, whose result is per thread there.
// lib/platform/linux/resolver.cpp: gethostbyname_r.
// Alone in its object: the tests' own resolver asks no name server.

#ifndef ZELIEML_PLATFORM_RESOLVER_H
#define ZELIEML_PLATFORM_RESOLVER_H

#include <cstdint>

namespace zelieml::platform
{

// resolve_ipv4 - look a host name up with the system's resolver
//
// name     host name; a dotted IPv4 text is taken as the address
// address  receives the first IPv4 address in network byte order; untouched on failure
//
// Returns false when the name has no IPv4 address. Takes as long as the system's resolver does.
// Any thread.
bool resolve_ipv4(char const* name, std::uint32_t& address);

}  // namespace zelieml::platform

#endif
