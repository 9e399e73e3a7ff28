// quiet_descriptors.h - a count of descriptors that no engine disturbs

#ifndef ZELIEML_TESTS_API_QUIET_DESCRIPTORS_H
#define ZELIEML_TESTS_API_QUIET_DESCRIPTORS_H

#include <gtest/gtest.h>
#include <string>

#include "tests/support/files.h"
#include "zelieml.h"

namespace zelieml::test
{

// How many are open while no engine runs; what the first engine leaves for the next is counted.
inline int descriptors_without_an_engine(std::string const& workdir)
{
    void* eml = nullptr;
    EXPECT_EQ(eml_start(workdir.c_str(), &eml), 0);
    EXPECT_EQ(eml_stop(eml), 0);
    return open_descriptors();
}

}  // namespace zelieml::test

#endif
