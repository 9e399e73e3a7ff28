// plugin_use.cpp - plug-ins use the frameworks
//
// A plug-in has variables of its own, which know nothing of what the library has used. So the
// library asks before it calls a plug-in, and from then on this is a process that has used the
// frameworks.

#include "platform/macos/first_process.h"
#include "platform/plugin.h"

namespace zelieml::platform
{

bool may_use_plugins()
{
    return !is_forked();
}

}  // namespace zelieml::platform
