// message_head_test.cpp - what a list shows of a message file

#include "tools/zelieml/message_head.h"

#include <gtest/gtest.h>
#include <string>

#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

using zelieml::program::read_head;

constexpr char early[] = "from: tim@a.test\nto: anna@b.test\n";
constexpr char late[]  = "subject: late\n";

std::string lines_of(std::size_t size)
{
    std::string lines;
    while (lines.size() < size) {
        lines += "other: " + std::string(90, 'x') + "\n";
    }
    return lines;
}

TEST(MessageHead, ReadsTheBeginning)
{
    temp_dir const dir;
    write_file(dir.file("a.sme"), early + lines_of(60 << 10) + late);
    EXPECT_EQ(read_head(dir.file("a.sme")).subject, "late");
    write_file(dir.file("b.sme"), early + lines_of(70 << 10) + late);
    EXPECT_EQ(read_head(dir.file("b.sme")).subject, "");
    EXPECT_EQ(read_head(dir.file("b.sme")).to, "anna@b.test");
}

// Of the arguments of a process the length is not known before they are read.
TEST(MessageHead, ReadsNoMoreThoughAFileGrows)
{
    zelieml::test::program const process(
        {"/bin/sh", "-c", "read line", "\n" + (early + lines_of(70 << 10)) + late});
    std::string const arguments = "/proc/" + std::to_string(process.pid()) + "/cmdline";
    SKIP_UNLESS(file_exists(arguments), "the system has no /proc");
    EXPECT_TRUE(wait_until([&] { return read_head(arguments).to == "anna@b.test"; }));
    EXPECT_EQ(read_head(arguments).subject, "");
}

}  // namespace

}  // namespace zelieml::test
