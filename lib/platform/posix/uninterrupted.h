// uninterrupted.h - calls of the system that a signal does not end

#ifndef ZELIEML_PLATFORM_POSIX_UNINTERRUPTED_H
#define ZELIEML_PLATFORM_POSIX_UNINTERRUPTED_H

#include <cerrno>

namespace zelieml::platform
{

// uninterrupted - make a call again while it fails because of a signal
//
// A host may handle signals without SA_RESTART, a timer for instance.
//
// Returns what the last call returned, with errno.
template <class Call>
auto uninterrupted(Call&& call)
{
    for (;;) {
        auto const result = call();
        if (result >= 0 || errno != EINTR) {
            return result;
        }
    }
}

}  // namespace zelieml::platform

#endif
