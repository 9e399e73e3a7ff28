// first_process.h - the one process that may use the frameworks
//
// Whatever uses them asks is_forked() before it does anything else with them.
//
// CoreFoundation must not be used between fork and exec: its locks may be held by threads that the
// child does not have, and the system's threads that run the transforms are missing. A child that
// is forked before the first use, such as a host that becomes a daemon, is a process like any
// other, unless its parent had other threads or used the frameworks without the library, of which
// the library learns nothing. pthread_atfork is not needed: the process id tells a child, and no
// handler of the library runs in the forks of its host.

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
// The first process that calls it is the one that may. Any thread.
inline bool is_forked()
{
    pid_t none = 0;
    first_process.compare_exchange_strong(none, ::getpid());
    return !is_first_process();
}

}  // namespace zelieml::platform

#endif
