// file_time.h - when a file changed, to the nanosecond
//
// lib/platform/linux/file_time.cpp, lib/platform/macos/file_time.cpp: the members have two names.

#ifndef ZELIEML_PLATFORM_FILE_TIME_H
#define ZELIEML_PLATFORM_FILE_TIME_H

#include <ctime>
#include <sys/stat.h>

namespace zelieml::platform
{

// modified - when its bytes changed, or whenever somebody has said
timespec modified(struct stat const& file);

// changed - when anything of it changed, its name and its owner included
timespec changed(struct stat const& file);

}  // namespace zelieml::platform

#endif
