// probe.h - a send without a mail, step by step
//
// Talks to the servers that the settings name as isendw::send does, with the same functions, and
// reports each step. What a send does not do (RSET, and EHLO without a login) is never a failure.

#ifndef ZELIEML_LIBSENDW_PROBE_H
#define ZELIEML_LIBSENDW_PROBE_H

#include "zelieml_ext.h"

namespace zelieml
{

// probe - eml_probe with the path of the settings file
//
// Leaves no connection open, also when it throws. In a child that proc forks it ends as soon as
// proc returns, and leaves the conversation to the parent.
//
// Returns 0, or -1. Throws std::bad_alloc when there is no memory.
int probe(char const* conf_fullpath, char const* sender, char const* recipient,
          void (*proc)(eml_probe_step const* step, void* user), void* user);

}  // namespace zelieml

#endif
