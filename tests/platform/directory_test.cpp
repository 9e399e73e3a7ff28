// directory_test.cpp - names in a directory, arrays of texts and the pools that keep them

#include "platform/directory.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/support/few_descriptors.h"
#include "tests/support/files.h"

namespace zelieml::test
{
namespace
{

using texts = std::vector<std::string>;

texts sorted_names(std::string const& directory)
{
    texts names;
    EXPECT_TRUE(platform::directory_names(directory.c_str(), names));
    std::sort(names.begin(), names.end());
    return names;
}

TEST(DirectoryNames, AreThoseOfAllEntries)
{
    temp_dir const folder;
    write_file(folder.file("x.sme"), "");
    write_file(folder.file(".hidden"), "");
    write_file(folder.file("...sme"), "");
    write_file(folder.file("a blank"), "");
    write_file(folder.file("\xe5\x8d\xb0.sme"), "");
    write_file(folder.file(std::string(255, 'n')), "");
    ::mkdir(folder.file("folder.sme").c_str(), 0755);
    write_file(folder.file("folder.sme/inside.sme"), "");
    ASSERT_EQ(::symlink("nowhere", folder.file("link.sme").c_str()), 0);
    ASSERT_EQ(::mkfifo(folder.file("fifo.sme").c_str(), 0600), 0);
    EXPECT_EQ(sorted_names(folder.path()),
              (texts{"...sme", ".hidden", "a blank", "fifo.sme", "folder.sme", "link.sme",
                     std::string(255, 'n'), "x.sme", "\xe5\x8d\xb0.sme"}));
}

TEST(DirectoryNames, AreManyInALargeDirectory)
{
    temp_dir const folder;
    texts          wanted;
    for (int i = 1000; i < 3000; ++i) {
        wanted.push_back(std::to_string(i) + ".sme");
        ASSERT_EQ(::symlink("nowhere", folder.file(wanted.back()).c_str()), 0);
    }
    EXPECT_EQ(sorted_names(folder.path()), wanted);
}

TEST(DirectoryNames, AreNoneInAnEmptyDirectory)
{
    temp_dir const folder;
    EXPECT_TRUE(sorted_names(folder.path()).empty());
    EXPECT_TRUE(sorted_names(folder.path() + "/").empty());
}

TEST(DirectoryNames, CannotBeHadOfAnythingElse)
{
    temp_dir const folder;
    write_file(folder.file("file"), "");
    struct {
        std::string path;
        char const* reason;
    } const cases[] = {
        {folder.file("missing"), "there is nothing of that name"},
        {folder.file("file"), "a file"},
        {folder.file("file/below"), "below a file"},
        {"", "an empty path"},
        {folder.path() + "/" + std::string(256, 'n'), "a name that no file can have"},
        {std::string(5000, '/') + folder.path(), "a path that is too long"},
    };
    for (auto const& c : cases) {
        texts names;
        EXPECT_FALSE(platform::directory_names(c.path.c_str(), names)) << c.reason;
        EXPECT_TRUE(names.empty()) << c.reason;
    }
}

TEST(DirectoryNames, CannotBeHadWithoutDescriptors)
{
    temp_dir const folder;
    texts          names;
    bool           listed = true;
    {
        few_descriptors const none(0);
        listed = platform::directory_names(folder.path().c_str(), names);
    }
    EXPECT_FALSE(listed);
}

TEST(DirectoryNames, LeaveNoDescriptorOpen)
{
    temp_dir const folder;
    int const      before = open_descriptors();
    for (int i = 0; i < 50; ++i) {
        texts names;
        platform::directory_names(folder.path().c_str(), names);
        platform::directory_names(folder.file("missing").c_str(), names);
    }
    EXPECT_EQ(open_descriptors(), before);
}

// ------------------------------------------------------------------ arrays

// The string at an index, or a word that says there is none.
std::string text_at(platform::text_array const* array, int index, std::size_t size = 100)
{
    std::string buf(size + 8, '#');
    bool const  got = platform::text_array_get(array, index, buf.data(), size);
    EXPECT_EQ(buf.substr(size), "########") << "past the end of the buffer";
    return got ? std::string(buf.c_str()) : "(none)";
}

TEST(TextArray, KeepsCopiesInTheirOrder)
{
    platform::text_array* const array = platform::text_array_create();
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(platform::text_array_count(array), 0);
    char text[] = "/w/a.sme";
    EXPECT_TRUE(platform::text_array_append(array, text));
    std::strcpy(text, "changed");
    EXPECT_TRUE(platform::text_array_append(array, ""));
    EXPECT_TRUE(platform::text_array_append(array, "/w/b.sme"));
    EXPECT_EQ(platform::text_array_count(array), 3);
    EXPECT_EQ(text_at(array, 0), "/w/a.sme");
    EXPECT_EQ(text_at(array, 1), "");
    EXPECT_EQ(text_at(array, 2), "/w/b.sme");
    platform::text_array_release(array);
}

TEST(TextArray, HasNothingOutsideItsBounds)
{
    platform::text_array* const array = platform::text_array_create();
    EXPECT_EQ(text_at(array, 0), "(none)") << "an empty array";
    platform::text_array_append(array, "one");
    for (int const index : {-1, 1, 2, 1000000, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(text_at(array, index), "(none)") << index;
    }
    platform::text_array_release(array);
}

TEST(TextArray, GivesATextWholeOrNotAtAll)
{
    platform::text_array* const array = platform::text_array_create();
    platform::text_array_append(array, "1234567");
    platform::text_array_append(array, "");
    struct {
        int         index;
        std::size_t size;
        char const* text;
        char const* reason;
    } const cases[] = {
        {0, 9, "1234567", "room to spare"},
        {0, 8, "1234567", "string and NUL fill it"},
        {0, 7, "(none)", "no room for the NUL"},
        {0, 1, "(none)", "room for the NUL only"},
        {0, 0, "(none)", "no room at all"},
        {1, 1, "", "an empty string needs room for its NUL"},
        {1, 0, "(none)", "and has none here"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(text_at(array, c.index, c.size), c.text) << c.reason;
    }
    platform::text_array_release(array);
}

// ------------------------------------------------------------------ pools

platform::text_array const* left_to_the_pool(char const* text)
{
    platform::text_array* const array = platform::text_array_create();
    platform::text_array_append(array, text);
    platform::text_array const* const same = platform::text_array_autorelease(array);
    EXPECT_EQ(same, array);
    return same;
}

// What is freed too early or never is found by the address sanitizer.
TEST(ReleasePool, KeepsAnArrayUntilItsEnd)
{
    platform::release_pool const pool;
    auto const* const            first  = left_to_the_pool("first");
    auto const* const            second = left_to_the_pool("second");
    EXPECT_EQ(text_at(first, 0), "first");
    EXPECT_EQ(text_at(second, 0), "second");
}

TEST(ReleasePool, NestsWithOthersOfItsThread)
{
    platform::release_pool const outer;
    auto const* const            before = left_to_the_pool("before");
    for (int i = 0; i < 3; ++i) {
        platform::release_pool const middle;
        auto const* const            kept = left_to_the_pool("middle");
        {
            platform::release_pool const inner;
            EXPECT_EQ(text_at(left_to_the_pool("inner"), 0), "inner");
            EXPECT_EQ(text_at(kept, 0), "middle");
        }
        EXPECT_EQ(text_at(kept, 0), "middle");
        EXPECT_EQ(text_at(left_to_the_pool("after the inner"), 0), "after the inner");
    }
    EXPECT_EQ(text_at(before, 0), "before");
}

TEST(ReleasePool, IsItsThreadsOwn)
{
    platform::release_pool const pool;
    auto const* const            kept = left_to_the_pool("kept");
    std::thread                  threads[3];
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            for (int i = 0; i < 100; ++i) {
                platform::release_pool const own;
                EXPECT_EQ(text_at(left_to_the_pool("own"), 0), "own");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(text_at(kept, 0), "kept");
}

}  // namespace
}  // namespace zelieml::test
