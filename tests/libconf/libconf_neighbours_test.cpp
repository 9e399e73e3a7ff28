// libconf_neighbours_test.cpp - the settings file among other users of the machine
//
// Several users are played by root, in children: an ordinary user runs only what one user shows.

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include "libconf/libconf.h"
#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/skip.h"
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

// Runs body in a child, for 30 s at most. Returns what body did.
bool in_child(std::function<bool()> const& body)
{
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(30);
        ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

// The same with the rights of a user, his own group and these groups.
bool as_user(uid_t user, std::vector<gid_t> const& groups, std::function<bool()> const& body)
{
    return in_child([&] {
        return ::setgroups(groups.size(), groups.data()) == 0 &&
               ::setresgid(user, user, user) == 0 && ::setresuid(user, user, user) == 0 && body();
    });
}

// What an access list allows, as digits of a mode.
struct rights {
    std::uint16_t of_user;  // the one that it names
    std::uint16_t of_group;
    std::uint16_t of_others;
};

// An access list as the kernel keeps it: the owner and the mask may read and write.
std::string list_for(uid_t user, rights const& allowed = {4, 0, 0})
{
    constexpr std::uint32_t nobody  = 0xffffffff;
    constexpr std::uint32_t version = 2;
    struct {
        std::uint16_t tag;
        std::uint16_t rights;
        std::uint32_t id;
    } const entries[] = {{0x01, 6, nobody},
                         {0x02, allowed.of_user, user},
                         {0x04, allowed.of_group, nobody},
                         {0x10, 6, nobody},
                         {0x20, allowed.of_others, nobody}};
    std::string list(reinterpret_cast<char const*>(&version), sizeof version);
    list.append(reinterpret_cast<char const*>(entries), sizeof entries);
    return list;
}

constexpr char const* own_list  = "system.posix_acl_access";
constexpr char const* new_files = "system.posix_acl_default";  // of a directory

bool set_list(std::string const& path, char const* which, std::string const& list)
{
    return ::setxattr(path.c_str(), which, list.data(), list.size(), 0) == 0;
}

// Empty: there is none.
std::string access_list_of(std::string const& path)
{
    char          list[256];
    ssize_t const size = ::getxattr(path.c_str(), own_list, list, sizeof list);
    return std::string(list, size > 0 ? static_cast<std::size_t>(size) : 0);
}

bool can_read(std::string const& path)
{
    return static_cast<bool>(unique_fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)));
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
        SKIP_UNLESS_ROOT("plays several users");
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

// A pipe takes the place of the file and back, also between a look at it and opening.
TEST_F(SettingsAmongUsers, AreReadWithoutWaitingForAPipe)
{
    std::string const pipe = dir.file("pipe");
    std::string const kept = dir.file("kept");
    std::string const next = dir.file("next");
    test::write_file(kept, file);
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    pid_t const exchanger = ::fork();
    if (exchanger == 0) {
        ::alarm(30);
        while (
            ::link(pipe.c_str(), next.c_str()) == 0 && ::rename(next.c_str(), path.c_str()) == 0 &&
            ::link(kept.c_str(), next.c_str()) == 0 && ::rename(next.c_str(), path.c_str()) == 0) {
        }
        ::_exit(1);
    }
    ASSERT_GT(exchanger, 0);
    EXPECT_TRUE(in_child([this] {
        int read = 0;
        for (int i = 0; i < 20000; ++i) {
            char         val[16];
            unsigned int len = sizeof val;
            read += conf_get_string("k", val, &len, path.c_str()) == 0 ? 1 : 0;
        }
        return read > 0;
    }));
    ::kill(exchanger, SIGKILL);
    ::waitpid(exchanger, nullptr, 0);
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

TEST_F(SettingsAmongUsersAsRoot, AreSetByTheirOwnerBesideAPipeOfAnotherUser)
{
    give(path, owner, owner, 0600);
    ASSERT_EQ(::mkfifo(tmp.c_str(), 0666), 0);
    give(tmp, stranger, stranger, 0666);
    EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; }));
    EXPECT_EQ(test::read_file(path), changed);
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

