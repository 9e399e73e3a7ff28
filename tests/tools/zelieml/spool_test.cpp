// spool_test.cpp - what a work directory holds for the program

#include "tools/zelieml/spool.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/skip.h"
#include "tools/zelieml/failure.h"

namespace zelieml::test
{

namespace
{

using program::failure;
using program::service_lock;
using program::spool;
using program::spooled;

using names = std::vector<std::string>;

names names_of(std::vector<spooled> const& files)
{
    names all;
    for (spooled const& file : files) {
        all.push_back(file.name);
    }
    return all;
}

void set_age(std::string const& path, time_t seconds, long nanoseconds = 0)
{
    timespec const time     = {::time(nullptr) - seconds, nanoseconds};
    timespec const times[2] = {time, time};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// What a call throws: its exit status and text.
template <class Call>
std::pair<int, std::string> failure_of(Call&& call)
{
    try {
        call();
    } catch (failure const& error) {
        return {error.status(), error.what()};
    }
    return {EX_OK, ""};
}

class Spool : public testing::Test
{
protected:
    temp_dir const dir;
    spool const    place{dir.path()};

    std::string file(std::string const& name) const { return dir.file(name); }
    void        post(std::string const& name) const { write_file(file(name), "to: a@b.test\n"); }
};

TEST_F(Spool, AMessageIsWhatTheEngineTakesForOne)
{
    EXPECT_TRUE(program::is_message_name("a.sme"));
    EXPECT_TRUE(program::is_message_name("a.smeared"));
    EXPECT_FALSE(program::is_message_name("a.sm"));
}

TEST_F(Spool, AnotherNameIsStillAMessages)
{
    EXPECT_EQ(program::another_name("a.sme"), "a.sme~2");
    EXPECT_EQ(program::another_name("a.sme~2"), "a.sme~3");
    EXPECT_EQ(program::another_name("a.sme~9"), "a.sme~10");
    EXPECT_EQ(program::another_name("a~.sme~x"), "a~.sme~x~2");
    for (std::string const& longest :
         {std::string(NAME_MAX - 4, 'x') + ".sme", ".sme" + std::string(NAME_MAX - 4, 'x')}) {
        std::string const other = program::another_name(longest);
        EXPECT_LE(other.size(), std::size_t{NAME_MAX});
        EXPECT_TRUE(program::is_message_name(other)) << other;
        EXPECT_NE(other, longest);
    }
}

TEST_F(Spool, MakesWhatIsMissing)
{
    place.make();
    for (char const* const name :
         {".zelieml", ".zelieml/engine", ".zelieml/reasons", "undelivered"}) {
        struct stat status = {};
        ASSERT_EQ(::lstat(file(name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 07777U, 0700U) << name;
    }
    write_file(file("zelismes.cf"), "smtp_port = 25\r\n");
    EXPECT_EQ(read_file(place.engine_path() + "/zelismes.cf"), "smtp_port = 25\r\n");

    ::unlink((place.engine_path() + "/zelismes.cf").c_str());
    ::symlink("elsewhere", (place.engine_path() + "/zelismes.cf").c_str());
    place.make();
    place.make();
    EXPECT_EQ(read_file(place.engine_path() + "/zelismes.cf"), "smtp_port = 25\r\n");
}

TEST_F(Spool, UsesNoFolderThatOthersCanWriteTo)
{
    for (char const* const name : {".zelieml", ".zelieml/engine", "undelivered"}) {
        place.make();
        ASSERT_EQ(::chmod(file(name).c_str(), 0770), 0);
        auto const [status, text] = failure_of([&] { place.make(); });
        EXPECT_EQ(status, EX_CONFIG) << name;
        EXPECT_NE(text.find("chmod 700 " + file(name)), text.npos) << text;
        ASSERT_EQ(::chmod(file(name).c_str(), 0700), 0);
    }
}

TEST_F(Spool, UsesNoLinkAndNoFile)
{
    ASSERT_EQ(::mkdir(file("other").c_str(), 0700), 0);
    ASSERT_EQ(::symlink("other", file("undelivered").c_str()), 0);
    EXPECT_EQ(failure_of([&] { place.make(); }).first, EX_CONFIG);
    EXPECT_EQ(failure_of([&] { place.undelivered(); }).first, EX_CONFIG);
    ::unlink(file("undelivered").c_str());
    write_file(file("undelivered"), "");
    EXPECT_EQ(failure_of([&] { place.make(); }).first, EX_CONFIG);
}

TEST_F(Spool, UsesNoFolderOfAnotherUser)
{
    SKIP_UNLESS_ROOT("makes a folder of another user's");
    ASSERT_EQ(::mkdir(file(".zelieml").c_str(), 0700), 0);
    ASSERT_EQ(::chown(file(".zelieml").c_str(), 12345, 12345), 0);
    auto const [status, text] = failure_of([&] { place.make(); });
    EXPECT_EQ(status, EX_CONFIG);
    EXPECT_NE(text.find("belongs to the user 12345"), text.npos) << text;
}

TEST_F(Spool, ListsTheOldestFirst)
{
    int age = 10;
    for (char const* const name : {"c.sme", "a.sme", "b.sme"}) {
        post(name);
        set_age(file(name), age--);
    }
    post("e.sme");
    set_age(file("e.sme"), 5, 2000);
    post("d.sme");
    set_age(file("d.sme"), 5, 3000);
    post("y.sme");
    post("x.sme");
    set_age(file("y.sme"), 1);
    set_age(file("x.sme"), 1);
    post("no message");
    ::symlink("a.sme", file("link.sme").c_str());
    post("two.sme");
    ::link(file("two.sme").c_str(), file("names.sme").c_str());
    ::mkdir(file("folder.sme").c_str(), 0700);
    EXPECT_EQ(names_of(place.waiting()),
              (names{"c.sme", "a.sme", "b.sme", "e.sme", "d.sme", "x.sme", "y.sme"}));
}

TEST_F(Spool, AFileIsInUseWhileItIsLockedOrEmpty)
{
    post("a.sme");
    write_file(file("b.sme"), "");
    auto const in_use = [&](std::size_t which) { return place.is_in_use(place.waiting()[which]); };
    EXPECT_FALSE(in_use(0));
    EXPECT_TRUE(in_use(1)) << "empty";
    set_age(file("b.sme"), 61);
    EXPECT_FALSE(in_use(0)) << "empty, and old";

    descriptor const writer(::open(file("a.sme").c_str(), O_RDWR));
    ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
    EXPECT_TRUE(in_use(1)) << "locked";
    set_age(file("a.sme"), 3601);
    EXPECT_FALSE(in_use(0)) << "locked, and old";
}

TEST_F(Spool, GivesUpWithAReason)
{
    place.make();
    int error = -1;
    post("a.sme");
    EXPECT_EQ(place.give_up("a.sme", "why", error), "a.sme");
    EXPECT_EQ(error, 0);
    EXPECT_EQ(place.reason("a.sme"), "why");
    post("a.sme");
    EXPECT_EQ(place.give_up("a.sme", "why not", error), "a.sme~2");
    EXPECT_EQ(place.reason("a.sme"), "why") << "that of the undelivered one";
    EXPECT_EQ(place.reason("a.sme~2"), "why not");
    EXPECT_EQ(names_of(place.undelivered()), (names{"a.sme", "a.sme~2"}));
    EXPECT_EQ(names_of(place.waiting()), names());
    EXPECT_EQ(place.give_up("a.sme", "why", error), "");
    EXPECT_EQ(error, ENOENT);
}

TEST_F(Spool, GivesUpWhatItCannotMoveLater)
{
    place.make();
    post("a.sme");
    ASSERT_EQ(::rmdir(file("undelivered").c_str()), 0);
    write_file(file("undelivered"), "");
    int error = 0;
    EXPECT_EQ(place.give_up("a.sme", "why", error), "");
    EXPECT_NE(error, 0);
    EXPECT_NE(error, ENOENT);
    EXPECT_TRUE(file_exists(file("a.sme")));
    ::unlink(file("undelivered").c_str());
    EXPECT_EQ(place.give_up("a.sme", "why", error), "a.sme");
}

TEST_F(Spool, PutsBackUnderANewName)
{
    place.make();
    EXPECT_EQ(place.put_back("a.sme"), "");
    int error = 0;
    post("a.sme");
    place.give_up("a.sme", "why", error);
    post("a.sme~2");
    EXPECT_EQ(place.put_back("a.sme"), "a.sme~3");
    EXPECT_EQ(place.put_back("a.sme"), "");
    EXPECT_EQ(place.reason("a.sme~3"), "why");
    EXPECT_EQ(place.reason("a.sme"), "");
    EXPECT_EQ(read_file(file("a.sme~3")), "to: a@b.test\n");
    EXPECT_EQ(names_of(place.undelivered()), names());
}

TEST_F(Spool, DropsMessagesAndReasons)
{
    place.make();
    int error = 0;
    post("a.sme");
    place.give_up("a.sme", "why", error);
    post("b.sme");
    place.keep_reason("b.sme", "why");
    EXPECT_FALSE(place.drop("a.sme"));
    EXPECT_TRUE(place.drop_undelivered("a.sme"));
    EXPECT_FALSE(place.drop_undelivered("a.sme"));
    EXPECT_FALSE(place.drop_undelivered("../b.sme"));
    EXPECT_FALSE(place.drop("./b.sme"));
    EXPECT_TRUE(place.drop("b.sme"));
    post("settings");
    EXPECT_FALSE(place.drop("settings"));
    EXPECT_EQ(place.reason("a.sme"), "");
    EXPECT_EQ(place.reason("b.sme"), "");
}

TEST_F(Spool, ForgetsTheReasonsOfMessagesThatAreGone)
{
    place.make();
    int error = 0;
    post("a.sme");
    post("b.sme");
    place.give_up("b.sme", "why", error);
    for (char const* const name : {"a.sme", "b.sme", "c.sme"}) {
        place.keep_reason(name, "why");
    }
    place.forget_old_reasons();
    EXPECT_EQ(place.reason("a.sme"), "why");
    EXPECT_EQ(place.reason("b.sme"), "why");
    EXPECT_EQ(place.reason("c.sme"), "");
}

TEST_F(Spool, AFullDiskCostsReasonsOnly)
{
    place.make();
    post("a.sme");
    place.keep_reason("b.sme", "as it was");
    full_disk const full(4);
    place.keep_reason("b.sme", "too long for this disk");
    EXPECT_EQ(place.reason("b.sme"), "as it was");
    int error = 0;
    EXPECT_EQ(place.give_up("a.sme", "too long for this disk", error), "a.sme");
    EXPECT_EQ(list_directory(file(".zelieml/reasons")), names{"b.sme"});
    service_lock const lock(place);
    EXPECT_TRUE(lock.is_valid(place)) << "without a number in it";
}

TEST_F(Spool, OneServiceOnly)
{
    place.make();
    {
        service_lock const lock(place);
        auto const [status, text] = failure_of([&] { service_lock const second(place); });
        EXPECT_EQ(status, EX_TEMPFAIL);
        EXPECT_NE(text.find("the process " + std::to_string(::getpid())), text.npos) << text;
        EXPECT_TRUE(lock.is_valid(place));
        ::unlink(file(".zelieml/lock").c_str());
        EXPECT_FALSE(lock.is_valid(place));
        service_lock const third(place);
        EXPECT_FALSE(lock.is_valid(place));
    }
    service_lock const again(place);
    EXPECT_TRUE(again.is_valid(place));
}

}  // namespace

}  // namespace zelieml::test
