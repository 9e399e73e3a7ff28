// interruptions.h - calls that a signal ends early, for functions that a test puts in front of the C
// library's

#ifndef ZELIEML_TESTS_SUPPORT_INTERRUPTIONS_H
#define ZELIEML_TESTS_SUPPORT_INTERRUPTIONS_H

#include <cerrno>

namespace zelieml::test
{

inline int interruptions = 0;  // so many calls are still to end with EINTR

// Whether this call ends so. Sets errno then.
inline bool interrupted()
{
    if (interruptions == 0) {
        return false;
    }
    --interruptions;
    errno = EINTR;
    return true;
}

}  // namespace zelieml::test

#endif
