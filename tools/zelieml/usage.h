// usage.h - what is wrong with a command line

#ifndef ZELIEML_TOOLS_ZELIEML_USAGE_H
#define ZELIEML_TOOLS_ZELIEML_USAGE_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

using words = std::vector<std::string>;

// usage_failure - why the program's words were not understood
//
// program  after it has parsed them
// given    the words, without the program's name
//
// Where a password may have been meant, no word is repeated.
failure usage_failure(CLI::App const& program, words const& given, CLI::ParseError const& error);

// number_from - a check that takes whole numbers of this range, and does not repeat others
CLI::Validator number_from(long low, long high);

// not_empty - a check that takes any text
//
// remedy  what to do, such as "name a directory"
CLI::Validator not_empty(std::string const& remedy);

// is_group - whether it only has commands of its own
bool is_group(CLI::App const& app);

}  // namespace zelieml::program

#endif
