// fake_plugin_folder.cpp - replaces platform/posix/plugin_folder_static.cpp

#include "tests/support/fake_plugin_folder.h"

#include "platform/plugin.h"

namespace
{

std::string& folder()
{
    static std::string one = "/nonexistent";
    return one;
}

}  // namespace

std::string zelieml::platform::plugin_folder()
{
    return folder();
}

void zelieml::test::set_plugin_folder(std::string const& path)
{
    folder() = path;
}
