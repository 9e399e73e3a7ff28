// salvage.h - message files that lie in the work directory
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
// dir    path without a separator at its end
// files  full paths are appended; one that does not fit 254 bytes is left out
//
// Returns 0, also when the directory cannot be listed.
int get_salvage_files(char const* dir, std::vector<std::string>& files);

// salvage_queue - take up, or throw away, what lies in the engine's work directory
//
// salvage  true: queue every file that is not queued yet, as far as the queue's limit goes.
//          False: delete every file from the disk.
//
// Returns 0.
int salvage_queue(_s_iemlw* engine, bool salvage);

}  // namespace zelieml

#endif
