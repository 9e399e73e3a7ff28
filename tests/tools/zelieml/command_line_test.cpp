// command_line_test.cpp - what is the same for all commands

#include <gtest/gtest.h>
#include <sysexits.h>

#include "tests/support/files.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/zelieml_program.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

TEST(CommandLine, NamesItsVersion)
{
    outcome const run = run_zelieml({"--version"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out, std::string("zelieml ") + eml_version() + "\n");
    EXPECT_EQ(run.err, "");
}

TEST(CommandLine, WantsACommand)
{
    outcome const run = run_zelieml({});
    EXPECT_EQ(run.status, EX_USAGE);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("--help"), run.err.npos) << run.err;
}

TEST(CommandLine, RefusesWhatItDoesNotKnow)
{
    EXPECT_EQ(run_zelieml({"fly"}).status, EX_USAGE);
    EXPECT_EQ(run_zelieml({"password", "--colour"}).status, EX_USAGE);
    EXPECT_EQ(run_zelieml({"password", "secret"}).status, EX_USAGE);
}

using strings = std::vector<std::string>;

struct {
    char const* name;
    strings     line;
    char const* says;
} const not_understood[] = {
    {"no command", {}, "no command is named: 'zelieml --help' names all"},
    {"no command of a group", {"queue"}, "no command is named: 'zelieml queue --help' names all"},
    {"no command after an option", {"-w", "/"}, "no command is named: 'zelieml --help' names all"},
    {"an unknown command", {"snd"}, "there is no command snd: 'zelieml --help' names all"},
    {"an unknown command with more",
     {"-w", "/", "snd", "--to", "a@b.test"},
     "there is no command snd: 'zelieml --help' names all"},
    {"an unknown command of a group",
     {"queue", "lst", "-w", "/"},
     "there is no command lst: 'zelieml queue --help' names all"},
    {"an unknown option",
     {"send", "-w", "/", "--form=a@b.test"},
     "there is no option --form: 'zelieml send --help' names all"},
    {"an unknown short option",
     {"queue", "list", "-xy"},
     "there is no option -x: 'zelieml queue list --help' names all"},
    {"an unknown option of the program",
     {"--form", "send"},
     "there is no option --form: 'zelieml --help' names all"},
    {"a word too many",
     {"queue", "list", "-w", "/", "25"},
     "'25' is one word too many: 'zelieml queue list --help' says more"},
    {"a word too many, which may be a password",
     {"settings", "get", "-w", "/", "smtp_passwd", "25"},
     "this is one word too many: 'zelieml settings get --help' says more"},
    {"an option that must be there",
     {"send", "-w", "/", "--to", "a@b.test"},
     "--from is missing: 'zelieml send --help' says more"},
    {"two options that must be there",
     {"send", "-w", "/", "--subject=one"},
     "--from and --to are missing: 'zelieml send --help' says more"},
    {"an argument that must be there",
     {"queue", "drop", "-w", "/"},
     "MESSAGE is missing: 'zelieml queue drop --help' says more"},
    {"an option that is given twice",
     {"send", "--subject", "one", "--subject", "two"},
     "--subject is given more than once: give it once: 'zelieml send --help' says more"},
    {"a work directory before and after the command",
     {"-w", "/", "queue", "list", "-w", "/"},
     "--workdir is given more than once: give it once: 'zelieml queue list --help' says more"},
    {"an option without its value",
     {"send", "--subject"},
     "--subject has no value: write TEXT after it: 'zelieml send --help' says more"},
    {"an option whose value is left away",
     {"send", "-w", "/", "--from", "a@b.test", "--to="},
     "--to has no value: write ADDRESS after it: 'zelieml send --help' says more"},
    {"a flag with a value",
     {"queue", "list", "--json=loud"},
     "--json takes no value: leave it away: 'zelieml queue list --help' says more"},
    {"an option that goes with another",
     {"engine", "-w", "/", "--symbol", "s"},
     "--symbol goes with --bare only: give both, or neither: 'zelieml engine --help' says more"},
    {"options that do not go together",
     {"queue", "--json", "list", "-w", "/", "--names"},
     "--json and --names do not go together: give one of them: 'zelieml queue list --help' says "
     "more"},
    {"a number that is none",
     {"engine", "-w", "/", "--stop-timeout", "3s"},
     "--stop-timeout: write a number from 0 to 86400: 'zelieml engine --help' says more"},
    {"an empty work directory",
     {"settings", "show", "-w", ""},
     "--workdir: it is empty: name a directory: 'zelieml settings show --help' says more"},
    {"no work directory",
     {"settings", "show"},
     "no work directory is named: name it with -w, or in ZELIEML_WORKDIR"},
    {"a work directory where there is none",
     {"-w", "/", "completion", "bash"},
     "there is no option -w: 'zelieml completion --help' names all"},
    {"control characters",
     {"s\033[2Jnd"},
     "there is no command s?[2Jnd: 'zelieml --help' names all"},
};

