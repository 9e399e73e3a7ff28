// resolver.cpp - gethostbyname_r, with a buffer that grows until the answer fits

#include "platform/resolver.h"

#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <vector>

#include "support/no_cancellation.h"

namespace zelieml::platform
{

namespace
{

// Stores the first address of an answer, when it is an IPv4 one.
bool first_address(hostent const* entry, std::uint32_t& address)
{
    if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_length != sizeof address ||
        entry->h_addr_list[0] == nullptr) {
        return false;
    }
    std::memcpy(&address, entry->h_addr_list[0], sizeof address);
    return true;
}

}  // namespace

bool resolve_ipv4(char const* name, std::uint32_t& address)
{
    no_cancellation const shielded;
    hostent               storage = {};
    hostent*              entry   = nullptr;
    int                   error   = 0;

    char first_buffer[1024];
    int  status =
        ::gethostbyname_r(name, &storage, first_buffer, sizeof first_buffer, &entry, &error);
    std::vector<char> buffer;
    while (status == ERANGE) {
        buffer.resize(buffer.empty() ? 8192 : buffer.size() * 2);
        status = ::gethostbyname_r(name, &storage, buffer.data(), buffer.size(), &entry, &error);
    }
    return status == 0 && first_address(entry, address);
}

}  // namespace zelieml::platform
