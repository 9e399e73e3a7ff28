// liblog.cpp - lines with a time stamp, one file for each month

#include "liblog/liblog.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <ios>

#include "libtimew/libtimew.h"
#include "support/no_cancellation.h"

namespace zelieml
{

namespace
{

constexpr std::size_t buffer_size = 1024;

void append_line(char const* dir, char const* message)
{
    std::string const path = get_filepath(dir);
    std::string       line = itimew().get_log_time() + "," + message;
    // Leaves room for the LF.
    line.resize(std::min(line.size(), buffer_size - 2));
    line += '\n';

    std::ofstream out(path, std::ios::out | std::ios::app);
    if (out) {
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
}

}  // namespace

void liblog(char const* dir, char const* format, ...)
{
    if (dir == nullptr || format == nullptr) {
        return;
    }
    char         message[buffer_size] = "";
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);

    no_cancellation const shielded;
    try {
        append_line(dir, message);
    } catch (std::exception const&) {
        // no memory: no line
    }
}

std::string get_filepath(char const* dir)
{
    // The backslash is deliberate, see docs/ODDITIES.md.
    return std::string(dir) + "\\" + itimew().get_logfile_date() + ".log";
}

}  // namespace zelieml
