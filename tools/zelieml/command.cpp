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
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

constexpr char about[] =
    "Sends status mails, runs the service that sends them, and says why one was not sent.";

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

}  // namespace

command_line::command_line() : app_(about, "zelieml")
{
    app_.require_subcommand(1);
    app_.set_version_flag("--version", std::string("zelieml ") + eml_version());
    app_.footer(std::string("'zelieml COMMAND --help' says more, with examples.\n\n") +
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

CLI::Option& command_line::add_workdir(CLI::App& command)
{
    return *command
                .add_option("-w,--workdir", options_.workdir,
                            "The work directory, which holds the settings and the messages")
                ->type_name("DIR")
                ->envname("ZELIEML_WORKDIR")
                ->required();
}

void command_line::add_json(CLI::App& command)
{
    command.add_flag("--json", options_.json, "Print JSON");
}

int command_line::run(int argc, char** argv)
{
    try {
        app_.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app_.exit(error) == 0 ? EX_OK : EX_USAGE;
    }
    try {
        if (!options_.workdir.empty()) {
            options_.workdir = directory_at(options_.workdir);
        }
        return chosen_();
    } catch (failure const& error) {
        std::fprintf(stderr, "zelieml: %s\n", error.what());
        return error.status();
    } catch (std::bad_alloc const&) {
        std::fputs("zelieml: there is not enough memory\n", stderr);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "zelieml: %s\n", error.what());
    }
    return EX_SOFTWARE;
}

}  // namespace zelieml::program
