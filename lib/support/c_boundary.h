// c_boundary.h - where exceptions end: at the C interface, and in the steps of library threads

#ifndef ZELIEML_SUPPORT_C_BOUNDARY_H
#define ZELIEML_SUPPORT_C_BOUNDARY_H

#include <exception>

namespace zelieml
{

// at_c_boundary - run the body of an exported function, or of another one that must not throw and
// has a failure value
//
// failure  what the function returns when body throws: its own failure value
// body     callable without arguments
//
// Returns what body returns, or failure when it throws: lack of memory ends there like any other
// failure. The unwinding of a cancelled thread is not an exception and goes on.
template <class Result, class Body>
Result at_c_boundary(Result failure, Body&& body)
{
    try {
        return body();
    } catch (...) {
        if (std::current_exception() == nullptr) {
            throw;  // a cancelled thread, not an exception
        }
        return failure;
    }
}

// contained - run a step whose failure nobody is told of
//
// step  callable without arguments; what it returns or throws is dropped
//
// For the steps of the library's own threads, for users' callbacks, and for cleaning up: what
// follows the step is done in any case. Here too the unwinding of a cancelled thread goes on.
template <class Step>
void contained(Step&& step)
{
    at_c_boundary(0, [&] {
        step();
        return 0;
    });
}

}  // namespace zelieml

#endif
