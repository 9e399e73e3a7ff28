#include "tests/examples/example_programs.h"

#include <gtest/gtest.h>

namespace zelieml::test
{

namespace
{

strings server_words(strings const& arguments)
{
    strings all = {LOOPBACK_PROGRAM, "--port", "0", "--show", "--envelope"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

}  // namespace

loopback::loopback(strings const& arguments) : program(server_words(arguments))
{
    wait_for("pop3 127.0.0.1:");
}

std::string loopback::smtp_port() const
{
    std::string const start = "smtp 127.0.0.1:";
    std::string const text  = out();
    std::size_t const begin = text.find(start) + start.size();
    return text.substr(begin, text.find('\n', begin) - begin);
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
