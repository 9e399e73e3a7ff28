// resolver.cpp - gethostbyname, whose result is per thread on this system

#include "platform/resolver.h"

#include "platform/first_address.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

bool resolve_ipv4(char const* name, std::uint32_t& address)
{
    no_cancellation const shielded;
    return first_address(::gethostbyname(name), address);
}

}  // namespace zelieml::platform