TEST_F(SettingsAmongUsers, HaveALinkUnderTheBackupNameDeletedAndNotItsTarget)
{
    std::string const target = dir.file("target");
    for (bool const dangling : {false, true}) {
        if (!dangling) {
            test::write_file(target, "precious");
        }
        ASSERT_EQ(::symlink(target.c_str(), (path + ".bak").c_str()), 0);
        EXPECT_EQ(set(), 0) << dangling;
        if (!dangling) {
            EXPECT_EQ(test::read_file(target), "precious");
            ::unlink(target.c_str());
        }
        EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"}) << dangling;
    }
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

TEST_F(SettingsAmongUsersAsRoot, KeepOwnerGroupAndRights)
{
    for (mode_t const mode : {0600u, 0640u, 0660u, 0604u, 0666u}) {
        give(path, owner, shared, mode);
        std::string const before = rights_of(path);
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(rights_of(path), before) << "after root's write";
        EXPECT_TRUE(as_user(owner, {shared}, [this] { return set() == 0; }));
        EXPECT_EQ(rights_of(path), before) << "after their owner's";
    }
}

TEST_F(SettingsAmongUsersAsRoot, AreTheirOwnersOnlyWhenTheirGroupCannotBeKept)
{
    struct {
        mode_t      before;
        char const* after;
        char const* reason;
    } const cases[] = {
        {0640, "65533:65533 600", "his own group may not do what that one may"},
        {0604, "65533:65533 600", "the group might not read: its members are others now"},
        {0666, "65533:65533 600", "one rule for all"},
        {0600, "65533:65533 600", "nothing to lose"},
    };
    for (auto const& c : cases) {
        give(path, owner, shared, c.before);
        EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; })) << c.reason;
        EXPECT_EQ(rights_of(path), c.after) << c.reason;
        EXPECT_EQ(test::read_file(path), changed) << c.reason;
    }
}

// Then the list is lost too, and with it whom it kept out.
TEST_F(SettingsAmongUsersAsRoot, KeepOutWhomTheirAccessListKeptOutWhenTheGroupCannotBeKept)
{
    struct {
        rights             allowed;
        std::vector<gid_t> groups;  // of the stranger
        char const*        reason;
    } const cases[] = {
        {{0, 4, 4}, {}, "the user that the list names"},
        {{4, 0, 4}, {shared}, "the group"},
    };
    for (auto const& c : cases) {
        give(path, owner, shared, 0600);
        uid_t const named = c.groups.empty() ? stranger : stranger - 10;
        SKIP_UNLESS(set_list(path, own_list, list_for(named, c.allowed)),
                    "the file system has no access lists");
        auto const stranger_reads = [&] {
            return as_user(stranger, c.groups, [this] { return can_read(path); });
        };
        EXPECT_FALSE(stranger_reads()) << c.reason;
        EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; })) << c.reason;
        EXPECT_FALSE(stranger_reads()) << c.reason;
        EXPECT_EQ(access_list_of(path), "") << c.reason;
        EXPECT_EQ(rights_of(path), "65533:65533 600") << c.reason;
    }
}

// A list handed down by the directory would grant rights that the settings did not.
TEST_F(SettingsAmongUsersAsRoot, GetNoAccessListFromTheirDirectoryWhenTheirRightsCannotBeKept)
{
    std::string const target = dir.file("target");
    for (bool const linked : {false, true}) {
        ::unlink(path.c_str());
        test::write_file(linked ? target : path, file);
        give(linked ? target : path, owner, shared, 0640);
        if (linked) {
            ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
            ASSERT_EQ(::lchown(path.c_str(), stranger, stranger), 0);
        }
        SKIP_UNLESS(set_list(dir.path(), new_files, list_for(stranger)),
                    "the file system has no access lists");
        EXPECT_TRUE(linked ? set() == 0 : as_user(owner, {}, [this] { return set() == 0; }));
        EXPECT_EQ(access_list_of(path), "") << linked;
        EXPECT_EQ(status_of(path).st_mode & 07777, 0600u) << linked;
    }
}

TEST_F(SettingsAmongUsersAsRoot, AreNotSetByWhoCannotKeepTheirOwner)
{
    give(dir.path(), owner, owner, 0777);
    give(path, owner, owner, 0666);
    EXPECT_TRUE(as_user(stranger, {}, [this] {
        return set() == -1 && test::trouble_traces() == strings{"error:ofstream(%s)"};
    }));
    EXPECT_EQ(test::read_file(path), file);
    EXPECT_EQ(rights_of(path), "65533:65533 666");
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

TEST_F(SettingsAmongUsersAsRoot, KeepTheirAccessList)
{
    std::string const list = list_for(stranger);
    give(path, owner, owner, 0600);
    SKIP_UNLESS(set_list(path, own_list, list), "the file system has no access lists");
    std::string const before = rights_of(path);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(access_list_of(path), list);
    EXPECT_EQ(rights_of(path), before);
    EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; }));
    EXPECT_EQ(access_list_of(path), list);
    EXPECT_EQ(rights_of(path), before);
    EXPECT_TRUE(as_user(stranger, {}, [this] { return can_read(path); }));
}

