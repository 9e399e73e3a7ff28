// refuse_descriptors.h - a socket that takes no descriptors beside its datagrams

#ifndef ZELIEML_PLATFORM_LINUX_REFUSE_DESCRIPTORS_H
#define ZELIEML_PLATFORM_LINUX_REFUSE_DESCRIPTORS_H

#include <sys/socket.h>

namespace zelieml::platform
{

// refuse_descriptors - have the system refuse them on behalf of a local socket
//
// Returns false where it cannot: it can since Linux 6.16.
inline bool refuse_descriptors(int socket)
{
#if defined(SO_PASSRIGHTS)
    constexpr int accept = SO_PASSRIGHTS;
#elif SO_BUSY_POLL == 46  // an older header, of a processor with the usual numbers
    constexpr int accept = 83;
#else
    constexpr int accept = -1;  // which no system knows
#endif
    int const off = 0;
    return ::setsockopt(socket, SOL_SOCKET, accept, &off, sizeof off) == 0;
}

}  // namespace zelieml::platform

#endif
