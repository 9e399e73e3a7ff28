// move_hook.cpp - what happens when the program moves a message
//
//     ZELIEML_TEST_MOVE=TEXT            the moves that are meant: "OLD-NAME NEW-NAME" contains it
//     ZELIEML_TEST_KILL=before, after   the program is killed, before or after the file is moved
//     ZELIEML_TEST_FULL=PATH            the disk is full while there is this file
//     ZELIEML_TEST_MADE=PATH            this file is made after the move

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
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
    std::string const meant = variable("ZELIEML_TEST_MOVE");
    std::string const names = std::string(old_name) + " " + new_name;
    if (meant.empty() || names.find(meant) == names.npos) {
        return __real_renameat(from, old_name, to, new_name);
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
    std::string const made = variable("ZELIEML_TEST_MADE");
    if (!made.empty()) {
        ::close(::open(made.c_str(), O_WRONLY | O_CREAT, 0600));
    }
    return result;
}
