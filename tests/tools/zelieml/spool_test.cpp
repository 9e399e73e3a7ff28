// spool_test.cpp - what a work directory holds for the program

#include "tools/zelieml/spool.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <thread>
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
using program::held_name;
using program::held_names;
using program::look;
using program::service_lock;
using program::spool;
using program::spooled;
using program::stage;

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

    // Posts and takes a message. Its name then.
    held_name take(std::string const& name, stage reached = stage::first)
    {
        post(name);
        held_name const held = make.make(name, reached);
        EXPECT_EQ(place.take(name, held), 0);
        return held;
    }

    held_names make;
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
         {".zelieml", ".zelieml/engine", ".zelieml/sending", ".zelieml/reasons",
          ".zelieml/reasons/waiting", ".zelieml/reasons/undelivered", "undelivered"}) {
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
    for (char const* const name :
         {".zelieml", ".zelieml/engine", ".zelieml/sending", "undelivered"}) {
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
    SKIP_UNLESS_ROOT("a folder of another user's");
    ASSERT_EQ(::mkdir(file(".zelieml").c_str(), 0700), 0);
    ASSERT_EQ(::chown(file(".zelieml").c_str(), 12345, 12345), 0);
    auto const [status, text] = failure_of([&] { place.make(); });
    EXPECT_EQ(status, EX_CONFIG);
    EXPECT_NE(text.find("belongs to the user 12345"), text.npos) << text;
}

TEST_F(Spool, ListsTheOldestFirst)
{
    ::mkdir(file("undelivered").c_str(), 0700);
    auto const file = [&](std::string const& name) { return place.undelivered_path(name); };
    auto const post = [&](std::string const& name) { write_file(file(name), "to: a@b.test\n"); };
    int        age  = 10;
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
    EXPECT_EQ(names_of(place.undelivered()),
              (names{"c.sme", "a.sme", "b.sme", "e.sme", "d.sme", "x.sme", "y.sme"}));
}

TEST_F(Spool, SeesWhatIsNoMessage)
{
    post("two.sme");
    ::symlink("two.sme", file("link.sme").c_str());
    ::link(file("two.sme").c_str(), file("names.sme").c_str());
    ::mkdir(file("folder.sme").c_str(), 0700);
    ::mkfifo(file("pipe.sme").c_str(), 0600);
    for (char const* const name : {"two.sme", "link.sme", "names.sme", "folder.sme", "pipe.sme"}) {
        EXPECT_EQ(place.look_at(name), look::no_message) << name;
    }
    EXPECT_EQ(place.look_at("none.sme"), look::gone);
}

TEST_F(Spool, AFileIsInUseWhileItIsLockedOrEmpty)
{
    post("a.sme");
    write_file(file("b.sme"), "");
    EXPECT_EQ(place.look_at("a.sme"), look::ready);
    EXPECT_EQ(place.look_at("b.sme"), look::in_use) << "empty";
    set_age(file("b.sme"), 61);
    EXPECT_EQ(place.look_at("b.sme"), look::ready) << "empty, and old";

    descriptor const writer(::open(file("a.sme").c_str(), O_RDWR));
    ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
    EXPECT_EQ(place.look_at("a.sme"), look::in_use) << "locked";
    set_age(file("a.sme"), 3601);
    EXPECT_EQ(place.look_at("a.sme"), look::ready) << "locked, and old";
}

TEST_F(Spool, TakesAMessageAndMarksHowFarItIs)
{
    place.make();
    held_name const first = make.make("a.sme", stage::first);
    EXPECT_EQ(place.take("a.sme", first), ENOENT);
    post("a.sme");
    EXPECT_EQ(place.take("a.sme", first), 0);
    EXPECT_FALSE(file_exists(file("a.sme")));
    EXPECT_EQ(names_of(place.held()), names{first.file()});
    EXPECT_EQ(place.look_at_held(first.file()), look::ready);

    place.keep_reason(first, "why");
    EXPECT_EQ(place.rename_held(first.file(), first.at(stage::tried)), 0);
    EXPECT_EQ(place.reason(first), "why");
    held_name const another = make.make("a.sme", stage::second);
    EXPECT_EQ(place.rename_held(first.at(stage::tried).file(), another), 0);
    EXPECT_EQ(place.reason(first), "");
    EXPECT_EQ(place.reason(another), "why") << "it goes with the message";
    EXPECT_EQ(place.rename_held(first.file(), another), ENOENT);
    EXPECT_EQ(place.remove_held(another.file()), 0);
    EXPECT_EQ(place.remove_held(another.file()), ENOENT);
    EXPECT_EQ(place.reason(another), "");
    EXPECT_EQ(names_of(place.held()), names());
}

TEST_F(Spool, GivesUpWithAReason)
{
    place.make();
    std::string there;
    EXPECT_EQ(place.give_up(take("a.sme").file(), "why", there), 0);
    EXPECT_EQ(there, "a.sme");
    EXPECT_EQ(place.undelivered_reason("a.sme"), "why");
    held_name const second = take("a.sme");
    place.keep_reason(second, "why it waits");
    EXPECT_EQ(place.give_up(second.file(), "why not", there), 0);
    EXPECT_EQ(there, "a.sme~2");
    EXPECT_EQ(place.undelivered_reason("a.sme"), "why");
    EXPECT_EQ(place.undelivered_reason("a.sme~2"), "why not");
    EXPECT_EQ(place.reason(second), "");
    EXPECT_EQ(names_of(place.undelivered()), (names{"a.sme", "a.sme~2"}));
    EXPECT_EQ(names_of(place.held()), names());
    EXPECT_EQ(place.give_up(second.file(), "why", there), ENOENT);
}

TEST_F(Spool, TwoThreadsGiveUpUnderTwoNames)
{
    place.make();
    for (int i = 0; i < 500; ++i) {
        held_name const  one = take("a.sme");
        held_name const  two = take("a.sme");
        std::string      there[2];
        std::atomic<int> waiting{2};
        auto const       give_up = [&](held_name const& held, std::string& name) {
            for (--waiting; waiting > 0;) {
            }
            EXPECT_EQ(place.give_up(held.file(), "why", name), 0);
        };
        std::thread other([&] { give_up(one, there[0]); });
        give_up(two, there[1]);
        other.join();
        ASSERT_NE(there[0], there[1]);
        EXPECT_TRUE(place.drop_undelivered(there[0]));
        EXPECT_TRUE(place.drop_undelivered(there[1]));
    }
}

TEST_F(Spool, GivesUpWhatItCannotMoveLater)
{
    place.make();
    held_name const held = take("a.sme");
    ASSERT_EQ(::rmdir(file("undelivered").c_str()), 0);
    write_file(file("undelivered"), "");
    std::string there;
    int const   error = place.give_up(held.file(), "why", there);
    EXPECT_NE(error, 0);
    EXPECT_NE(error, ENOENT);
    EXPECT_EQ(names_of(place.held()), names{held.file()});
    ::unlink(file("undelivered").c_str());
    EXPECT_EQ(place.give_up(held.file(), "why", there), 0) << "it makes the folder";
}

TEST_F(Spool, PutsBackUnderANewName)
{
    place.make();
    EXPECT_EQ(place.put_back("a.sme"), "");
    std::string there;
    EXPECT_EQ(place.give_up(take("a.sme").file(), "why", there), 0);
    post("a.sme~2");
    EXPECT_EQ(place.put_back("a.sme"), "a.sme~3");
    EXPECT_EQ(place.put_back("a.sme"), "");
    EXPECT_EQ(place.undelivered_reason("a.sme"), "");
    EXPECT_EQ(read_file(file("a.sme~3")), "to: a@b.test\n");
    EXPECT_EQ(names_of(place.undelivered()), names());

    held_name const held = take("b.sme", stage::tried);
    place.keep_reason(held, "why");
    EXPECT_EQ(place.put_back_held(held.file()), "b.sme~2");
    EXPECT_EQ(place.put_back_held(held.file()), "");
    EXPECT_EQ(place.reason(held), "");
    EXPECT_TRUE(file_exists(file("b.sme~2")));
}

TEST_F(Spool, DropsMessagesAndReasons)
{
    place.make();
    std::string there;
    EXPECT_EQ(place.give_up(take("a.sme").file(), "why", there), 0);
    held_name const held = take("b.sme");
    place.keep_reason(held, "why");
    post("c.sme");
    EXPECT_FALSE(place.drop("a.sme"));
    EXPECT_TRUE(place.drop_undelivered("a.sme"));
    EXPECT_FALSE(place.drop_undelivered("a.sme"));
    EXPECT_FALSE(place.drop_undelivered("../c.sme"));
    EXPECT_TRUE(place.drop_held(held.file()));
    EXPECT_FALSE(place.drop_held(held.file()));
    EXPECT_FALSE(place.drop_held("../lock"));
    EXPECT_FALSE(place.drop("./c.sme"));
    EXPECT_TRUE(place.drop("c.sme"));
    post("settings");
    EXPECT_FALSE(place.drop("settings"));
    EXPECT_EQ(place.undelivered_reason("a.sme"), "");
    EXPECT_EQ(place.reason(held), "");
}

TEST_F(Spool, ForgetsTheReasonsOfMessagesThatAreGone)
{
    place.make();
    std::string     there;
    held_name const here = take("a.sme");
    held_name const gone = make.make("a.sme", stage::tried);
    place.keep_reason(here, "why");
    place.keep_reason(gone, "why");
    EXPECT_EQ(place.give_up(take("b.sme").file(), "why", there), 0);
    EXPECT_EQ(place.give_up(take("c.sme").file(), "why", there), 0);
    ::unlink(file("undelivered/c.sme").c_str());
    place.forget_old_reasons();
    EXPECT_EQ(place.reason(here), "why");
    EXPECT_EQ(place.reason(gone), "");
    EXPECT_EQ(place.undelivered_reason("b.sme"), "why");
    EXPECT_EQ(place.undelivered_reason("c.sme"), "");
}

TEST_F(Spool, AFullDiskCostsReasonsOnly)
{
    place.make();
    held_name const held = take("a.sme");
    place.keep_reason(held, "as it was");
    full_disk const full(4);
    place.keep_reason(held, "too long for this disk");
    EXPECT_EQ(place.reason(held), "as it was");
    std::string there;
    EXPECT_EQ(place.give_up(held.file(), "too long for this disk", there), 0);
    EXPECT_EQ(list_directory(file(".zelieml/reasons/undelivered")), names());
    service_lock const lock(place);
    EXPECT_TRUE(lock.is_valid(place)) << "without a number in it";
}

TEST_F(Spool, OthersMayShareTheLock)
{
    service_lock const lock(place, true);
    service_lock const second(place, true);
    EXPECT_EQ(failure_of([&] { service_lock const third(place); }).first, EX_TEMPFAIL);
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
