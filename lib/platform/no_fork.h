// no_fork.h - what no fork may come between
//
// lib/platform/linux/no_fork.cpp, lib/platform/macos/no_fork.cpp

#ifndef ZELIEML_PLATFORM_NO_FORK_H
#define ZELIEML_PLATFORM_NO_FORK_H

namespace zelieml::platform
{

// Held for the length of a scope around calls that take locks of other libraries. A forked child
// finds such a lock held for ever when a thread that it does not have was holding it. So a fork
// waits until no thread is in such a scope, but for one second at most: some calls take long and
// hold their locks for a moment only.
//
// On macOS nothing is waited for: a forked child makes no such calls there.
//
// Any threads, also several at a time, which must not be cancelled in the scope.
class no_fork
{
public:
    no_fork();
    ~no_fork();
    no_fork(no_fork const&)            = delete;
    no_fork& operator=(no_fork const&) = delete;
};

}  // namespace zelieml::platform

#endif
