// salvage.h - message files left in the work directory
//
// Runs on the worker thread.

#ifndef ZELIEML_LIBEMLW_SALVAGE_H
#define ZELIEML_LIBEMLW_SALVAGE_H

#include <string>
#include <vector>

#include "libemlw/engine_record.h"

namespace zelieml
{

// get_salvage_files - the message files of a directory
//
// dir    path without a trailing separator
// files  full paths are appended; one of more than 254 bytes is left out
//
// Returns 0, also when the directory cannot be listed.
int get_salvage_files(char const* dir, std::vector<std::string>& files);

// salvage_queue - queue or delete the message files in the engine's work directory
//
// salvage  true: queue every file that is not queued yet, up to the queue's limit; but not one that
//          is being written or sent: one that is locked, for an hour after its last change, or
//          empty, for a minute. False: delete every file.
//
// Returns 0.
int salvage_queue(_s_iemlw* engine, bool salvage);

}  // namespace zelieml

#endif
