// fish.cpp - completion in fish

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
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string words_text(strings const& words, std::string const& alone)
{
    return alone + " -a " + quoted(joined(words, " "));
}

// " -x ..." for a value that an option needs, " -f ..." for an argument.
std::string value_text(value const& from, std::string const& alone)
{
    switch (from.what) {
    case kind::directory:
        return alone + " -a '(__fish_complete_directories)'";
    case kind::file:
        return alone == " -x" ? " -rF" : " -F";
    case kind::message:
        return alone + " -a '(__zelieml_messages)'";
    case kind::words:
        return words_text(from.words, alone);
    case kind::words_of_key:
    case kind::none:
        break;
    }
    return alone;
}

std::string option_text(option const& from)
{
    std::string text;
    for (std::string const& name : from.names) {
        bool const is_long = name.compare(0, 2, "--") == 0;
        text += is_long ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    return text + (from.has_value ? value_text(from.takes, " -x") : "") + " -d " +
           quoted(from.description);
}

char const script_begin[] = R"script(# fish completion for zelieml

# The command that the words before the cursor name, the number of its arguments, its work directory
# and its last argument.
function __zelieml_words
    set -l command ''
    set -l arguments 0
    set -l option ''
    set -l workdir ''
    set -l key ''
    set -l words (commandline -opc)
    set -e words[1]
    for word in $words
        if test -n "$option"
            contains -- $option -w --workdir; and set workdir $word
            set option ''
            continue
        end
        switch "$command:$word"
)script";

char const words_end[] = R"script(            case '*:--workdir=*'
                set workdir (string replace -- --workdir= '' $word)
            case '*:-*'
            case '*'
                set arguments (math $arguments + 1)
                set key $word
        end
    end
    echo $command
    echo $arguments
    echo $workdir
    echo $key
end

# Whether an option of this command can stand here or, with a number, this argument of it, or "*"; with
# a word, this argument after that one.
function __zelieml_at
    set -l words (__zelieml_words)
    test "$words[1]" = $argv[1]; or return
    set -q argv[2]; or return 0
    contains -- $argv[2] '*' $words[2]; or return
    set -q argv[3]; or return 0
    test "$words[4]" = $argv[3]
end

function __zelieml_messages
    set -l workdir (__zelieml_words)[3]
    set workdir (string replace -r '^~/' $HOME/ -- $workdir)
    zelieml queue list --names (test -n "$workdir"; and printf '%s\n' -w $workdir) 2>/dev/null
end

complete -c zelieml -f
)script";

}  // namespace

std::string for_fish(command const& program)
{
    std::string text = script_begin;
    std::string rules;
    for (command const* const each : all_of(program)) {
        auto const rule = [&rules, each](std::string const& argument) -> std::string& {
            return rules +=
                   "complete -c zelieml -n \"__zelieml_at '" + each->path + "'" + argument + "\"";
        };
        strings options;
        for (option const& offered : each->options) {
            rule("") += option_text(offered) + "\n";
            if (offered.has_value) {
                options.insert(options.end(), offered.names.begin(), offered.names.end());
            }
        }
        for (std::size_t i = 0; i < each->arguments.size(); ++i) {
            std::string const place = " '" + each->argument_name(i) + "'";
            rule(place) += value_text(each->arguments[i], " -f") + "\n";
            for (key_words const& of : each->arguments[i].of_keys) {
                rule(place + " " + of.key) += words_text(of.words, " -f") + "\n";
            }
        }
        for (command const& next : each->commands) {
            rule(" 0") += " -a " + next.name + " -d " + quoted(next.description) + "\n";
            text += "            case " + quoted(each->path + ":" + next.name) + "\n" +
                    "                set command " + quoted(next.path) + "\n";
        }
        if (!options.empty()) {
            strings cases;
            for (std::string const& name : options) {
                cases.push_back(quoted(each->path + ":" + name));
            }
            text +=
                "            case " + joined(cases, " ") + "\n                set option $word\n";
        }
    }
    return text + words_end + rules;
}

}  // namespace zelieml::program::completion
