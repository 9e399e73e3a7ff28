// faults.h - the two jobs: calls that fail, and processes that are killed

#ifndef ZELIEML_TESTS_FAULTS_FAULTS_H
#define ZELIEML_TESTS_FAULTS_FAULTS_H

#include <string>

namespace zelieml::test
{

// Plays every scenario once for each failure of each call that the library makes in it, and prints
// a table. Afterwards descriptors, threads and memory must be as before, and each mail where the
// documents say.
//
// name  of a scenario; empty: all
// what  a single failure, as a reproduction line has it; empty: all
//
// Returns an exit status.
int run_faults(std::string const& name, std::string const& what);

// The same for processes that are killed at each call that changes something.
int run_kills(std::string const& name, std::string const& what);

}  // namespace zelieml::test

#endif
