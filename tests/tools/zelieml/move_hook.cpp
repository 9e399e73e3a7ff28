// move_hook.cpp - what happens when the program moves a message away that failed twice
//
//     ZELIEML_TEST_KILL=before, after   it is killed, before or after the file is moved
//     ZELIEML_TEST_FULL=PATH            the disk is full while there is this file

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <unistd.h>

extern "C" int __real_renameat(int from, char const* old_name, int to, char const* new_name);
extern "C" int __wrap_renameat(int from, char const* old_name, int to, char const* new_name);

namespace
{

std::string variable(char const* name)
{
    char const* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

int __wrap_renameat(int from, char const* old_name, int to, char const* new_name)
{
    if (old_name[0] != '/') {
        return __real_renameat(from, old_name, to, new_name);  // a reason's
    }
    std::string const full = variable("ZELIEML_TEST_FULL");
    if (!full.empty() && ::access(full.c_str(), F_OK) == 0) {
        errno = ENOSPC;
        return -1;
    }
    std::string const kill = variable("ZELIEML_TEST_KILL");
    if (kill == "before") {
        ::raise(SIGKILL);
    }
    int const result = __real_renameat(from, old_name, to, new_name);
    if (kill == "after") {
        ::raise(SIGKILL);
    }
    return result;
}
