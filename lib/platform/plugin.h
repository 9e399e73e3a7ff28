// plugin.h - shared libraries that are loaded only when they are needed
//
// lib/platform/posix/plugin.cpp, the same on both systems, but for may_use_plugins, which is in
// lib/platform/linux/plugin_use.cpp and lib/platform/macos/plugin_use.cpp. plugin_folder is alone
// in its object, so that a test can replace it.

#ifndef ZELIEML_PLATFORM_PLUGIN_H
#define ZELIEML_PLATFORM_PLUGIN_H

#include <string>

namespace zelieml::platform
{

// plugin_folder - the folder that the plug-ins are in
//
// For the shared library its own folder (plugin_folder_shared.cpp); for a program that the library
// is linked into statically the one that was configured (plugin_folder_static.cpp): whoever may
// write beside the program need not be allowed to add code to it.
//
// Returns an absolute path, or an empty string when the folder is not known.
std::string plugin_folder();

// may_use_plugins - whether this process may, now and later
//
// Not so on macOS in a forked child of a process that has used the system's frameworks.
bool may_use_plugins();

// load_function - a function of a plug-in, which is loaded for that and stays loaded
//
// name      of the plug-in: "zelieml-tls" is the file libzelieml-tls.so.1 or libzelieml-tls.1.dylib
// function  a C function that it exports
// error     receives what failed, for a reason
//
// Returns the function, or null, also when plug-ins may not be used. Does not let the thread be
// cancelled.
void* load_function(char const* name, char const* function, std::string& error);

}  // namespace zelieml::platform

#endif
