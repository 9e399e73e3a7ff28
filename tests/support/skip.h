// skip.h - tests that cannot run where they are
//
// They say so and why, in the words that tools/skips.py knows: "needs root: ..." when root could
// run the test, "not here: ..." when this system or build cannot.

#ifndef ZELIEML_TESTS_SUPPORT_SKIP_H
#define ZELIEML_TESTS_SUPPORT_SKIP_H

#include <string>
#include <unistd.h>

namespace zelieml::test
{

// Whether the library is built on the back end of this name: linux, macos, macos-fake.
bool has_backend(std::string const& name);

// Whether all code is built with this sanitizer.
bool has_sanitizer(std::string const& name);

}  // namespace zelieml::test

// At the beginning of a test: each ends it unless its condition holds.
#define SKIP_UNLESS_ROOT(why)                                                                      \
    do {                                                                                           \
        if (::geteuid() != 0) {                                                                    \
            GTEST_SKIP() << "needs root: " << (why);                                               \
        }                                                                                          \
    } while (false)

#define SKIP_UNLESS(condition, why)                                                                \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            GTEST_SKIP() << "not here: " << (why);                                                 \
        }                                                                                          \
    } while (false)

#endif
