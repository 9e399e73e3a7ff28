// plugin_use.cpp - plug-ins use nothing that a forked child must not use

#include "platform/plugin.h"

namespace zelieml::platform
{

bool may_use_plugins()
{
    return true;
}

}  // namespace zelieml::platform
