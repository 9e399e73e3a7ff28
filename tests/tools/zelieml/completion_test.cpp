// completion_test.cpp - the scripts with which shells complete the program's command line
//
// Each shell completes lines with the script that the program writes for it.

#include <cstdlib>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sysexits.h>

#include "tests/support/case_name.h"
#include "tests/support/files.h"
#include "tests/support/skip.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

using strings = std::vector<std::string>;
using offers  = std::set<std::string>;

// A name that a shell must not take for more than a name.
char const* const hostile = "$(touch caught) & x.sme";

// The drivers get a folder to work in, and the words of a line, whose last one is to be completed.
// They print what is offered, a line each.

// compopt works only while a line is being completed; what it asks for is what readline does then.
char const bash_driver[] = R"(
compopt() {
    case "$*" in
        '-o dirnames') compgen -d -- "$word" ;;
        '-o default') compgen -f -- "$word" ;;
    esac
}
cd "$1" && source ./script
shift
COMP_WORDS=()
for each in "$@"; do
    case $each in
        --*=*) COMP_WORDS+=("${each%%=*}" = "${each#*=}") ;;
        *) COMP_WORDS+=("$each") ;;
    esac
done
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_zelieml
for each in "${COMPREPLY[@]}"; do
    eval "printf '%s\n' $each"
done
)";

// Another zsh completes the line on a terminal of its own.
char const zsh_driver[] = R"(
cd $1
shift
cat > inner <<'INNER'
autoload -Uz compinit
compinit -C -d ./known
source ./script
compadd() {
    if (( ! ${@[(I)-[OAD]]} )); then
        local -a offered
        builtin compadd -A offered "$@"
        (( ! $#offered )) || print -rl -- ${(Q)offered} >> offered
    fi
    builtin compadd "$@"
}
complete() {
    _main_complete
    print -r -- '(done)' >> offered
    compstate[insert]=
    compstate[list]=
}
zle -C complete complete-word complete
bindkey '^I' complete
INNER
: > offered
zmodload zsh/zpty
zpty inner zsh -f -i
zpty -w inner source ./inner
zpty -n -w inner "${(j: :)${(q)@[1,-2]}} $@[-1]"$'\t'
repeat 1200; do
    ! grep -qx '(done)' offered || break
    sleep 0.05
done
zpty -d inner
grep -vx '(done)' offered
true
)";

char const fish_driver[] = R"(
cd $argv[1]; and source ./script
set -l last $argv[-1]
complete -C (string join ' ' -- (string escape -- $argv[2..-2]) $last) | string replace -r '\t.*' ''
true
)";

// A shell, in a folder with the script, a folder, a file, and the program in PATH.
class shell
{
public:
    shell(std::string const& name, std::string const& driver) : name_(name)
    {
        write_file(dir_.file("script"), run_zelieml({"completion", name}).out);
        write_file(dir_.file("driver"), driver);
        ::mkdir(dir_.file("folder").c_str(), 0700);
        ::mkdir(dir_.file("folder/undelivered").c_str(), 0700);
        write_file(dir_.file("folder/a.sme"), "");
        write_file(dir_.file(std::string("folder/") + hostile), "");
        write_file(dir_.file("folder/undelivered/b.sme"), "");
    }

    bool is_here() const { return run({"-c", "exit 0"}).status == 0; }

    // What is offered, without a "/" at its end.
    offers completes(strings const& words) const
    {
        strings arguments = {dir_.file("driver"), dir_.path(), "zelieml"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        outcome const made = run(arguments);
        EXPECT_EQ(made.status, 0) << name_;
        EXPECT_EQ(made.err, "") << name_;
        EXPECT_FALSE(file_exists(dir_.file("caught"))) << name_;
        offers             all;
        std::istringstream lines(made.out);
        for (std::string line; std::getline(lines, line);) {
            all.insert(line.back() == '/' ? line.substr(0, line.size() - 1) : line);
        }
        return all;
    }

private:
    outcome run(strings const& arguments) const
    {
        std::string const path(ZELIEML_PROGRAM);
        strings           words = {
                      "/usr/bin/env",
                      "HOME=" + dir_.path(),
                      "XDG_CONFIG_HOME=" + dir_.path(),
                      "XDG_DATA_HOME=" + dir_.path(),
                      "PATH=" + path.substr(0, path.rfind('/')) + ":" + std::getenv("PATH"),
                      name_,
        };
        words.insert(words.end(), arguments.begin(), arguments.end());
        program   started(words);
        int const status = started.wait();
        return {status, started.out(), started.err()};
    }

    temp_dir    dir_;
    temp_dir    home_;
    std::string name_;
};

struct shell_case : named_case {
    shell_case(char const* its_name, char const* its_driver)
        : named_case(its_name), driver(its_driver)
    {
    }

    char const* driver;
};

class Completion : public testing::TestWithParam<shell_case>
{
protected:
    shell const tried{GetParam().name, GetParam().driver};

