// trace.cpp - the trace hook, empty in the shipped library

#include "liblog/trace.h"

namespace zelieml
{

void trace_msg(char const* /*text*/) {}

}  // namespace zelieml
