// message_file_test.cpp - which files are opened, and that what was opened is what is used

#include "libmsg/message_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "tests/support/closed_standard.h"
#include "tests/support/files.h"
#include "tests/support/skip.h"

using namespace zelieml;
using zelieml::test::temp_dir;

namespace
{

constexpr uid_t stranger = 65534;

std::string content(message_file const& file)
{
    char               bytes[100];
    std::int64_t const count = file.read(bytes, sizeof bytes, 0);
    return count >= 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "(no content)";
}

void link_to(std::string const& target, std::string const& path)
{
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
}

void make_larger(std::string const& path, std::int64_t size)
{
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0);  // with a hole
}

class MessageFiles : public ::testing::Test
{
protected:
    MessageFiles() { test::write_file(other_, "subject: another\n"); }

    temp_dir const    dir_;
    std::string const path_  = dir_.file("a.sme");
    std::string const other_ = dir_.file("other");
};

using NewMessageFile         = MessageFiles;
using OverwrittenMessageFile = MessageFiles;
using FollowedMessageFile    = MessageFiles;
using EnginesMessageFile     = MessageFiles;

}  // namespace

// --------------------------------------------------------------- a new file

TEST_F(NewMessageFile, HasANameThatNothingHad)
{
    test::write_file(dir_.file("file"), "kept");
    link_to(dir_.file("nowhere"), dir_.file("link"));
    for (char const* const name : {"file", "link"}) {
        EXPECT_FALSE(create_message_file(dir_.file(name).c_str())) << name;
        EXPECT_EQ(errno, EEXIST) << name;
    }
    EXPECT_FALSE(create_message_file(dir_.file("none/a.sme").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(create_message_file(nullptr));
    EXPECT_EQ(test::read_file(dir_.file("file")), "kept");
    EXPECT_FALSE(test::file_exists(dir_.file("nowhere")));
}

TEST_F(NewMessageFile, IsWrittenAndReadWhateverItsNameMeansByNow)
{
    message_holder const msg([] {
        void* made = nullptr;
        msg_create(&made);
        msg_set_subject(made, "mine");
        return made;
    }());
    message_file         file = create_message_file(path_.c_str());
    ASSERT_TRUE(file);
    link_to(other_, dir_.file("link"));
    ASSERT_EQ(std::rename(dir_.file("link").c_str(), path_.c_str()), 0);

    EXPECT_EQ(msg_write(msg.get(), file), 0);
    void* loaded = nullptr;
    EXPECT_EQ(msg_load(&loaded, file), 0);
    EXPECT_EQ(msg_get_subject(loaded), "mine");
    msg_destroy(loaded);
    EXPECT_EQ(msg_close(file), 0);
    EXPECT_EQ(test::read_file(other_), "subject: another\n");
}

TEST_F(NewMessageFile, IsReadFromItsBeginningEachTime)
{
    message_file file = create_message_file(path_.c_str());
    EXPECT_TRUE(file.write("subject: s", 10));
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(content(file), "subject: s");
    }
}

TEST_F(NewMessageFile, KnowsItsSize)
{
    message_file file = create_message_file(path_.c_str());
    EXPECT_EQ(file.size(), 0);
    EXPECT_TRUE(file.write("subject: s", 10));
    EXPECT_TRUE(file.write("\n", 1));
    EXPECT_EQ(file.size(), 11);
    EXPECT_EQ(open_message_file(path_.c_str()).size(), 11);
    EXPECT_EQ(follow_message_file(path_.c_str()).size(), 11);
}

TEST_F(NewMessageFile, KeepsClearOfTheStandardDescriptors)
{
    message_file file;
    EXPECT_TRUE(test::keeps_clear_of_standard([&] {
        file = create_message_file(path_.c_str());
        return file.write("x", 1);
    }));
}

TEST_F(NewMessageFile, IsClosedBeforeAnotherTakesItsPlace)
{
    int const    before = test::open_descriptors();
    message_file file   = create_message_file(path_.c_str());
    file                = create_message_file(dir_.file("b.sme").c_str());
    EXPECT_EQ(test::open_descriptors(), before + 1);
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(file.close()) << "nothing is left to close";
    EXPECT_EQ(test::open_descriptors(), before);
}

// --------------------------------------------------------------- a file that is overwritten

TEST_F(OverwrittenMessageFile, IsEmptyAndMayBeALinksTarget)
{
    link_to(other_, path_);
    link_to(dir_.file("new"), dir_.file("link"));
    EXPECT_TRUE(overwrite_message_file(path_.c_str()).write("x", 1));
    EXPECT_TRUE(overwrite_message_file(dir_.file("link").c_str()).write("y", 1));
    EXPECT_EQ(test::read_file(other_), "x");
    EXPECT_EQ(test::read_file(dir_.file("new")), "y");
    EXPECT_FALSE(overwrite_message_file(dir_.path().c_str()));
    EXPECT_FALSE(overwrite_message_file(nullptr));
}

TEST_F(OverwrittenMessageFile, NeedNotBeAFile)
{
    EXPECT_TRUE(overwrite_message_file("/dev/null").write("x", 1));
}

// --------------------------------------------------------------- a file that is read

TEST_F(FollowedMessageFile, IsRegularAndMayBeALinksTarget)
{
    link_to(other_, path_);
    EXPECT_EQ(content(follow_message_file(path_.c_str())), "subject: another\n");

    ASSERT_EQ(::mkfifo(dir_.file("pipe").c_str(), 0600), 0);
    for (std::string const& path :
         {dir_.file("pipe"), dir_.path(), dir_.file("none"), std::string("/dev/zero")}) {
        EXPECT_FALSE(follow_message_file(path.c_str())) << path;
    }
    EXPECT_FALSE(follow_message_file(nullptr));
}

TEST_F(EnginesMessageFile, HasOneNameAndIsRegular)
{
    EXPECT_EQ(content(open_message_file(other_.c_str())), "subject: another\n");

    ASSERT_EQ(::mkfifo(dir_.file("pipe").c_str(), 0600), 0);
    link_to(other_, dir_.file("link"));
    test::write_file(dir_.file("first"), "");
    ASSERT_EQ(::link(dir_.file("first").c_str(), dir_.file("second").c_str()), 0);
    for (char const* const name : {"pipe", "first", "second", "."}) {
        errno = 0;
        EXPECT_FALSE(open_message_file(dir_.file(name).c_str())) << name;
        EXPECT_EQ(errno, EPERM) << name;
    }
    EXPECT_FALSE(open_message_file(dir_.file("link").c_str()));
    EXPECT_FALSE(open_message_file(dir_.file("none").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(open_message_file(nullptr));
}

TEST_F(MessageFiles, KeepWhyTheyAreNotOpened)
{
    std::string const none = dir_.file("none");
    ASSERT_EQ(::mkfifo(dir_.file("pipe").c_str(), 0600), 0);
    link_to(other_, dir_.file("link"));
    EXPECT_EQ(open_message_file(none.c_str()).error(), ENOENT);
    EXPECT_EQ(open_message_file(dir_.file("pipe").c_str()).error(), EPERM);
    EXPECT_EQ(open_message_file(dir_.file("link").c_str()).error(), ELOOP);
    EXPECT_EQ(follow_message_file(none.c_str()).error(), ENOENT);
    EXPECT_EQ(follow_message_file(dir_.file("pipe").c_str()).error(), EPERM);
    EXPECT_EQ(create_message_file(other_.c_str()).error(), EEXIST);

    message_file file;
    EXPECT_EQ(file.error(), 0);
    file = open_message_file(none.c_str());
    EXPECT_EQ(file.error(), ENOENT);
    file = open_message_file(other_.c_str());
    EXPECT_EQ(file.error(), 0);
}

TEST_F(EnginesMessageFile, BelongsToItsOwner)
{
    uid_t const self = ::geteuid();
    EXPECT_TRUE(open_message_file(other_.c_str(), self));
    EXPECT_FALSE(open_message_file(other_.c_str(), self + 1));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(EnginesMessageFile, OfTheUserHimselfMayHaveAnySize)
{
    make_larger(other_, max_foreign_message + 1);
    message_file const file = open_message_file(other_.c_str());
    ASSERT_TRUE(file);
    char byte = 'x';
    EXPECT_EQ(file.read(&byte, 1, max_foreign_message), 1);
    EXPECT_EQ(byte, '\0');
}

TEST_F(EnginesMessageFile, OfAnotherUserHasALargestSize)
{
    SKIP_UNLESS_ROOT("a file of another user");
    ASSERT_EQ(::chown(other_.c_str(), stranger, stranger), 0);
    make_larger(other_, max_foreign_message);
    message_file const file = open_message_file(other_.c_str(), stranger);
    ASSERT_TRUE(file);
    char byte = 'x';
    EXPECT_EQ(file.read(&byte, 1, max_foreign_message - 1), 1);
    EXPECT_EQ(file.read(&byte, 1, max_foreign_message), 0);

    make_larger(other_, max_foreign_message + 1);
    EXPECT_FALSE(open_message_file(other_.c_str(), stranger));
    EXPECT_FALSE(open_message_file(other_.c_str())) << "found, not announced";
    // It grew while it was open.
    EXPECT_EQ(file.read(&byte, 1, max_foreign_message - 1), 1);
    EXPECT_EQ(file.read(&byte, 1, max_foreign_message), -1);
    EXPECT_EQ(errno, EFBIG);
    void* loaded = nullptr;
    EXPECT_EQ(msg_load(&loaded, file), -1);
    msg_destroy(loaded);
}