    void SetUp() override { SKIP_UNLESS(tried.is_here(), std::string("no ") + GetParam().name); }
};

// The first words of a part of a help: of commands or options, as they are typed.
offers listed(std::string const& help, std::string const& part)
{
    offers             all;
    std::istringstream lines(help.substr(help.find("\n" + part + ":\n") + part.size() + 3));
    for (std::string line; std::getline(lines, line) && !line.empty();) {
        std::string words;
        if (line.size() > 2 && line[2] != ' ' && (std::istringstream(line) >> words)) {
            std::istringstream names(words);
            for (std::string name; std::getline(names, name, ',');) {
                all.insert(name);
            }
        }
    }
    return all;
}

// Holds what is offered against the help, of a command and all below it.
void expect_as_in_help(shell const& tried, strings const& command)
{
    strings ask = command;
    ask.push_back("--help");
    std::string const help = run_zelieml(ask).out;

    ask.back() = "-";
    EXPECT_EQ(tried.completes(ask), listed(help, "Options")) << help;
    if (help.find("\nSubcommands:\n") == help.npos) {
        return;
    }
    offers const commands = listed(help, "Subcommands");
    EXPECT_FALSE(commands.empty()) << help;
    ask.back() = "";
    EXPECT_EQ(tried.completes(ask), commands);
    for (std::string const& next : commands) {
        strings below = command;
        below.push_back(next);
        expect_as_in_help(tried, below);
    }
}

TEST_P(Completion, OffersWhatTheHelpShows)
{
    expect_as_in_help(tried, {});
}

TEST_P(Completion, OffersWhatBeginsSo)
{
    EXPECT_EQ(tried.completes({"queue", "re"}), offers{"retry"});
    EXPECT_EQ(tried.completes({"queue", "list", "--n"}), offers{"--names"});
}

TEST_P(Completion, OffersDirectories)
{
    EXPECT_EQ(tried.completes({"queue", "list", "-w", "fol"}), offers{"folder"});
    EXPECT_EQ(tried.completes({"queue", "list", "--workdir", "fol"}), offers{"folder"});
}

TEST_P(Completion, OffersFiles)
{
    EXPECT_EQ(tried.completes({"send", "scr"}), offers{"script"});
}

TEST_P(Completion, OffersWords)
{
    EXPECT_EQ(tried.completes({"send", "--encoding", "i"}), offers{"iso-2022-jp"});
    EXPECT_EQ(tried.completes({"settings", "set", "smtp_p"}), (offers{"smtp_passwd", "smtp_port"}));
    EXPECT_EQ(tried.completes({"send", "--subject", "s"}), offers{}) << "any text";
}

TEST_P(Completion, OffersTheValuesOfAKey)
{
    EXPECT_EQ(tried.completes({"settings", "set", "smtp_auth_type", ""}),
              (offers{"auto", "cram-md5", "login", "plain"}));
    EXPECT_EQ(tried.completes({"settings", "set", "-w", "smtp_auth", "pop_auth_type", ""}),
              (offers{"pop", "apop"}));
    EXPECT_EQ(tried.completes({"settings", "set", "passwd_raw", "--json", "y"}), offers{"yes"});
    for (strings const& none : {strings{"settings", "set", "smtp_server", ""},
                                {"settings", "set", "smtp_passwd", ""},
                                {"settings", "set", "no_key", ""},
                                {"settings", "set", "smtp_auth", "yes", "y"},
                                {"settings", "get", "smtp_auth", "y"}}) {
        EXPECT_EQ(tried.completes(none), offers{}) << none[2];
    }
}

TEST_P(Completion, OffersTheMessagesOfTheQueue)
{
    offers const all = {"a.sme", hostile, "undelivered/b.sme"};
    EXPECT_EQ(tried.completes({"queue", "drop", "-w", "folder", ""}), all);
    EXPECT_EQ(tried.completes({"queue", "retry", "--workdir=folder", "a.sme", ""}), all);
    EXPECT_EQ(tried.completes({"queue", "retry", "-w", "folder", "u"}),
              offers{"undelivered/b.sme"});
    EXPECT_EQ(tried.completes({"queue", "drop", "-w", "nowhere", ""}), offers{});
}

TEST_P(Completion, TakesNoValueForACommand)
{
    EXPECT_EQ(tried.completes({"queue", "list", "-w", "drop", "--n"}), offers{"--names"});
}

INSTANTIATE_TEST_SUITE_P(Shells, Completion,
                         testing::Values(shell_case("bash", bash_driver),
                                         shell_case("zsh", zsh_driver),
                                         shell_case("fish", fish_driver)),
                         case_name<shell_case>);

TEST(CompletionCommand, KnowsItsShells)
{
    outcome const run = run_zelieml({"completion", "sh"});
    EXPECT_EQ(run.status, EX_USAGE);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("bash"), run.err.npos) << run.err;
}

}  // namespace

}  // namespace zelieml::test
