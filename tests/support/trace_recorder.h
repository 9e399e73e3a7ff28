// trace_recorder.h - what the library traced
//
// trace_recorder.cpp replaces the library's empty hook and keeps every trace.

#ifndef ZELIEML_TESTS_SUPPORT_TRACE_RECORDER_H
#define ZELIEML_TESTS_SUPPORT_TRACE_RECORDER_H

#include <string>
#include <vector>

namespace zelieml::test
{

// Forgets all traces.
void clear_traces();

// All traces since the last clear_traces, in order, of all threads.
std::vector<std::string> traces();

// Those of traces() that report a failure or a tolerated condition: they begin with "error",
// "errro" or "warning".
std::vector<std::string> trouble_traces();

// Those of traces() that the socket functions do not give on every good way: how many there are of
// those depends on the pieces in which bytes arrive.
std::vector<std::string> traces_above_sockets();

}  // namespace zelieml::test

#endif
