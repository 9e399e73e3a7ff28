// liblog.h - the log file: a line with a time stamp, a file for each month
//
// Not to be mixed up with the trace hook (trace.h), which writes nothing. Any thread; lines of
// several threads or processes stay whole as far as the system appends small writes in one piece.

#ifndef ZELIEML_LIBLOG_LIBLOG_H
#define ZELIEML_LIBLOG_LIBLOG_H

#include <string>

namespace zelieml
{

// liblog - append "<time>,<message>" and a LF to this month's log file
//
// dir     directory, see get_filepath
// format  printf format of the message, with its arguments. The message is cut at 1023 characters,
//         and once more so that the line, its LF included, has no more than 1023.
//
// Says nothing of a failure: then there is no line. The file is opened and closed for each line,
// made when there is none, never rewritten.
__attribute__((format(printf, 2, 3))) void liblog(char const* dir, char const* format, ...);

// get_filepath - the path of this month's log file: dir, a backslash, year and month, ".log"
//
// The backslash is no separator: the file of the directory "/tmp/q" is "q\202611.log" in "/tmp".
std::string get_filepath(char const* dir);

}  // namespace zelieml

#endif
