// zsh.cpp - completion in zsh

#include <cstddef>
#include <string>

#include "tools/zelieml/completion/command_tree.h"
#include "tools/zelieml/completion/scripts.h"

namespace zelieml::program::completion
{

namespace
{

std::string quoted(std::string const& text)
{
    return "'" + replaced(text, "'", "'\\''") + "'";
}

// A description, where signs of the syntax are escaped.
std::string escaped(std::string text)
{
    for (char const* const sign : {"\\", "[", "]", ":"}) {
        text = replaced(text, sign, std::string("\\") + sign);
    }
    return text;
}

// ":NAME:ACTION"
std::string value_text(value const& from)
{
    std::string name = ":" + escaped(from.name) + ":";
    switch (from.what) {
    case kind::directory:
        return name + "_directories";
    case kind::file:
        return name + "_files";
    case kind::message:
        return name + "_zelieml_messages";
    case kind::words:
        return name + "(" + joined(from.words, " ") + ")";
    case kind::words_of_key:
        return name + "_zelieml_values";
    case kind::none:
        break;
    }
    return name;
}

std::string option_text(option const& from)
{
    strings forms;
    for (std::string const& name : from.names) {
        forms.push_back(name + (!from.has_value ? "" : name.compare(0, 2, "--") == 0 ? "=" : "+"));
    }
    std::string const rest = quoted("[" + escaped(from.description) + "]" +
                                    (from.has_value ? value_text(from.takes) : ""));
    std::string const once = from.repeats ? "'*'" : "'(" + joined(from.names, " ") + ")'";
    return once + (forms.size() == 1 ? forms.front() : "{" + joined(forms, ",") + "}") + rest;
}

// The function that completes a command.
std::string function_name(command const& from)
{
    return "_zelieml" + (from.path.empty() ? "" : "_" + replaced(from.path, " ", "_"));
}

std::string command_function(command const& from)
{
    std::string text = function_name(from) +
                       "() {\n"
                       "    local curcontext=$curcontext context state state_descr line\n"
                       "    local -A opt_args\n"
                       "    _arguments -C";
    for (option const& each : from.options) {
        text += " \\\n        " + option_text(each);
    }
    for (std::size_t i = 0; i < from.arguments.size(); ++i) {
        text +=
            " \\\n        " +
            quoted((from.repeats && i + 1 == from.arguments.size() ? "*" : std::to_string(i + 1)) +
                   value_text(from.arguments[i]));
    }
    if (from.commands.empty()) {
        return text + "\n}\n\n";
    }
    text += " \\\n        '1:command:->command' '*::argument:->argument' && return\n"
            "    case $state in\n"
            "        command)\n"
            "            local -a commands=(\n";
    std::string choices;
    for (command const& each : from.commands) {
        text += "                " + quoted(each.name + ":" + each.description) + "\n";
        choices += "                " + each.name + ") " + function_name(each) + " ;;\n";
    }
    return text +
           "            )\n"
           "            _describe command commands\n"
           "            ;;\n"
           "        argument)\n"
           "            case $line[1] in\n" +
           choices +
           "            esac\n"
           "            ;;\n"
           "    esac\n}\n\n";
}

// The function that completes the value of the key before it.
std::string values_function(std::vector<key_words> const& of_keys)
{
    std::string text = "_zelieml_values() {\n    case ${(Q)line[1]} in\n";
    for (key_words const& of : of_keys) {
        text += "        " + of.key + ") compadd " + joined(of.words, " ") + " ;;\n";
    }
    return text + "    esac\n}\n\n";
}

char const script_begin[] = R"script(#compdef zelieml

# The messages of the work directory.
_zelieml_messages() {
    local workdir=${(Q)${opt_args[-w]:-$opt_args[--workdir]}}
    workdir=${workdir/#\~\//$HOME/}
    local -a messages=(${(f)"$(zelieml queue list --names ${workdir:+-w} $workdir 2>/dev/null)"})
    compadd -a messages
}

)script";

char const script_end[] =
    R"script(# Loaded by compinit, this file is the function; otherwise it is sourced.
if [[ $funcstack[1] == _zelieml ]]; then
    _zelieml "$@"
else
    compdef _zelieml zelieml
fi
)script";

}  // namespace

std::string for_zsh(command const& program)
{
    std::string text = script_begin;
    for (command const* const each : all_of(program)) {
        for (value const& argument : each->arguments) {
            if (argument.what == kind::words_of_key) {
                text += values_function(argument.of_keys);
            }
        }
        text += command_function(*each);
    }
    return text + script_end;
}

}  // namespace zelieml::program::completion
