// completion.cpp - zelieml completion: the scripts that complete the program's command line

#include <memory>
#include <string>
#include <sysexits.h>

#include "tools/zelieml/command.h"
#include "tools/zelieml/completion/command_tree.h"
#include "tools/zelieml/completion/scripts.h"
#include "tools/zelieml/output.h"

namespace zelieml::program
{

namespace
{

int write_script(CLI::App const& app, std::string const& shell)
{
    completion::command const program = completion::command_tree(app);
    std::string               script  = shell == "bash"  ? completion::for_bash(program)
                                        : shell == "zsh" ? completion::for_zsh(program)
                                                         : completion::for_fish(program);
    script.pop_back();  // print_line adds a line end
    print_line(script);
    return EX_OK;
}

}  // namespace

void add_completion(command_line& line)
{
    auto const shell = std::make_shared<std::string>();
    CLI::App&  command =
        line.add(line.app(), "completion", "Print the script with which a shell completes zelieml",
                 "  zelieml completion bash > ~/.local/share/bash-completion/completions/zelieml",
                 [&line, shell] { return write_script(line.app(), *shell); });
    command.group("");  // who installs the program gets the scripts as well
    command.add_option("SHELL", *shell, "The shell")
        ->type_name("bash|zsh|fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""));
}

}  // namespace zelieml::program
