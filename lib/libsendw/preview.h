// preview.h - a mail as a send would say it, without a server

#ifndef ZELIEML_LIBSENDW_PREVIEW_H
#define ZELIEML_LIBSENDW_PREVIEW_H

#include "zelieml_ext.h"

namespace zelieml
{

using preview_proc = void (*)(eml_preview const* shown_mail, void* user);

// preview - eml_msg_preview with the path of the settings file
//
// Returns 0, or -1. Throws std::bad_alloc when there is no memory.
int preview(char const* conf_fullpath, void* msg, preview_proc proc, void* user);

}  // namespace zelieml

#endif
