// bash.cpp - completion in bash, of any version

#include <cstddef>
#include <string>

#include "tools/zelieml/completion/command_tree.h"
#include "tools/zelieml/completion/scripts.h"

namespace zelieml::program::completion
{

namespace
{

// For "case": one of these words after the command.
std::string pattern(command const& after, strings const& words)
{
    strings quoted;
    for (std::string const& word : words) {
        quoted.push_back("'" + after.path + ":" + word + "'");
    }
    return "        " + joined(quoted, " | ") + ") ";
}

std::string words_text(strings const& words)
{
    return "echo words " + joined(words, " ") + " ;;\n";
}

// What _zelieml_value says.
std::string value_text(value const& from)
{
    switch (from.what) {
    case kind::directory:
        return "echo directory ;;\n";
    case kind::file:
        return "echo file ;;\n";
    case kind::message:
        return "echo message ;;\n";
    case kind::words:
        return words_text(from.words);
    case kind::words_of_key:
    case kind::none:
        break;
    }
    return "echo any ;;\n";
}

char const script_end[] = R"script(
# The messages of the work directory that is named as it was typed. Their names are other users' words.
_zelieml_messages() {
    local workdir=$1 name
    case $workdir in '~/'*) workdir=$HOME/${workdir#??} ;; esac
    while IFS= read -r name; do
        printf -v name %q "$name"
        [[ $name != "$2"* ]] || COMPREPLY+=("$name")
    done < <(zelieml queue list --names ${workdir:+-w "$workdir"} 2>/dev/null)
}

_zelieml() {
    local word=${COMP_WORDS[COMP_CWORD]} command='' option='' workdir='' key='' arguments=0 value i
    # A "=" is a word of its own.
    [ "$word" != = ] || word=''
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [ "${COMP_WORDS[i]}" = = ]; then
            continue
        elif [ -n "$option" ]; then
            case $option in -w | --workdir) workdir=${COMP_WORDS[i]} ;; esac
            option=''
        elif value=$(_zelieml_command "$command" "${COMP_WORDS[i]}"); then
            command=$value
        elif [[ ${COMP_WORDS[i]} != -* ]]; then
            arguments=$((arguments + 1))
            key=${COMP_WORDS[i]}
        elif _zelieml_value "$command" "${COMP_WORDS[i]}" >/dev/null; then
            option=${COMP_WORDS[i]}
        fi
    done

    if [ -n "$option" ]; then
        value=$(_zelieml_value "$command" "$option")
    elif [[ $word == -* ]]; then
        value="words $(_zelieml_options "$command")"
    else
        value=$(_zelieml_value "$command" "$arguments:$key") ||
            value=$(_zelieml_value "$command" "$arguments") ||
            value=$(_zelieml_value "$command" '*')
    fi
    COMPREPLY=()
    # A bash without compopt offers files wherever there is nothing else.
    compopt +o default 2>/dev/null
    case $value in
        directory) compopt -o dirnames 2>/dev/null ;;
        file) compopt -o default 2>/dev/null ;;
        message) _zelieml_messages "$workdir" "$word" ;;
        words*) COMPREPLY=($(compgen -W "${value#words}" -- "$word")) ;;
    esac
}

complete -o default -F _zelieml zelieml
)script";

}  // namespace

std::string for_bash(command const& program)
{
    std::string steps;
    std::string values;
    std::string options;
    for (command const* const each : all_of(program)) {
        for (command const& next : each->commands) {
            steps += pattern(*each, {next.name}) + "echo '" + next.path + "' ;;\n";
        }
        for (option const& offered : each->options) {
            if (offered.has_value) {
                values += pattern(*each, offered.names) + value_text(offered.takes);
            }
        }
        if (!each->commands.empty()) {
            values += pattern(*each, {"0"}) +
                      value_text({kind::words, "command", names_of(each->commands)});
        }
        for (std::size_t i = 0; i < each->arguments.size(); ++i) {
            std::string const place = each->argument_name(i);
            values += pattern(*each, {place}) + value_text(each->arguments[i]);
            for (key_words const& of : each->arguments[i].of_keys) {
                values += pattern(*each, {place + ":" + of.key}) + words_text(of.words);
            }
        }
        options +=
            "        '" + each->path + "') echo " + joined(names_of(each->options), " ") + " ;;\n";
    }
    return "# bash completion for zelieml\n\n"
           "# The command to which a word leads from another.\n"
           "_zelieml_command() {\n    case \"$1:$2\" in\n" +
           steps +
           "        *) return 1 ;;\n    esac\n}\n\n"
           "# What follows an option, or stands as an argument, of a command.\n"
           "# An argument is its number, or that and the argument before it.\n"
           "_zelieml_value() {\n    case \"$1:$2\" in\n" +
           values +
           "        *) return 1 ;;\n    esac\n}\n\n"
           "_zelieml_options() {\n    case \"$1\" in\n" +
           options + "    esac\n}\n" + script_end;
}

}  // namespace zelieml::program::completion
