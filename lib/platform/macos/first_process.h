// first_process.h - the one process that may use the frameworks
//
// After fork() CoreFoundation asks for exec: its locks may be held by threads that the child does
// not have, and the system's own threads, which run the transforms, are not there. A child that is
// forked before the first use, as that of a host that becomes a daemon, is a process like any
// other. Not pthread_atfork: this system would call its handlers also when the library has been
// unloaded.

#ifndef ZELIEML_PLATFORM_MACOS_FIRST_PROCESS_H
#define ZELIEML_PLATFORM_MACOS_FIRST_PROCESS_H

#include <atomic>
#include <unistd.h>

namespace zelieml::platform
{

// The process that used the frameworks first; 0 before that.
inline std::atomic<pid_t> first_process{0};

// is_first_process - whether this process has used the frameworks, and no ancestor of it has
inline bool is_first_process()
{
    return first_process.load() == ::getpid();
}

// is_forked - whether this process may not use the frameworks, having been forked by one that did
//
// To be asked before they are used: the first process to ask is the one that may. Any thread.
inline bool is_forked()
{
    pid_t none = 0;
    first_process.compare_exchange_strong(none, ::getpid());
    return !is_first_process();
}

}  // namespace zelieml::platform

#endif
