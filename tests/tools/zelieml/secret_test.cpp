// secret_test.cpp - passwords at a prompt, from a descriptor and from standard input

#include <csignal>
#include <gtest/gtest.h>
#include <sysexits.h>

#include "tests/tools/zelieml/terminal_program.h"
#include "tests/tools/zelieml/zelieml_program.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

std::string const again = "The same again: ";

std::string encrypted(std::string password)
{
    unsigned char* const text =
        eml_encrypt_passwd(reinterpret_cast<unsigned char*>(password.data()));
    std::string const stored = reinterpret_cast<char*>(text);
    eml_encrypt_free_passwd(text);
    return stored;
}

// The outcome of a shell's line, in which $0 is the program.
outcome run_line(std::string const& line)
{
    program   run({"/bin/sh", "-c", line, ZELIEML_PROGRAM});
    int const status = run.wait();
    return {status, run.out(), run.err()};
}

TEST(Prompt, ShowsNothingOfTheAnswers)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    EXPECT_FALSE(run.echoes());
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for(again));
    EXPECT_FALSE(run.echoes());
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK);
    EXPECT_EQ(run.out(), encrypted("geheim") + "\n");
    EXPECT_EQ(run.err(), "");
    EXPECT_EQ(run.shown(), "Password: \r\n" + again + "\r\n");
}

TEST(Prompt, WantsTheSameTwice)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for(again));
    run.type("gehein\n");
    EXPECT_EQ(run.wait(), EX_DATAERR);
    EXPECT_EQ(run.out(), "");
    EXPECT_EQ(run.err(), "zelieml: the two passwords differ: start again\n");
}

TEST(Prompt, LetsALineBeMended)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("gehein\x7fm\n");
    ASSERT_TRUE(run.wait_for(again));
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK);
    EXPECT_EQ(run.out(), encrypted("geheim") + "\n");
}

TEST(Prompt, EndsWithoutAnAnswer)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("\x04");
    EXPECT_EQ(run.wait(), EX_NOINPUT);
    EXPECT_NE(run.err().find("no password was typed"), std::string::npos) << run.err();
}

class PromptSignal : public testing::TestWithParam<int>
{
};

TEST_P(PromptSignal, EndsTheProgramAndLeavesTheEchoOn)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("geh");
    EXPECT_FALSE(run.echoes());
    run.signal(GetParam());
    EXPECT_EQ(run.wait(), 128 + GetParam());  // which looks at the echo
    EXPECT_EQ(run.out(), "");
}

TEST_P(PromptSignal, EndsTheProgramAtTheSecondQuestionToo)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for(again));
    run.signal(GetParam());
    EXPECT_EQ(run.wait(), 128 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(Each, PromptSignal, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST(Prompt, CanBeInterruptedAtTheKeyboard)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("\x03");
    EXPECT_EQ(run.wait(), 128 + SIGINT);
}

TEST(Prompt, IsShownAgainAfterAStop)
{
    terminal_program run(zelieml_command({"password"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    run.type("lost\x1a");
    ASSERT_TRUE(run.wait_for_stop());
    EXPECT_TRUE(run.echoes());
    run.resume();
    ASSERT_TRUE(run.wait_for("Password: ", 2));
    EXPECT_FALSE(run.echoes());
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for(again));
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK);
    EXPECT_EQ(run.out(), encrypted("geheim") + "\n");
}

TEST(Prompt, LeavesIgnoredSignalsIgnored)
{
    terminal_program run({"/bin/sh", "-c", "trap '' HUP; exec \"$0\" password", ZELIEML_PROGRAM});
    ASSERT_TRUE(run.wait_for("Password: "));
    run.signal(SIGHUP);
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for(again));
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK);
}

TEST(Prompt, IsForATerminalOnly)
{
    terminal_program piped({"/bin/sh", "-c", "echo geheim | \"$0\" password", ZELIEML_PROGRAM});
    EXPECT_EQ(piped.wait(), EX_OK);
    EXPECT_EQ(piped.out(), encrypted("geheim") + "\n");
    EXPECT_EQ(piped.shown(), "");

    terminal_program named(
        {"/bin/sh", "-c", "echo geheim | \"$0\" password --password-fd 3 3<&0", ZELIEML_PROGRAM});
    EXPECT_EQ(named.wait(), EX_OK);
    EXPECT_EQ(named.out(), encrypted("geheim") + "\n");
}

TEST(Prompt, IsShownForADescriptorThatIsATerminal)
{
    terminal_program run(zelieml_command({"password", "--password-fd", "0"}));
    ASSERT_TRUE(run.wait_for("Password: "));
    EXPECT_FALSE(run.echoes());
    run.type("\x03");
    EXPECT_EQ(run.wait(), 128 + SIGINT);
}

