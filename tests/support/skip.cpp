#include "tests/support/skip.h"

namespace zelieml::test
{

bool has_backend(std::string const& name)
{
    return name == ZELIEML_TEST_BACKEND;
}

bool has_sanitizer(std::string const& name)
{
    return std::string(ZELIEML_TEST_SANITIZERS).find(name) != std::string::npos;
}

}  // namespace zelieml::test
