// service_output.cpp - what a service prints

#include "tools/zelieml/service_output.h"

#include <cstring>
#include <exception>
#include <unistd.h>

#include "tools/zelieml/locale_text.h"

namespace zelieml::program
{

namespace
{

std::string const no_memory = "zelieml: there is not enough memory";

void complain_on(line_writer& err, std::string const& text) noexcept
{
    try {
        err.add("zelieml: " + to_terminal(text));
    } catch (std::exception const&) {
        err.add(no_memory);
    }
}

}  // namespace

service_output::service_output()
    : err_(std::make_shared<line_writer>(STDERR_FILENO, nullptr)),
      out_(STDOUT_FILENO, [err = err_](int error, std::size_t dropped) {
          complain_on(*err, error != 0 ? std::string("standard output: ") + std::strerror(error) +
                                             ": attempts are not reported"
                                       : std::to_string(dropped) +
                                             " attempts are not reported: nobody reads standard "
                                             "output fast enough");
      })
{
}

void service_output::complain(std::string const& text) noexcept
{
    complain_on(*err_, text);
}

void service_output::finish() const
{
    auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    out_.finish(until);
    err_->finish(until);
}

}  // namespace zelieml::program
