// file_time.h - when a file changed, to the nanosecond
//
// linux/file_time.cpp, macos/file_time.cpp: the member has two names.

#ifndef ZELIEML_TOOLS_ZELIEML_FILE_TIME_H
#define ZELIEML_TOOLS_ZELIEML_FILE_TIME_H

#include <ctime>
#include <sys/stat.h>

namespace zelieml::program
{

// Of its bytes.
timespec modified(struct stat const& status);

// Of anything, its name and its owner included.
timespec changed(struct stat const& status);

}  // namespace zelieml::program

#endif
