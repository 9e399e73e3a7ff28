// in_child.h - a condition in a forked child

#ifndef ZELIEML_TESTS_MACOS_IN_CHILD_H
#define ZELIEML_TESTS_MACOS_IN_CHILD_H

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace zelieml::test
{

// Whether it is so in a forked child; one that hangs for a minute is ended.
inline bool in_child(std::function<bool()> const& is_so)
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(60);
        ::_exit(is_so() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace zelieml::test

#endif
