// command_tree.h - the program's commands and options, as a completion needs them
//
// They are read from the command line itself, as the help is, so a script misses none. How the value
// of an option, or an argument, is completed depends on what the help calls it: DIR and FILE are
// directories and files, MESSAGE one of 'queue list', KEY one of the settings, VALUE one that the KEY
// before it may have, "yes|no" one of these words; a check with CLI::IsMember names its words itself.
// For anything else nothing is offered.

#ifndef ZELIEML_TOOLS_ZELIEML_COMPLETION_COMMAND_TREE_H
#define ZELIEML_TOOLS_ZELIEML_COMPLETION_COMMAND_TREE_H

#include <cstddef>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace zelieml::program::completion
{

using strings = std::vector<std::string>;

enum class kind {
    none,
    directory,
    file,
    message,
    words,
    words_of_key
};

// What may follow a word.
struct key_words {
    std::string key;
    strings     words;
};

// What can stand in a place of the command line.
struct value {
    kind        what = kind::none;
    std::string name;  // in the help
    strings     words;

    std::vector<key_words> of_keys = {};  // by the argument before
};

struct option {
    strings     names;  // with their dashes
    std::string description;
    bool        has_value = false;
    bool        repeats   = false;
    value       takes;
};

struct command {
    std::string          name;  // empty for the program itself
    std::string          path;  // its words with blanks between them: "queue list"
    std::string          description;
    std::vector<option>  options;
    std::vector<value>   arguments;
    bool                 repeats = false;  // its last argument
    std::vector<command> commands;

    // The argument with this number, from 0, as the scripts call it: "*" when it repeats.
    std::string argument_name(std::size_t number) const;
};

// The program with all that its help shows, in the same order.
command command_tree(CLI::App const& program);

// A command and all below it.
std::vector<command const*> all_of(command const& top);

strings names_of(std::vector<command> const& commands);
strings names_of(std::vector<option> const& options);

std::string joined(strings const& texts, std::string const& between);
std::string replaced(std::string text, std::string const& old, std::string const& by);

}  // namespace zelieml::program::completion

#endif
