// scripts.h - what makes a shell complete the program's command line

#ifndef ZELIEML_TOOLS_ZELIEML_COMPLETION_SCRIPTS_H
#define ZELIEML_TOOLS_ZELIEML_COMPLETION_SCRIPTS_H

#include <string>

#include "tools/zelieml/completion/command_tree.h"

namespace zelieml::program::completion
{

std::string for_bash(command const& program);
std::string for_zsh(command const& program);
std::string for_fish(command const& program);

}  // namespace zelieml::program::completion

#endif
