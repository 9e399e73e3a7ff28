// output.cpp - what the commands print

#include "tools/zelieml/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sysexits.h>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

namespace
{

bool is_control(char c)
{
    return (c >= 0 && c < ' ') || c == '\x7f';
}

}  // namespace

void print_line(std::string const& line)
{
    if (std::fputs((line + "\n").c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        throw failure(EX_CANTCREAT, "standard output", errno, "the rest was not printed");
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
