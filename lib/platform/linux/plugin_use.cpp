// plugin_use.cpp - plug-ins see to it that forked children can use them: see platform/no_fork.h

#include "platform/plugin.h"

namespace zelieml::platform
{

bool may_use_plugins()
{
    return true;
}

}  // namespace zelieml::platform
