// command.cpp - the program's command line

#include "tools/zelieml/command.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <sysexits.h>
#include <utility>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/usage.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

constexpr char about[] =
    "Sends status mails, runs the service that sends them, and says why one was not sent.";

constexpr char workdir_variable[] = "ZELIEML_WORKDIR";

constexpr char exit_statuses[] =
    "Exit status: 0 good, 64 wrong usage, 65 wrong message, 66 no input, 67 recipient refused,\n"
    "69 server not reached, 70 internal, 73 file not made, 75 try again later, 76 refused or\n"
    "broken protocol, 77 login refused, 78 wrong settings. See zelieml(1).";

// The directory that a path leads to.
std::string directory_at(std::string const& path)
{
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr),
                                                           std::free);
    struct stat                                       status = {};
    if (real == nullptr || ::stat(real.get(), &status) != 0) {
        throw failure(EX_NOINPUT, "the work directory " + path, errno,
                      "make it, or name another one with -w");
    }
    if (!S_ISDIR(status.st_mode)) {
        throw failure(EX_NOINPUT, "the work directory " + path +
                                      " is not a directory: name another one with -w");
    }
    return real.get();
}

// Null when there is none.
CLI::App* command_in(CLI::App& group, std::string const& name)
{
    for (CLI::App* const command : group.get_subcommands(nullptr)) {
        if (command->get_name() == name) {
            return command;
        }
    }
    return nullptr;
}

// Whether it is this option, with or without its value.
bool is_workdir(std::string const& word)
{
    return word == "--workdir" || word.compare(0, 10, "--workdir=") == 0 ||
           word.compare(0, 2, "-w") == 0;
}

// Moves -w and --json from before the command, or the command of a group, behind it. Without such a
// command nothing is asked of them.
words in_order(CLI::App& program, words const& given)
{
    words     named;
    words     moved;
    CLI::App* at   = &program;
    auto      word = given.begin();
    while (word != given.end() && is_group(*at)) {
        if (CLI::App* const command = command_in(*at, *word)) {
            at = command;
            named.push_back(*word);
        } else if (*word == "--json" || is_workdir(*word)) {
            moved.push_back(*word);
            if ((*word == "-w" || *word == "--workdir") && word + 1 != given.end()) {
                moved.push_back(*++word);
            }
        } else {
            break;
        }
        ++word;
    }
    if (!is_group(*at)) {
        named.insert(named.end(), moved.begin(), moved.end());
    }
    named.insert(named.end(), word, given.end());
    return named;
}

}  // namespace

command_line::command_line() : app_(about, "zelieml")
{
    app_.require_subcommand(1);
    app_.set_version_flag("--version", std::string("zelieml ") + eml_version());
    app_.footer(
        std::string("'zelieml COMMAND --help' says more, with examples. -w and --json may also "
                    "stand before COMMAND.\n\n") +
        exit_statuses);
}

CLI::App& command_line::add(CLI::App& parent, std::string const& name, std::string const& what,
                            std::string const& examples, std::function<int()> run)
{
    CLI::App& command = *parent.add_subcommand(name, what);
    if (!examples.empty()) {
        command.footer("Examples:\n" + examples);
    }
    command.callback([this, run = std::move(run)] { chosen_ = run; });
    return command;
}

CLI::App& command_line::add_group(std::string const& name, std::string const& what)
{
    CLI::App& group = *app_.add_subcommand(name, what);
    group.require_subcommand(1);
    return group;
}

void command_line::add_workdir(CLI::App& command)
{
    add_own_workdir(command);
    command.preparse_callback([this](std::size_t) { needs_workdir_ = true; });
}

void command_line::add_own_workdir(CLI::App& command)
{
    // CLI11 would read the environment for every command, and so again after the option.
    command
        .add_option("-w,--workdir", given_workdir_,
                    "The work directory, which holds the settings and the messages;\n"
                    "without it, ZELIEML_WORKDIR names one")
        ->type_name("DIR")
        ->check(not_empty("name a directory"));
}

bool command_line::has_workdir() const
{
    return !given_workdir_.empty() || std::getenv(workdir_variable) != nullptr;
}

std::string command_line::workdir() const
{
    if (!given_workdir_.empty()) {
        return directory_at(given_workdir_);
    }
    char const* const named = std::getenv(workdir_variable);
    if (named == nullptr) {
        throw failure(EX_USAGE, std::string("no work directory is named: name it with -w, or in ") +
                                    workdir_variable);
    }
    if (*named == '\0') {
        throw failure(EX_USAGE, std::string(workdir_variable) + " is empty: name a directory");
    }
    return directory_at(named);
}

void command_line::add_json(CLI::App& command, failure_printer print)
{
    command.add_flag_callback(
        "--json",
        [this, print = std::move(print)] {
            options_.json  = true;
            print_failure_ = print;
        },
        "Print JSON");
}

int command_line::run(int argc, char** argv)
{
    try {
        understand(words(argv + 1, argv + argc));
        if (!chosen_) {
            return EX_OK;  // it was the help
        }
        if (needs_workdir_) {
            options_.workdir = workdir();
        }
        return chosen_();
    } catch (failure const& error) {
        return fails(error.status(), error.what());
    } catch (std::bad_alloc const&) {
        return fails(EX_SOFTWARE, "there is not enough memory");
    } catch (std::exception const& error) {
        return fails(EX_SOFTWARE, error.what());
    }
}

int command_line::fails(int status, char const* why) const
{
    std::fprintf(stderr, "zelieml: %s\n", why);
    if (print_failure_ != nullptr && status != EX_USAGE && !has_printed()) {
        try {
            need_output();
            print_failure_(failure(status, why));
        } catch (std::exception const&) {
            return status;  // what was said last is the reason
        }
    }
    return status;
}

void command_line::understand(words given)
{
    given = in_order(app_, given);
    try {
        app_.parse(words(given.rbegin(), given.rend()));  // the first one last
    } catch (CLI::Success const& asked_for) {
        chosen_ = nullptr;
        app_.exit(asked_for);
    } catch (CLI::ParseError const& error) {
        throw usage_failure(app_, given, error);
    }
}

}  // namespace zelieml::program
