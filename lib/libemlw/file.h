// file.h - finding the message files of a work directory

#ifndef ZELIEML_LIBEMLW_FILE_H
#define ZELIEML_LIBEMLW_FILE_H

#include "platform/directory.h"

namespace zelieml
{

// FindSMEFiles - list the message files of a directory
//
// directory  path without a separator at its end
//
// Every entry whose name contains ".sme" anywhere counts, "a.sme.tmp" for one. A path that does
// not fit 255 bytes is left out.
//
// Returns their full paths, owned by the thread's innermost release_pool, or null when the
// directory cannot be listed or holds no message file. Any thread.
platform::text_array const* FindSMEFiles(char const* directory);

}  // namespace zelieml

#endif
