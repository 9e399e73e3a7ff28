// zelieml_program.h - the program zelieml, run by a test
//
// ZELIEML_PROGRAM is its path.

#ifndef ZELIEML_TESTS_TOOLS_ZELIEML_ZELIEML_PROGRAM_H
#define ZELIEML_TESTS_TOOLS_ZELIEML_ZELIEML_PROGRAM_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/program.h"

namespace zelieml::test
{

// The program resolves links in the path of a work directory, and names it so. On macOS the place for
// temporary files has some.
inline bool const has_resolved_temp = [] {
    std::string const place = std::filesystem::canonical(std::filesystem::temp_directory_path());
    return ::setenv("TMPDIR", place.c_str(), 1) == 0;
}();

// What became of a run of the program.
struct outcome {
    int         status;  // the exit status, or minus the signal that ended it
    std::string out;
    std::string err;
};

// The program's words: itself, then these.
inline std::vector<std::string> zelieml_command(std::vector<std::string> const& arguments)
{
    std::vector<std::string> words = {ZELIEML_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

// Runs it with this standard input to its end.
inline outcome run_zelieml(std::vector<std::string> const& arguments, std::string const& input = "")
{
    program run(zelieml_command(arguments));
    run.tell(input);
    int const status = run.wait();
    return {status, run.out(), run.err()};
}

}  // namespace zelieml::test

#endif
