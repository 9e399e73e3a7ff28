// command_tree.cpp - the program's commands and options, as a completion needs them

#include "tools/zelieml/completion/command_tree.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "tools/zelieml/setting_keys.h"

namespace zelieml::program::completion
{

namespace
{

strings split(std::string const& text, char at)
{
    strings            pieces;
    std::istringstream rest(text);
    for (std::string piece; std::getline(rest, piece, at);) {
        pieces.push_back(piece);
    }
    return pieces;
}

// The first line, which is enough for a list.
std::string first_line(std::string const& text)
{
    return text.substr(0, text.find('\n'));
}

strings names_of(std::vector<setting_key> const& keys)
{
    strings names;
    for (setting_key const& key : keys) {
        names.push_back(key.name);
    }
    return names;
}

std::vector<key_words> words_of(std::vector<setting_key> const& keys)
{
    std::vector<key_words> all;
    for (setting_key const& key : keys) {
        if (!key.choices.empty()) {
            all.push_back({key.name, key.choices});
        }
    }
    return all;
}

// What the help calls it: "DIR", "yes|no", "TEXT:{yes,no}" where a check has added its words; an
// argument without a type goes by its name.
value value_of(CLI::Option const& from)
{
    std::string const type  = from.get_type_name();
    std::string const name  = type.empty() ? from.get_name() : type.substr(0, type.find(':'));
    auto const        begin = type.find('{');
    auto const        end   = type.find('}');
    if (begin != type.npos && end != type.npos) {
        return {kind::words, name, split(type.substr(begin + 1, end - begin - 1), ',')};
    }
    if (name.find('|') != name.npos) {
        return {kind::words, "word", split(name, '|')};
    }
    if (name == "KEY") {
        return {kind::words, name, names_of(setting_keys())};
    }
    if (name == "VALUE") {
        return {kind::words_of_key, name, {}, words_of(setting_keys())};
    }
    if (name == "DIR") {
        return {kind::directory, name, {}};
    }
    if (name == "FILE") {
        return {kind::file, name, {}};
    }
    return {name == "MESSAGE" ? kind::message : kind::none, name, {}};
}

option option_of(CLI::Option const& from)
{
    option made;
    for (std::string const& name : from.get_snames()) {
        made.names.push_back("-" + name);
    }
    for (std::string const& name : from.get_lnames()) {
        made.names.push_back("--" + name);
    }
    made.description = first_line(from.get_description());
    made.has_value   = from.get_items_expected_max() > 0;
    made.repeats     = from.get_items_expected_max() > 1;
    made.takes       = value_of(from);
    return made;
}

// The path of a command under that of another.
std::string below(std::string const& path, std::string const& name)
{
    return path.empty() ? name : path + " " + name;
}

command command_of(CLI::App const& from, std::string const& name, std::string const& path)
{
    command made;
    made.name        = name;
    made.path        = path;
    made.description = first_line(from.get_description());
    for (CLI::Option const* const each : from.get_options()) {
        if (each->get_positional()) {
            made.arguments.push_back(value_of(*each));
            made.repeats = each->get_items_expected_max() > 1;
        } else if (!each->get_group().empty()) {
            made.options.push_back(option_of(*each));
        }
    }
    for (CLI::App const* const each : from.get_subcommands(nullptr)) {
        if (!each->get_group().empty()) {
            made.commands.push_back(
                command_of(*each, each->get_name(), below(path, each->get_name())));
        }
    }
    return made;
}

}  // namespace

std::string command::argument_name(std::size_t number) const
{
    return repeats && number + 1 == arguments.size() ? "*" : std::to_string(number);
}

command command_tree(CLI::App const& program)
{
    return command_of(program, "", "");
}

std::vector<command const*> all_of(command const& top)
{
    std::vector<command const*> all = {&top};
    for (command const& each : top.commands) {
        std::vector<command const*> const more = all_of(each);
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

strings names_of(std::vector<command> const& commands)
{
    strings names;
    for (command const& each : commands) {
        names.push_back(each.name);
    }
    return names;
}

strings names_of(std::vector<option> const& options)
{
    strings names;
    for (option const& each : options) {
        names.insert(names.end(), each.names.begin(), each.names.end());
    }
    return names;
}

std::string joined(strings const& texts, std::string const& between)
{
    std::string all;
    for (std::string const& text : texts) {
        all += (&text == &texts.front() ? "" : between) + text;
    }
    return all;
}

std::string replaced(std::string text, std::string const& old, std::string const& by)
{
    for (std::size_t at = 0; (at = text.find(old, at)) != text.npos; at += by.size()) {
        text.replace(at, old.size(), by);
    }
    return text;
}

}  // namespace zelieml::program::completion
