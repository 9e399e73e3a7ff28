// command.h - how a command of the program takes part in its command line
//
// Each command has a file of its name with a function add_NAME, which adds the command with its
// options to the program and says what runs it. Nothing runs before the whole command line is
// understood.

#ifndef ZELIEML_TOOLS_ZELIEML_COMMAND_H
#define ZELIEML_TOOLS_ZELIEML_COMMAND_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

// What most commands take.
struct common_options {
    std::string workdir;  // absolute, without links and without a separator at its end
    bool        json = false;
};

// The program's command line: what was asked for.
class command_line
{
public:
    command_line();
    command_line(command_line const&)            = delete;
    command_line& operator=(command_line const&) = delete;

    // The program, for commands to be added to.
    CLI::App& app() { return app_; }

    // add - a command of the program
    //
    // examples  lines for its --help, each a command that works as it stands; or empty
    // run       returns the exit status (sysexits.h), or throws a failure
    CLI::App& add(CLI::App& parent, std::string const& name, std::string const& what,
                  std::string const& examples, std::function<int()> run);

    // add_group - a command that only has commands of its own, one of which is required
    CLI::App& add_group(std::string const& name, std::string const& what);

    // add_workdir - the option -w, --workdir, and the environment's ZELIEML_WORKDIR
    //
    // The command does not run unless one of them names a directory that is there.
    void add_workdir(CLI::App& command);

    // add_own_workdir - the same, for a command that can do without
    //
    // Its options().workdir is empty: it calls workdir() if it needs one.
    void add_own_workdir(CLI::App& command);

    // What a command prints with --json for a failure before it has printed anything.
    using failure_printer = std::function<void(failure const&)>;

    // add_json - the option --json
    //
    // print  null: nothing is printed then, as with a wrong command line
    void add_json(CLI::App& command, failure_printer print = nullptr);

    common_options const& options() const { return options_; }

    // Whether -w or ZELIEML_WORKDIR names a work directory.
    bool has_workdir() const;

    // workdir - the directory that they name
    //
    // Throws a failure: EX_USAGE when neither does, EX_NOINPUT when it is not there.
    std::string workdir() const;

    // run - what the command line asks for
    //
    // -w and --json may stand before a command as well. Returns the exit status; says on standard error what is
    // wrong with the command line, or why the command failed.
    int run(int argc, char** argv);

private:
    // Says what to run, or prints the help; throws a failure.
    void understand(std::vector<std::string> words);

    // Says why the command failed. Returns the exit status.
    int fails(int status, char const* why) const;

    CLI::App             app_;
    common_options       options_;
    std::string          given_workdir_;  // with -w
    bool                 needs_workdir_ = false;
    std::function<int()> chosen_;
    failure_printer      print_failure_;
};

// One for each command or group of commands, in the order of the help.
void add_send(command_line& line);
void add_post(command_line& line);
void add_engine(command_line& line);
void add_queue(command_line& line);
void add_settings(command_line& line);
void add_check(command_line& line);
void add_receive(command_line& line);
void add_password(command_line& line);
void add_completion(command_line& line);

}  // namespace zelieml::program

#endif
