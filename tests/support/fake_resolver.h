// fake_resolver.h - names that a test made up
//
// fake_resolver.cpp replaces the system's resolver: no query leaves the machine.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_RESOLVER_H
#define ZELIEML_TESTS_SUPPORT_FAKE_RESOLVER_H

#include <string>
#include <vector>

namespace zelieml::test
{

// A dotted IPv4 string is its own address, as it is to the system's resolver; only 255.255.255.255 is
// a name like any other here. "*" stands for every name without an entry of its own.
void add_host(std::string const& name, std::string const& dotted_address);

// No name resolves, and the list of questions is empty.
void clear_hosts();

// The names that were looked up, in order.
std::vector<std::string> looked_up_names();

}  // namespace zelieml::test

#endif
