// resolver.cpp - gethostbyname_r, with a buffer that grows until the answer fits
//
// No fork comes between: the C library's resolver has locks that it does not release in a forked
// child. While a look-up waits for a name server, it holds none of them.

#include "platform/resolver.h"

#include <cerrno>
#include <netdb.h>
#include <vector>

#include "platform/first_address.h"
#include "platform/no_fork.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

bool resolve_ipv4(char const* name, std::uint32_t& address)
{
    no_cancellation const shielded;
    no_fork const         waits;
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
