// host.h - the process of the main engine

#ifndef ZELIEML_TESTS_SOAK_HOST_H
#define ZELIEML_TESTS_SOAK_HOST_H

#include "tests/soak/site.h"

namespace zelieml::test
{

// Until the load is over.
void run_host(site const& where);

}  // namespace zelieml::test

#endif
