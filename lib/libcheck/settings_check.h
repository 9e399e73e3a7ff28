// settings_check.h - what would go wrong with a settings file

#ifndef ZELIEML_LIBCHECK_SETTINGS_CHECK_H
#define ZELIEML_LIBCHECK_SETTINGS_CHECK_H

#include "libcheck/findings.h"

namespace zelieml
{

// settings_check - look for what eml_settings_check finds
//
// What a line says is read as conf_get_string reads it. A finding quotes nothing from the file,
// where a password may be anywhere, and its field is one of the keys that the library uses.
//
// Returns the worst severity, or -1 when path or proc is null.
int settings_check(char const* path, finding_proc proc, void* user);

}  // namespace zelieml

#endif
