// fake_hostname.h - a machine with the name that a test gives it
//
// fake_hostname.cpp defines the system's gethostname anew, for the whole program.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_HOSTNAME_H
#define ZELIEML_TESTS_SUPPORT_FAKE_HOSTNAME_H

#include <string>

namespace zelieml::test
{

void set_host_name(std::string const& name);

// From now on gethostname fails.
void lose_host_name();

}  // namespace zelieml::test

#endif
