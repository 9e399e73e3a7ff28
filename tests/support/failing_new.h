// failing_new.h - operator new without memory when a test says so
//
// fake_new.cpp replaces operator new of the whole program. Only the calling thread is affected:
// a server in the same process keeps its memory.

#ifndef ZELIEML_TESTS_SUPPORT_FAILING_NEW_H
#define ZELIEML_TESTS_SUPPORT_FAILING_NEW_H

#include <limits>

namespace zelieml::test
{

// While the object lives, the next good requests of this thread succeed and so many after them
// fail, all if not said otherwise: std::bad_alloc, or null from the forms that do not throw. One
// object at a time and thread.
class failing_new
{
public:
    explicit failing_new(int good, int bad = std::numeric_limits<int>::max());
    ~failing_new();
    failing_new(failing_new const&)            = delete;
    failing_new& operator=(failing_new const&) = delete;

    // Whether a request has failed.
    static bool refused();
};

}  // namespace zelieml::test

#endif
