// trace.h - the trace hook
//
// Every unit calls trace_msg with a fixed string at its decisions and errors. Many of the strings
// are printf formats that are never filled in: they mark code paths and are not output.

#ifndef ZELIEML_LIBLOG_TRACE_H
#define ZELIEML_LIBLOG_TRACE_H

namespace zelieml
{

// trace_msg - do nothing; text may be null
//
// Alone in its object, so that a test can replace it and record the strings. Any thread.
void trace_msg(char const* text);

}  // namespace zelieml

#endif
