// file_test.cpp - where the settings file is, and which entries are message files

#include "libemlw/file.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "libemlw/salvage.h"
#include "tests/support/files.h"

using namespace zelieml;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

TEST(ConfFullpath, IsTheSettingsFileInTheWorkDirectory)
{
    EXPECT_EQ(conf_fullpath("/w"), "/w/zelismes.cf");
    EXPECT_EQ(conf_fullpath(""), "/zelismes.cf");
    EXPECT_EQ(conf_fullpath("a\\b/"), "a\\b//zelismes.cf");
}

class MessageFiles : public ::testing::Test
{
protected:
    // The names that FindSMEFiles finds in a directory, sorted; "null" when it says null.
    static strings found(std::string const& directory)
    {
        platform::release_pool const      pool;
        platform::text_array const* const files = FindSMEFiles(directory.c_str());
        if (files == nullptr) {
            return {"null"};
        }
        EXPECT_GT(platform::text_array_count(files), 0) << "no match is null";
        strings names;
        for (int i = 0; i < platform::text_array_count(files); ++i) {
            char path[4096];
            EXPECT_TRUE(platform::text_array_get(files, i, path, sizeof path));
            EXPECT_EQ(std::string(path).substr(0, directory.size() + 1), directory + "/");
            names.push_back(std::string(path).substr(directory.size() + 1));
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    strings found() const { return found(dir_.path()); }

    void file(std::string const& name) const { test::write_file(dir_.file(name), ""); }

    // A directory whose path and "/" are so long, and a name that makes the whole path so long.
    std::string deep_directory(std::size_t length) const
    {
        std::string path = dir_.path();
        while (path.size() + 1 < length) {
            std::size_t const left = length - path.size() - 2;  // without both separators
            std::size_t const part = left <= 100 ? left : std::min<std::size_t>(100, left - 2);
            path += "/" + std::string(part, 'd');
            ::mkdir(path.c_str(), 0777);
        }
        EXPECT_EQ(path.size() + 1, length);
        return path;
    }
    static std::string name_for(std::string const& directory, std::size_t length)
    {
        return std::string(length - directory.size() - 1 - 4, 'm') + ".sme";
    }

    temp_dir const dir_;
};

TEST_F(MessageFiles, AreThoseOfTheRightName)
{
    file("x.sme");
    file("y.txt");
    EXPECT_EQ(found(), strings{"x.sme"});
}

TEST_F(MessageFiles, HaveTheRightNameAnywhereInTheirs)
{
    struct row {
        char const* name;
        bool        counts;
        char const* reason;
    };
    row const rows[] = {
        {"a.sme", true, "at the end"},
        {"a.sme.tmp", true, "in the middle"},
        {".sme", true, "the whole name"},
        {".smeb", true, "at the beginning"},
        {"a.b.sme", true, "after another dot"},
        {"a.sme b", true, "a blank after it"},
        {"..sme", true, "after a dot"},
        {"\xe7\xb4\x99.sme", true, "a name in UTF-8"},
        {"a%s%n.sme", true, "a name that looks like a format"},
        {"w\\20240101.sme", true, "a backslash is a letter"},
        {"b.SME", false, "other case"},
        {"asme", false, "no dot"},
        {"a.sm", false, "too short"},
        {"a.s.me", false, "not in one piece"},
        {"zelismes.cf", false, "the settings"},
    };
    strings wanted;
    for (row const& r : rows) {
        file(r.name);
        if (r.counts) {
            wanted.emplace_back(r.name);
        }
    }
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(found(), wanted);
}

TEST_F(MessageFiles, MayBeAnythingWithSuchAName)
{
    file("a.sme");
    ASSERT_EQ(::mkdir(dir_.file("directory.sme").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("nothing", dir_.file("link.sme").c_str()), 0);
    ASSERT_EQ(::mkfifo(dir_.file("pipe.sme").c_str(), 0666), 0);
    EXPECT_EQ(found(), (strings{"a.sme", "directory.sme", "link.sme", "pipe.sme"}));
}

TEST_F(MessageFiles, AreNotSoughtFurtherDown)
{
    ASSERT_EQ(::mkdir(dir_.file("below").c_str(), 0777), 0);
    file("below/a.sme");
    ASSERT_EQ(::mkdir(dir_.file("below.sme").c_str(), 0777), 0);
    file("below.sme/b.sme");
    EXPECT_EQ(found(), strings{"below.sme"});
}

TEST_F(MessageFiles, AreNullWhenThereAreNone)
{
    EXPECT_EQ(found(), strings{"null"}) << "an empty directory";
    file("y.txt");
    EXPECT_EQ(found(), strings{"null"}) << "no name that counts";
}

TEST_F(MessageFiles, AreNullWhenTheDirectoryCannotBeListed)
{
    file("file");
    struct row {
        std::string path;
        char const* reason;
    };
    row const rows[] = {
        {dir_.file("missing"), "there is none"},
        {dir_.file("file"), "a file"},
        {dir_.file("file") + "/x", "the way leads through a file"},
        {"", "no path"},
        {std::string(5000, 'd'), "longer than any path"},
    };
    for (row const& r : rows) {
        EXPECT_EQ(found(r.path), strings{"null"}) << r.reason;
    }
}

TEST_F(MessageFiles, HavePathsThatFitTheirBufferOrAreLeftOut)
{
    std::string const directory = deep_directory(240);
    struct row {
        std::size_t length;  // of the whole path, without its NUL
        bool        fits;
    };
    row const rows[] = {{250, true}, {254, true}, {255, true}, {256, false}, {300, false}};
    strings   wanted;
    for (row const& r : rows) {
        std::string const name = name_for(directory, r.length);
        test::write_file(directory + "/" + name, "");
        if (r.fits) {
            wanted.push_back(name);
        }
    }
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(found(directory), wanted);
}

TEST_F(MessageFiles, AreNullWhenAllPathsAreTooLong)
{
    std::string const directory = deep_directory(240);
    test::write_file(directory + "/" + name_for(directory, 256), "");
    EXPECT_EQ(found(directory), strings{"null"});
}

TEST_F(MessageFiles, LeaveNoDescriptorOpen)
{
    file("a.sme");
    int const before = test::open_descriptors();
    for (int again = 0; again < 3; ++again) {
        found();
        found(dir_.file("missing"));
        found(dir_.file("a.sme"));
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(MessageFiles, BelongToTheInnermostPool)
{
    file("a.sme");
    platform::release_pool const      outer;
    platform::text_array const* const kept = FindSMEFiles(dir_.path().c_str());
    ASSERT_NE(kept, nullptr);
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(found(), strings{"a.sme"});
    }
    char path[4096];
    EXPECT_TRUE(platform::text_array_get(kept, 0, path, sizeof path));
    EXPECT_EQ(path, dir_.file("a.sme"));
}

// ----------------------------------------------------- what salvage makes of them

TEST_F(MessageFiles, AreAppendedForSalvage)
{
    file("a.sme");
    strings files = {"before"};
    EXPECT_EQ(get_salvage_files(dir_.path().c_str(), files), 0);
    EXPECT_EQ(files, (strings{"before", dir_.file("a.sme")}));
}

TEST_F(MessageFiles, ThatAreNoneLeaveTheListForSalvage)
{
    strings files = {"before"};
    EXPECT_EQ(get_salvage_files(dir_.path().c_str(), files), 0);
    EXPECT_EQ(get_salvage_files(dir_.file("missing").c_str(), files), 0);
    EXPECT_EQ(files, strings{"before"});
}

// Its buffer is one byte shorter than that of the listing.
TEST_F(MessageFiles, ForSalvageFit254BytesOrAreLeftOut)
{
    std::string const directory = deep_directory(240);
    for (std::size_t const length : {253U, 254U, 255U, 256U}) {
        test::write_file(directory + "/" + name_for(directory, length), "");
    }
    strings files;
    EXPECT_EQ(get_salvage_files(directory.c_str(), files), 0);
    std::sort(files.begin(), files.end(), [](auto& a, auto& b) { return a.size() < b.size(); });
    EXPECT_EQ(files, (strings{directory + "/" + name_for(directory, 253),
                              directory + "/" + name_for(directory, 254)}));
}
