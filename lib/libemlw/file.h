// file.h - the files of a work directory: its settings, and finding its message files

#ifndef ZELIEML_LIBEMLW_FILE_H
#define ZELIEML_LIBEMLW_FILE_H

#include <cstddef>
#include <string>

#include "platform/directory.h"

namespace zelieml
{

// Bytes of a new message file's full path, the NUL included.
constexpr std::size_t fullpath_size = 255;

// conf_fullpath - the path of a work directory's settings file
std::string conf_fullpath(std::string const& workdir);

// FindSMEFiles - list the message files of a directory
//
// directory  path without a separator at its end
//
// Every entry whose name contains ".sme" anywhere counts, for example "a.sme.tmp". A path of more
// than 255 bytes is left out.
//
// Returns their full paths, owned by the thread's innermost release_pool, or null when the
// directory cannot be listed or holds no message file. Any thread.
platform::text_array const* FindSMEFiles(char const* directory);

}  // namespace zelieml

#endif
