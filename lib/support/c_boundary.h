// c_boundary.h - nothing is thrown across the C interface

#ifndef ZELIEML_SUPPORT_C_BOUNDARY_H
#define ZELIEML_SUPPORT_C_BOUNDARY_H

#include <exception>

namespace zelieml
{

// at_c_boundary - run the body of an exported function
//
// failure  what the function returns when something is thrown: its own failure value
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

}  // namespace zelieml

#endif
