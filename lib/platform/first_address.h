// first_address.h - the address in a resolver's answer, for both systems

#ifndef ZELIEML_PLATFORM_FIRST_ADDRESS_H
#define ZELIEML_PLATFORM_FIRST_ADDRESS_H

#include <cstdint>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace zelieml::platform
{

// first_address - the first address of an answer, if it is an IPv4 address
//
// entry    the answer; null for none
// address  receives the address in network byte order; otherwise untouched
//
// Returns whether there is one.
inline bool first_address(hostent const* entry, std::uint32_t& address)
{
    if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_length != sizeof address ||
        entry->h_addr_list[0] == nullptr) {
        return false;
    }
    std::memcpy(&address, entry->h_addr_list[0], sizeof address);
    return true;
}

}  // namespace zelieml::platform

#endif
