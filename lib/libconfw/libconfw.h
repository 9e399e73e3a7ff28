// libconfw.h - the settings file as all other units use it
//
// Each call makes a lock of its own and holds it around the call, so two calls never keep each
// other out: deliberate, see docs/ODDITIES.md. What that means for readers and writers: see
// libconf.h. Any thread.

#ifndef ZELIEML_LIBCONFW_LIBCONFW_H
#define ZELIEML_LIBCONFW_LIBCONFW_H

#include "libconf/libconf.h"

namespace zelieml
{

// confw_get_string, confw_set_string - conf_get_string and conf_set_string, within a lock
//
// Same arguments and results; also -1, with nothing changed, when the lock cannot be made.
int confw_get_string(char const* key, char* val, unsigned int* len, char const* path);
int confw_set_string(char const* key, char const* val, char const* path);

// confw_read - conf_settings, read within a lock
//
// Without a lock there are no settings.
conf_settings confw_read(char const* path, std::initializer_list<char const*> keys);

// confw_get_string - conf_get_string, from settings that have been read
int confw_get_string(char const* key, char* val, unsigned int* len, conf_settings const& settings);

// get_basename - the part of a path after its last backslash, or all of it; the name of the lock
//
// "/" is not a separator here. Null gives null.
char const* get_basename(char const* path);

}  // namespace zelieml

#endif