TEST_F(SettingsAmongUsersAsRoot, GetNoAccessListFromTheirDirectory)
{
    give(path, owner, owner, 0640);
    SKIP_UNLESS(set_list(dir.path(), new_files, list_for(stranger)),
                "the file system has no access lists");
    auto const stranger_reads = [this] { return can_read(path); };
    for (auto const& write : {0, 1}) {
        EXPECT_TRUE(write == 0 ? set() == 0 : as_user(owner, {}, [this] { return set() == 0; }));
        EXPECT_EQ(access_list_of(path), "");
        EXPECT_EQ(rights_of(path), "65533:65533 640");
        EXPECT_FALSE(as_user(stranger, {}, stranger_reads));
    }
    ::unlink(path.c_str());
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(status_of(path).st_mode & 07777, 0600u);
    EXPECT_FALSE(as_user(stranger, {}, stranger_reads)) << "a new file";
}

// Its bits may have protected the target only together with its directory's.
TEST_F(SettingsAmongUsersAsRoot, BehindAnothersLinkAreTheirOwnersOnly)
{
    std::string const target = dir.file("target");
    struct {
        uid_t       link;
        uid_t       target;
        char const* after;
        char const* reason;
    } const cases[] = {
        {0, owner, "65533:65533 664", "the writer's link"},
        {owner, owner, "65533:65533 664", "the link of the owner of the target"},
        {stranger, owner, "65533:65533 600", "another's link"},
        {owner, 0, "0:0 600", "another's link to the writer's file"},
        {owner, stranger, "65534:65534 600", "another's link to a third one's"},
    };
    for (auto const& c : cases) {
        ::unlink(path.c_str());
        test::write_file(target, file);
        give(target, c.target, c.target, 0664);
        ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
        ASSERT_EQ(::lchown(path.c_str(), c.link, c.link), 0);
        EXPECT_EQ(set(), 0) << c.reason;
        EXPECT_EQ(test::read_file(path), changed) << c.reason;
        EXPECT_EQ(rights_of(path), c.after) << c.reason;
        EXPECT_EQ(test::read_file(target), file) << c.reason;
    }
}

TEST_F(SettingsAmongUsersAsRoot, AreTheDirectoryOwnersWhenRootMakesThem)
{
    give(dir.path(), owner, shared, 0750);
    ::unlink(path.c_str());
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(rights_of(path), "65533:65532 600");
    EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; }));

    ::unlink(path.c_str());
    give(dir.path(), 0, 0, 0777);
    EXPECT_TRUE(as_user(owner, {}, [this] { return set() == 0; }));
    EXPECT_EQ(rights_of(path), "65533:65533 600") << "no other user's are given away";
}

// The directory of a path is where the path leads, however it is written.
TEST_F(SettingsAmongUsersAsRoot, AreTheDirectoryOwnersByAnyPath)
{
    struct working_directory {
        explicit working_directory(std::string const& path)
        {
            EXPECT_GE(before, 0);
            EXPECT_EQ(::chdir(path.c_str()), 0);
        }
        ~working_directory()
        {
            EXPECT_EQ(::fchdir(before), 0);
            ::close(before);
        }
        int const before = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    };
    test::temp_dir elsewhere;
    ASSERT_EQ(::symlink(dir.path().c_str(), elsewhere.file("link").c_str()), 0);
    working_directory const here(dir.path());
    for (std::string const& way : {std::string("zelismes.cf"), std::string("./zelismes.cf"),
                                   elsewhere.file("link/zelismes.cf")}) {
        ::unlink(path.c_str());
        EXPECT_EQ(conf_set_string("k", "new", way.c_str()), 0) << way;
        EXPECT_EQ(rights_of(path), "65533:65533 600") << way;
    }
    ::unlink(path.c_str());
    EXPECT_TRUE(in_child([this] {
        return ::chroot(dir.path().c_str()) == 0 &&
               conf_set_string("k", "new", "/zelismes.cf") == 0;
    })) << "in the root of all files";
    EXPECT_EQ(rights_of(path), "65533:65533 600");
}

}  // namespace
}  // namespace zelieml