TEST(CommandLine, SaysWhatIsWrongAndWhatToDo)
{
    for (auto const& c : not_understood) {
        SCOPED_TRACE(c.name);
        outcome const run = run_zelieml(c.line);
        EXPECT_EQ(run.status, EX_USAGE);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, std::string("zelieml: ") + c.says + "\n");
    }
}

TEST(CommandLine, TakesCommonOptionsBeforeTheCommand)
{
    temp_dir const dir;
    write_file(dir.file("zelismes.cf"), "smtp_port=25\r\n");
    strings const lines[] = {
        {"settings", "get", "smtp_port", "-w", dir.path(), "--json"},
        {"-w", dir.path(), "--json", "settings", "get", "smtp_port"},
        {"-w" + dir.path(), "settings", "--json", "get", "smtp_port"},
        {"settings", "--workdir", dir.path(), "get", "--json", "smtp_port"},
        {"--workdir=" + dir.path(), "settings", "get", "smtp_port", "--json"},
    };
    for (strings const& line : lines) {
        SCOPED_TRACE(line[0]);
        outcome const run = run_zelieml(line);
        EXPECT_EQ(run.status, EX_OK);
        EXPECT_EQ(run.out, "{\"key\":\"smtp_port\",\"value\":\"25\"}\n");
        EXPECT_EQ(run.err, "");
    }
    EXPECT_EQ(run_zelieml({"-w", dir.path(), "--version"}).status, EX_OK);
}

// Every command has its own option, and the environment is the same for all.
TEST(CommandLine, PrefersTheOptionToTheEnvironment)
{
    temp_dir const    named;
    temp_dir const    other;
    set_for_now const environment("ZELIEML_WORKDIR", other.path());
    write_file(named.file("zelismes.cf"), "smtp_port=25\r\n");
    write_file(named.file("a.sme"), "");
    write_file(other.file("zelismes.cf"), "smtp_port=587\r\n");
    EXPECT_EQ(run_zelieml({"settings", "get", "smtp_port", "-w", named.path()}).out, "25\n");
    EXPECT_EQ(run_zelieml({"settings", "get", "smtp_port"}).out, "587\n");
    EXPECT_EQ(run_zelieml({"queue", "list", "--names", "-w", named.path()}).out, "a.sme\n");
    EXPECT_EQ(run_zelieml({"queue", "list", "-w", named.file("nowhere")}).status, EX_NOINPUT);
}

TEST(CommandLine, TakesNoEmptyWorkDirectory)
{
    set_for_now const environment("ZELIEML_WORKDIR", "");
    outcome const     run = run_zelieml({"post", "--from", "a@b.test", "--to", "a@b.test"});
    EXPECT_EQ(run.status, EX_USAGE);
    EXPECT_EQ(run.err, "zelieml: ZELIEML_WORKDIR is empty: name a directory\n");
    for (strings line : {strings{"post", "--from", "a@b.test", "--to", "a@b.test"},
                         strings{"queue", "list"}, strings{"settings", "show"},
                         strings{"receive", "--delete", "--host", "a.test", "--user", "b"}}) {
        SCOPED_TRACE(line[0]);
        line.insert(line.end(), {"-w", ""});
        outcome const refused = run_zelieml(line);
        EXPECT_EQ(refused.status, EX_USAGE);
        EXPECT_NE(refused.err.find("--workdir: it is empty"), std::string::npos) << refused.err;
    }
}

}  // namespace

}  // namespace zelieml::test
