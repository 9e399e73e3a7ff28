// command_line_test.cpp - what is the same for all commands

#include <gtest/gtest.h>
#include <sysexits.h>

#include "tests/support/files.h"
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

}  // namespace

}  // namespace zelieml::test
