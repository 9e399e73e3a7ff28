// usage.cpp - what is wrong with a command line
//
// CLI11 says it in its own words, which differ between its versions and may hold what was typed. So
// most of it is read from what the commands and options have been given.

#include "tools/zelieml/usage.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <sysexits.h>
#include <typeinfo>

#include "tools/zelieml/output.h"

namespace zelieml::program
{

namespace
{

constexpr char never_there[] = "a password on the command line could be seen by everybody: leave "
                               "it away to be asked for it, or pass it with --password-fd";

// The program, then the commands that were named.
std::vector<CLI::App const*> chosen(CLI::App const& program)
{
    std::vector<CLI::App const*> all = {&program};
    while (!all.back()->get_subcommands().empty()) {
        all.push_back(all.back()->get_subcommands().front());
    }
    return all;
}

std::string help_of(std::vector<CLI::App const*> const& apps, CLI::App const& last)
{
    std::string text = "'";
    for (CLI::App const* const app : apps) {
        text += app->get_name() + " ";
        if (app == &last) {
            break;
        }
    }
    return text + "--help'";
}

bool takes_password(CLI::App const& command)
{
    return command.get_option_no_throw("--password-fd") != nullptr;
}

// Whether a word that no command takes may be a password: it gives a name a value, or a command beside
// this one takes a password.
bool may_be_password(CLI::App const& command, std::string const& word)
{
    CLI::App const* const group    = command.get_parent();
    bool const            in_group = group != nullptr && group->get_parent() != nullptr;
    auto const beside = in_group ? group->get_subcommands(nullptr) : std::vector<CLI::App const*>();
    return word.find('=') != word.npos ||
           std::any_of(beside.begin(), beside.end(),
                       [](CLI::App const* each) { return takes_password(*each); });
}

bool is_flag(CLI::Option const& option)
{
    return option.get_items_expected_max() == 0;
}

// "a", "a and b", "a, b and c"
std::string listed(words const& names)
{
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    }
    return text;
}

// The option that a word is; empty for a word that is none.
std::string option_in(std::string const& word)
{
    if (word.size() < 2 || word[0] != '-') {
        return "";
    }
    return word[1] == '-' ? word.substr(0, word.find('=')) : word.substr(0, 2);
}

// A word that no command and no option takes.
std::string said_of_word(CLI::App const& command, std::string const& word, std::string const& help)
{
    std::string const option = option_in(word);
    if (takes_password(command)) {
        bool const named =
            !option.empty() && option != "--password" && (option.size() > 2 || option == word);
        return (named ? "there is no option " + option : "this is one word too many") + ", and " +
               never_there + ": " + help + " says more";
    }
    if (!option.empty()) {
        return "there is no option " + option + ": " + help + " names all";
    }
    bool const hidden = may_be_password(command, word);
    if (is_group(command)) {
        return "there is no " + (hidden ? "such command" : "command " + word) + ": " + help +
               " names all";
    }
    return (hidden ? "this" : "'" + word + "'") + " is one word too many: " + help + " says more";
}

std::string said_of_number(CLI::App const& command, words const& given)
{
    for (CLI::Option const* const option : command.get_options()) {
        if (!is_flag(*option) &&
            option->count() > static_cast<std::size_t>(option->get_items_expected_max())) {
            return option->get_name() + " is given more than once: give it once";
        }
    }
    std::string const        name = option_in(given.back());
    CLI::Option const* const last = command.get_option_no_throw(name);
    bool const               bare = given.back() == name || given.back() == name + "=";
    if (last != nullptr && !is_flag(*last) && bare) {
        return last->get_name() + " has no value: write " + last->get_type_name() + " after it";
    }
    return "";
}

std::string said_of_flag(CLI::App const& command, words const& given)
{
    for (std::string const& word : given) {
        CLI::Option const* const option = command.get_option_no_throw(option_in(word));
        if (option != nullptr && is_flag(*option) && word.find('=') != word.npos) {
            return option->get_name() + " takes no value: leave it away";
        }
    }
    return "";
}

std::string said_of_missing(CLI::App const& command)
{
    words missing;
    for (CLI::Option const* const option : command.get_options()) {
        if (option->get_required() && option->count() == 0) {
            missing.push_back(option->get_name());
        }
    }
    return missing.empty() ? ""
                           : listed(missing) + (missing.size() == 1 ? " is" : " are") + " missing";
}

std::string said_of_others(CLI::App const& command)
{
    for (CLI::Option const* const option : command.get_options()) {
        if (option->count() == 0) {
            continue;
        }
        for (CLI::Option const* const other : option->get_needs()) {
            if (other->count() == 0) {
                return option->get_name() + " goes with " + other->get_name() +
                       " only: give both, or neither";
            }
        }
        for (CLI::Option const* const other : option->get_excludes()) {
            if (other->count() > 0) {
                return option->get_name() + " and " + other->get_name() +
                       " do not go together: give one of them";
            }
        }
    }
    return "";
}

// What is said of a command that has all its words.
std::string said_of_command(CLI::App const& command, words const& given,
                            CLI::ParseError const& error)
{
    // Checks of values say what is wrong with them.
    if (dynamic_cast<CLI::ValidationError const*>(&error) != nullptr) {
        return error.what();
    }
    for (std::string const& said : {said_of_number(command, given), said_of_flag(command, given),
                                    said_of_missing(command), said_of_others(command)}) {
        if (!said.empty()) {
            return said;
        }
    }
    return takes_password(command) ? "the options are wrong" : error.what();
}

}  // namespace

failure usage_failure(CLI::App const& program, words const& given, CLI::ParseError const& error)
{
    std::vector<CLI::App const*> const apps = chosen(program);
    for (CLI::App const* const app : apps) {
        for (std::string const& word : app->remaining()) {
            if (word != "--") {
                return failure(EX_USAGE, printable(said_of_word(*app, word, help_of(apps, *app))));
            }
        }
    }
    CLI::App const&   last = *apps.back();
    std::string const help = help_of(apps, last);
    return failure(EX_USAGE, is_group(last) ? "no command is named: " + help + " names all"
                                            : printable(said_of_command(last, given, error)) +
                                                  ": " + help + " says more");
}

CLI::Validator number_from(long low, long high)
{
    return {[low, high](std::string& text) -> std::string {
                long        number = 0;
                char const* end    = text.data() + text.size();
                auto const  read   = std::from_chars(text.data(), end, number);
                return read.ec == std::errc() && read.ptr == end && number >= low && number <= high
                           ? ""
                           : "write a number from " + std::to_string(low) + " to " +
                                 std::to_string(high);
            },
            ""};
}

CLI::Validator not_empty(std::string const& remedy)
{
    return {[remedy](std::string& text) { return text.empty() ? "it is empty: " + remedy : ""; },
            ""};
}

bool is_group(CLI::App const& app)
{
    return !app.get_subcommands(nullptr).empty();
}

}  // namespace zelieml::program
