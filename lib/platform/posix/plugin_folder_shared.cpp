// plugin_folder_shared.cpp - the folder of the shared library
//
// Linked into the shared library only, where it comes before plugin_folder_static.cpp.

#include "platform/plugin.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>

namespace zelieml::platform
{

// Not from a relative path: the program may be in another directory by now than when it was loaded.
// The file's folder, not that of a link to it.
std::string plugin_folder()
{
    Dl_info here = {};
    if (::dladdr(reinterpret_cast<void const*>(&plugin_folder), &here) == 0 ||
        here.dli_fname == nullptr || here.dli_fname[0] != '/') {
        return "";
    }
    char        file[PATH_MAX];
    std::string path = ::realpath(here.dli_fname, file) != nullptr ? file : here.dli_fname;
    path.resize(path.rfind('/'));
    return path;
}

}  // namespace zelieml::platform
