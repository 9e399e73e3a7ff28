// output.cpp - what the commands print

#include "tools/zelieml/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sysexits.h>
#include <unistd.h>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

namespace
{

bool printed = false;

bool is_control(char c)
{
    return (c >= 0 && c < ' ') || c == '\x7f';
}

// A number of errno, or 0.
int error_of_output()
{
    int const flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    if (flags < 0) {
        return errno;
    }
    if ((flags & O_ACCMODE) == O_RDONLY) {
        return EBADF;
    }
    pollfd reader = {STDOUT_FILENO, POLLOUT, 0};
    if (::poll(&reader, 1, 0) == 1 && (reader.revents & (POLLERR | POLLHUP)) != 0) {
        return EPIPE;
    }
    // A device that is full says so even then.
    return ::write(STDOUT_FILENO, "", 0) < 0 ? errno : 0;
}

}  // namespace

void print_line(std::string const& line)
{
    printed = true;
    if (std::fputs((line + "\n").c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        throw failure(EX_CANTCREAT, "standard output", errno, "the rest was not printed");
    }
}

bool has_printed()
{
    return printed;
}

void need_output()
{
    int const error = error_of_output();
    if (error != 0) {
        throw failure(EX_CANTCREAT, "standard output", error,
                      "nothing was done, since nothing could be printed");
    }
}

std::string json_text(json const& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void print_json(json const& value)
{
    print_line(json_text(value));
}

std::string printable(std::string const& text)
{
    std::string shown = text;
    std::replace_if(shown.begin(), shown.end(), is_control, '?');
    return shown;
}

}  // namespace zelieml::program
