// trace.h - the trace hook
//
// Every unit hands its decision and error points to trace_msg as fixed texts. Many texts are
// printf formats whose placeholders are never filled: they mark code paths, they are not output.

#ifndef ZELIEML_LIBLOG_TRACE_H
#define ZELIEML_LIBLOG_TRACE_H

namespace zelieml
{

// trace_msg - does nothing with the text, which may be null
//
// Alone in its object, so that the tests can record the texts instead. Any thread.
void trace_msg(char const* text);

}  // namespace zelieml

#endif