TEST(Password, MayEndInOneLineBreak)
{
    for (char const* const end : {"", "\n", "\r\n"}) {
        outcome const run = run_zelieml({"password"}, std::string("geheim") + end);
        EXPECT_EQ(run.status, EX_OK);
        EXPECT_EQ(run.out, encrypted("geheim") + "\n");
        EXPECT_EQ(run.err, "");
    }
}

TEST(Password, IsTakenAsItIs)
{
    std::string const odd = " \t\x01\xff\xc3\xa4 ";
    EXPECT_EQ(run_zelieml({"password"}, odd).out, encrypted(odd) + "\n");
    std::string const longest(1023, 'x');
    EXPECT_EQ(run_zelieml({"password"}, longest + "\r\n").out, encrypted(longest) + "\n");
}

struct bad_case {
    char const* name;
    std::string input;
    char const* text;
};

TEST(Password, IsRefused)
{
    bad_case const cases[] = {
        {"empty", "", "empty"},
        {"a line break only", "\n", "empty"},
        {"a CR LF only", "\r\n", "empty"},
        {"two lines", "one\ntwo\n", "line break"},
        {"an empty line after it", "one\n\n", "line break"},
        {"a CR in it", "one\rtwo", "line break"},
        {"a NUL in it", std::string("one\0two", 7), "NUL"},
        {"too long", std::string(1024, 'x'), "longer than 1023 bytes"},
        {"far too long", std::string(5000, 'x'), "longer than 1023 bytes"},
    };
    for (bad_case const& c : cases) {
        SCOPED_TRACE(c.name);
        outcome const run = run_zelieml({"password"}, c.input);
        EXPECT_EQ(run.status, EX_DATAERR);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(c.text), std::string::npos) << run.err;
    }
}

TEST(Password, ComesFromADescriptor)
{
    outcome const run =
        run_line("printf geheim | { \"$0\" password --password-fd 7 7<&0 < /dev/null; }");
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out, encrypted("geheim") + "\n");
}

TEST(Password, NeedsADescriptorThatIsOpen)
{
    outcome const closed = run_zelieml({"password", "--password-fd", "99"});
    EXPECT_EQ(closed.status, EX_NOINPUT);
    EXPECT_NE(closed.err.find("descriptor 99"), std::string::npos) << closed.err;
    EXPECT_EQ(run_line("\"$0\" password <&-").status, EX_NOINPUT);
    EXPECT_EQ(run_zelieml({"password", "--password-fd", "-1"}).status, EX_USAGE);
}

TEST(Password, NeverComesFromTheCommandLine)
{
    std::vector<std::vector<std::string>> const lines = {
        {"password", "geheim"},
        {"password", "--password", "geheim"},
        {"password", "--password=geheim"},
        {"password", "--pasword=geheim"},
        {"password", "-pgeheim"},
        {"password", "so", "geheim"},
        {"password", "--password-fd", "geheim"},
        {"password", "--password-fd=1geheim"},
        {"password", "--json=geheim"},
        {"password", "--password-fd", "0", "--password-fd", "geheim"},
        {"settings", "set", "-w", "/", "smtp_passwd", "--password-fd", "geheim"},
        {"settings", "set", "-w", "/", "smtp_passwd", "--json=geheim"},
        {"settings", "set", "-w", "/", "smtp_passwd", "--workdir", "geheim"},
        {"settings", "set", "-w", "/", "smtp_passwd", "so", "geheim"},
        {"receive", "--delete=geheim"},
        {"receive", "--delete", "--port", "geheim"},
    };
    for (std::vector<std::string> const& line : lines) {
        SCOPED_TRACE(line[1]);
        outcome const run = run_zelieml(line);
        EXPECT_EQ(run.status, EX_USAGE);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.substr(0, 9), "zelieml: ");
        EXPECT_EQ(run.err.find("geheim"), std::string::npos) << run.err;
    }
}

TEST(Password, IsAskedForWhereAWordIsTooMany)
{
    for (char const* const word : {"geheim", "--password=geheim", "--pasword=geheim", "-pgeheim"}) {
        SCOPED_TRACE(word);
        outcome const run = run_zelieml({"password", word});
        EXPECT_NE(run.err.find("pass it with --password-fd"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("'zelieml password --help' says more"), std::string::npos)
            << run.err;
    }
}

TEST(Password, IsPrintedAsJson)
{
    EXPECT_EQ(run_zelieml({"password", "--json"}, "geheim").out,
              "{\"encrypted\":\"" + encrypted("geheim") + "\"}\n");
}

}  // namespace

}  // namespace zelieml::test
