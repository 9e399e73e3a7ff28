// plugin_folder_static.cpp - the configured folder, for a program that has the library in it

#include "platform/plugin.h"

namespace zelieml::platform
{

std::string plugin_folder()
{
    return ZELIEML_PLUGIN_FOLDER;
}

}  // namespace zelieml::platform
