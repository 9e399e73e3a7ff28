// closed_standard.h - a daemon that has closed its descriptors 0 to 2

#ifndef ZELIEML_TESTS_SUPPORT_CLOSED_STANDARD_H
#define ZELIEML_TESTS_SUPPORT_CLOSED_STANDARD_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zelieml::test
{

// Calls use() in a forked child in which 0 to 2 are closed. Returns whether it returned true, and
// these numbers are still free.
template <class Use>
bool keeps_clear_of_standard(Use use)
{
    pid_t const child = ::fork();
    if (child == 0) {
        for (int fd = 0; fd <= 2; ++fd) {
            ::close(fd);
        }
        bool clear = use();
        for (int fd = 0; fd <= 2; ++fd) {
            clear = clear && ::fcntl(fd, F_GETFD) == -1;
        }
        ::_exit(clear ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace zelieml::test

#endif
