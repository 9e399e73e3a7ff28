// example_programs.h - the examples as a test runs them, and the mail server they talk to

#ifndef ZELIEML_TESTS_EXAMPLES_EXAMPLE_PROGRAMS_H
#define ZELIEML_TESTS_EXAMPLES_EXAMPLE_PROGRAMS_H

#include <string>

#include "tests/support/loopback_program.h"
#include "tests/support/program.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

// The loopback mail server, which shows the mails that come.
class loopback : public loopback_program
{
public:
    explicit loopback(strings const& arguments = {});

    std::string smtp_port() const;
};

struct outcome {
    int         status;
    std::string out;
    std::string err;
};

// Runs an example with this input to its end.
outcome run(std::string const& example, strings arguments, std::string const& input = "");

// Compares; a difference fails the running test.
void expect(outcome const& came, int status, std::string const& out, std::string const& err = "");

// The arguments, and behind them the fields of a mail from tim@a.test to anna@b.test.
strings with_mail(strings arguments);

}  // namespace zelieml::test

#endif
