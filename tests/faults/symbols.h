// symbols.h - whether every call that the library makes is known here

#ifndef ZELIEML_TESTS_FAULTS_SYMBOLS_H
#define ZELIEML_TESTS_FAULTS_SYMBOLS_H

#include <string>
#include <vector>

namespace zelieml::test
{

// The functions that the shared library takes from the C library, and that are neither counted nor
// known not to fail.
std::vector<std::string> unknown_calls();

}  // namespace zelieml::test

#endif
