// failure.h - why a command failed, and the exit status that says so

#ifndef ZELIEML_TOOLS_ZELIEML_FAILURE_H
#define ZELIEML_TOOLS_ZELIEML_FAILURE_H

#include <cstring>
#include <stdexcept>
#include <string>

namespace zelieml::program
{

class failure : public std::runtime_error
{
public:
    // status  of sysexits.h
    // text    names the thing, the fault and the remedy, without a full stop
    failure(int status, std::string const& text) : std::runtime_error(text), status_(status) {}

    // The fault is a number of errno.
    failure(int status, std::string const& thing, int error, std::string const& remedy)
        : failure(status, thing + ": " + std::strerror(error) + ": " + remedy)
    {
    }

    int status() const { return status_; }

private:
    int status_;
};

}  // namespace zelieml::program

#endif
