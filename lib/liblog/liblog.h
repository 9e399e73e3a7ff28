// liblog.h - the log: lines with a time stamp, one file for each month
//
// Not the trace hook (trace.h), which writes nothing. Any thread; lines of several threads or
// processes stay whole where the system appends small writes in one piece.

#ifndef ZELIEML_LIBLOG_LIBLOG_H
#define ZELIEML_LIBLOG_LIBLOG_H

#include <string>

namespace zelieml
{

// liblog - append "<time>,<message>" and an LF to this month's log file
//
// dir     directory, see get_filepath
// format  printf format of the message, and its arguments. The message is truncated to 1023
//         characters, and then so that the line, its LF included, has at most 1023.
//
// A failure is not reported; then there is no line. The file is opened and closed for each line,
// created when there is none, and never rewritten.
__attribute__((format(printf, 2, 3))) void liblog(char const* dir, char const* format, ...);

// get_filepath - the path of this month's log file: dir, a backslash, year and month, ".log"
//
// The backslash is not a separator: the log of the directory "/tmp/q" is the file "q\202611.log" in
// "/tmp". Deliberate, see docs/ODDITIES.md.
std::string get_filepath(char const* dir);

}  // namespace zelieml

#endif
