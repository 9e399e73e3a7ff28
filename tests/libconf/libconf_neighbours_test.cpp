// libconf_neighbours_test.cpp - the settings file among other users of the machine
//
// Several users are played by root, in children: an ordinary user runs only what one user shows.

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "libconf/libconf.h"
#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

constexpr uid_t owner    = 65533;  // of the settings and their directory
constexpr uid_t stranger = 65534;
constexpr gid_t shared   = 65532;  // a group that not everybody is in

struct stat status_of(std::string const& path)
{
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

// What a file may be used for and by whom, as text: "65533:65532 640".
std::string rights_of(std::string const& path)
{
    struct stat const status = status_of(path);
    char              text[64];
    std::snprintf(text, sizeof text, "%u:%u %03o", static_cast<unsigned>(status.st_uid),
                  static_cast<unsigned>(status.st_gid),
                  static_cast<unsigned>(status.st_mode & 07777));
    return text;
}

// Runs body in a child with a user's rights, and those of at most one group beside his own. Returns
// whether body did; 30 s at most.
bool as_user(uid_t user, std::vector<gid_t> const& groups, std::function<bool()> const& body)
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(30);
        bool const is_user = ::setgroups(groups.size(), groups.data()) == 0 &&
                             ::setresgid(user, user, user) == 0 &&
                             ::setresuid(user, user, user) == 0;
        ::_exit(is_user && body() ? 0 : 1);
    }
    int status = -1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

class SettingsAmongUsers : public testing::Test
{
protected:
    void SetUp() override
    {
        path = dir.file("zelismes.cf");
        tmp  = path + ".tmp";
        test::write_file(path, file);
        test::clear_traces();
    }

    int set() { return conf_set_string("k", "new", path.c_str()); }

    static void give(std::string const& path, uid_t user, gid_t group, mode_t mode)
    {
        ASSERT_EQ(::lchown(path.c_str(), user, group), 0) << path;
        ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
    }

    std::string const file    = "a = b\r\nk = old\r\n";
    std::string const changed = "a = b\r\nk = new\r\n";
    test::temp_dir    dir;
    std::string       path;
    std::string       tmp;
};

// The same with several users.
class SettingsAmongUsersAsRoot : public SettingsAmongUsers
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: plays several users";
        }
        SettingsAmongUsers::SetUp();
        give(dir.path(), owner, owner, 0755);
    }
};

TEST_F(SettingsAmongUsers, AreNotWrittenThroughALinkUnderTheTemporaryName)
{
    std::string const target = dir.file("target");
    for (bool const dangling : {false, true}) {
        test::write_file(path, file);
        if (!dangling) {
            test::write_file(target, "precious");
            ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
        }
        ASSERT_EQ(::symlink(target.c_str(), tmp.c_str()), 0);
        EXPECT_EQ(set(), 0) << dangling;
        EXPECT_EQ(test::read_file(path), changed) << dangling;
        EXPECT_TRUE(S_ISREG(status_of(path).st_mode)) << dangling;
        if (!dangling) {
            EXPECT_EQ(test::read_file(target), "precious");
            EXPECT_EQ(status_of(target).st_mode & 07777, 0640u);
            ::unlink(target.c_str());
        }
        EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"}) << dangling;
    }
}

TEST_F(SettingsAmongUsers, AreNotSeenByWhoHoldsAnOldTemporaryFileOpen)
{
    test::write_file(tmp, "left");
    unique_fd const held(::open(tmp.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(test::read_file(path), changed);
    char          seen[16];
    ssize_t const count = ::pread(held.get(), seen, sizeof seen, 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(::pwrite(held.get(), "changed", 7, 0), 7);
    EXPECT_EQ(test::read_file(path), changed) << "nor can he change them";
}

TEST_F(SettingsAmongUsersAsRoot, AreSetBesideATemporaryFileOfAnotherUser)
{
    give(path, 0, 0, 0600);
    test::write_file(tmp, "");
    give(tmp, owner, owner, 0666);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(test::read_file(path), changed);
    EXPECT_EQ(rights_of(path), "0:0 600");
}

TEST_F(SettingsAmongUsersAsRoot, AreSetByTheirOwnerAfterRootsWriteFailed)
{
    give(path, owner, owner, 0600);
    {
        test::full_disk const none(0);
        EXPECT_EQ(set(), -1);
    }
    EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; }));
    EXPECT_EQ(test::read_file(path), changed);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

TEST_F(SettingsAmongUsersAsRoot, StayAsTheyWereWhenATemporaryFileCannotBeDeleted)
{
    give(dir.path(), 0, 0, 01777);
    give(path, owner, owner, 0600);
    test::write_file(tmp, "planted");
    give(tmp, stranger, stranger, 0666);
    EXPECT_TRUE(as_user(owner, {}, [this] {
        return set() == -1 && test::trouble_traces() == strings{"error:ofstream(%s)"};
    }));
    EXPECT_EQ(test::read_file(path), file);
    EXPECT_EQ(test::read_file(tmp), "planted");
}

TEST_F(SettingsAmongUsers, AreNotMadeWhereADanglingLinkLeads)
{
    std::string const target = dir.file("target");
    ASSERT_EQ(::unlink(path.c_str()), 0);
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(set(), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:ofstream(%s)"});
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
    EXPECT_TRUE(S_ISLNK(status_of(path).st_mode));
}

TEST_F(SettingsAmongUsers, AreTheirMakersOnlyWhenNew)
{
    for (mode_t const mask : {0000u, 0022u, 0077u, 0177u, 0777u}) {
        ::unlink(path.c_str());
        mode_t const before = ::umask(mask);
        EXPECT_EQ(set(), 0) << std::oct << mask;
        ::umask(before);
        EXPECT_EQ(status_of(path).st_mode & 07777, 0600u) << std::oct << mask;
        EXPECT_EQ(status_of(path).st_uid, ::geteuid()) << std::oct << mask;
    }
}

}  // namespace
}  // namespace zelieml
