// fake_plugin_folder.h - where plug-ins are loaded from
//
// fake_plugin_folder.cpp replaces the folder of libzelieml-tls by one of the test's.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_PLUGIN_FOLDER_H
#define ZELIEML_TESTS_SUPPORT_FAKE_PLUGIN_FOLDER_H

#include <string>

namespace zelieml::test
{

// Until then plug-ins are missing.
void set_plugin_folder(std::string const& path);

}  // namespace zelieml::test

#endif
