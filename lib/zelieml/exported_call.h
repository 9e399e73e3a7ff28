// exported_call.h - what the body of every exported function runs in

#ifndef ZELIEML_ZELIEML_EXPORTED_CALL_H
#define ZELIEML_ZELIEML_EXPORTED_CALL_H

#include <optional>

#include "platform/cancellation.h"
#include "support/c_boundary.h"
#include "support/no_cancellation.h"

namespace zelieml
{

// exported_call - at_c_boundary, in a thread that can only be cancelled where its destructors run
//
// Where they do not, a request to cancel the thread waits for the end of the call.
template <class Result, class Body>
Result exported_call(Result failure, Body&& body)
{
    std::optional<no_cancellation> shield;
    if (!platform::cancellation_unwinds) {
        shield.emplace();
    }
    return at_c_boundary(failure, body);
}

}  // namespace zelieml

#endif
