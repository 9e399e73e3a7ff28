// open_hook.h - a moment around an open
//
// open_hook.cpp stands in front of the open of the library and of the test: a program that uses it
// is linked with LINKER:--wrap=open,--wrap=open64. So another user's exchange of a file falls into
// the moment that it needs.

#ifndef ZELIEML_TESTS_SUPPORT_OPEN_HOOK_H
#define ZELIEML_TESTS_SUPPORT_OPEN_HOOK_H

#include <functional>
#include <string>

namespace zelieml::test
{

// Runs the action once, right before or after the next open of a path that ends with this.
void before_open(std::string const& end, std::function<void(std::string const& path)> action);
void after_open(std::string const& end, std::function<void(std::string const& path)> action);

// Whether the action of the last before_open or after_open has run.
bool met_open();

}  // namespace zelieml::test

#endif
