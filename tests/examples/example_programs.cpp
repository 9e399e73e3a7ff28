#include "tests/examples/example_programs.h"

#include <gtest/gtest.h>

namespace zelieml::test
{

namespace
{

// Shows the mails that come.
strings showing(strings const& arguments)
{
    strings all = {"--port", "0", "--show", "--envelope"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

}  // namespace

loopback::loopback(strings const& arguments) : loopback_program(showing(arguments)) {}

std::string loopback::smtp_port() const
{
    return std::to_string(port("smtp"));
}

outcome run(std::string const& example, strings arguments, std::string const& input)
{
    arguments.insert(arguments.begin(), example);
    program p(arguments);
    p.tell(input);
    int const status = p.wait();
    return {status, p.out(), p.err()};
}

void expect(outcome const& came, int status, std::string const& out, std::string const& err)
{
    EXPECT_EQ(came.status, status);
    EXPECT_EQ(came.out, out);
    EXPECT_EQ(came.err, err);
}

strings with_mail(strings arguments)
{
    arguments.insert(arguments.end(),
                     {"from=tim@a.test", "to=anna@b.test", "subject=paper", "replyto=box@a.test"});
    return arguments;
}

}  // namespace zelieml::test
