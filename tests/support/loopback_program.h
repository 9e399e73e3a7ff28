// loopback_program.h - the loopback mail server, running as a program
//
// LOOPBACK_PROGRAM is its path.

#ifndef ZELIEML_TESTS_SUPPORT_LOOPBACK_PROGRAM_H
#define ZELIEML_TESTS_SUPPORT_LOOPBACK_PROGRAM_H

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/program.h"

namespace zelieml::test
{

class loopback_program : public program
{
public:
    explicit loopback_program(std::vector<std::string> const& arguments)
        : program(command(arguments))
    {
    }

    // The port in the line that begins so; waits for both lines.
    std::uint16_t port(std::string const& protocol) const
    {
        wait_for("\n", 2);
        std::string const all   = out();
        std::string const start = protocol + " 127.0.0.1:";
        std::size_t const found = all.find(start);
        EXPECT_NE(found, all.npos) << all;
        return found == all.npos
                   ? std::uint16_t{0}
                   : static_cast<std::uint16_t>(std::atoi(all.c_str() + found + start.size()));
    }

private:
    static std::vector<std::string> command(std::vector<std::string> const& arguments)
    {
        std::vector<std::string> words = {LOOPBACK_PROGRAM};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return words;
    }
};

}  // namespace zelieml::test

#endif
