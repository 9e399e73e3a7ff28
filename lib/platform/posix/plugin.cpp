// plugin.cpp - dlopen

#include "platform/plugin.h"

#include <dlfcn.h>

#include "platform/no_fork.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

void* load_function(char const* name, char const* function, std::string& error)
{
    no_cancellation const shielded;
    if (!may_use_plugins()) {
        error = "a forked child has to call exec first";
        return nullptr;
    }
    std::string path = plugin_folder();
    if (path.empty()) {
        error = "the library was loaded by a relative path: use a full one";
        return nullptr;
    }
    // Never unloaded: a thread of its own may be on its last steps when a session is over.
    path += "/lib";
    path += name;
    path += ZELIEML_PLUGIN_SUFFIX;
    void* found = nullptr;
    {
        no_fork const waits;  // the child would have half of what is loaded
        void* const   library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        found                 = library != nullptr ? ::dlsym(library, function) : nullptr;
    }
    // A fork that waited for this knows nothing of the plug-in's own handlers. It is over now.
    no_fork const is_over;
    if (found == nullptr) {
        char const* const why = ::dlerror();
        path += " cannot be loaded";
        error = why != nullptr ? why : path.c_str();
    }
    return found;
}

}  // namespace zelieml::platform
