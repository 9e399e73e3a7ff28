// libqueue_test.cpp - message files are deleted here

#include "libqueue/libqueue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

TEST(Erase, DeletesOneFileAndNoOther)
{
    temp_dir const dir;
    test::write_file(dir.file("a.sme"), "a");
    test::write_file(dir.file("b.sme"), "b");
    test::clear_traces();

    EXPECT_EQ(iqmgr_erase(dir.file("a.sme").c_str()), 0);

    EXPECT_EQ(test::list_directory(dir.path()), strings{"b.sme"});
    EXPECT_EQ(test::traces(), strings{"removed %s"});
}

TEST(Erase, OfASymbolicLinkLeavesWhatItPointsTo)
{
    temp_dir const dir;
    test::write_file(dir.file("target"), "kept");
    ASSERT_EQ(::symlink(dir.file("target").c_str(), dir.file("link.sme").c_str()), 0);
    EXPECT_EQ(iqmgr_erase(dir.file("link.sme").c_str()), 0);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"target"});
}

TEST(Erase, OfWhatCannotBeRemovedIsTracedAndFails)
{
    temp_dir const dir;
    test::write_file(dir.file("file"), "");
    struct row {
        std::string path;
        char const* reason;
    };
    row const rows[] = {
        {dir.file("missing.sme"), "there is no such file"},
        {dir.file("missing/a.sme"), "there is no such directory"},
        {dir.file("file/a.sme"), "the directory is a file"},
        {dir.path(), "a directory that is not empty"},
        {"", "no path"},
        {std::string(5000, 'x'), "longer than any path"},
    };
    for (row const& r : rows) {
        test::clear_traces();
        EXPECT_EQ(iqmgr_erase(r.path.c_str()), -1) << r.reason;
        EXPECT_EQ(test::traces(), strings{"error:remove(%s)"}) << r.reason;
    }
    EXPECT_EQ(test::list_directory(dir.path()), strings{"file"});
}
