// notification_place_test.cpp - the directories of the sockets, and the users they are for
//
// Run by root, the test is several users; run by one of them it shows what one user can see, and
// skips the rest.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "support/unique_fd.h"
#include "tests/platform/notification_peers.h"
#include "tests/support/case_name.h"
#include "tests/support/notification_room.h"
#include "tests/support/skip.h"

namespace zelieml::test
{
namespace
{

namespace fs = std::filesystem;

using texts = std::vector<std::string>;

constexpr uid_t one_user     = 4711;
constexpr uid_t another_user = 4712;

bool is_root()
{
    return ::geteuid() == 0;
}

// A user to whom permissions apply: the one who runs the test, or one whom root can be.
uid_t ordinary_user()
{
    return is_root() ? one_user : ::geteuid();
}

surroundings within(notification_room const& room, uid_t user = ::geteuid())
{
    return {{room.variable()}, user};
}

mode_t mode_of(std::string const& path)
{
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// ------------------------------------------------------------------ where observers are

TEST(Place, IsTheUsersOwnWithoutASharedOne)
{
    notification_room const room;
    listener                one("object");
    EXPECT_EQ(one.added(), 0);
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 1U);
    EXPECT_EQ(post("object", "hello"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(room.everything(), texts{room.own()}) << "the directory stays";
}

TEST(Place, IsTheSharedOneWhenThereIsOne)
{
    notification_room const room;
    room.share();
    listener one("object");
    EXPECT_EQ(one.added(), 0);
    EXPECT_EQ(notification_room::sockets(room.shared()).size(), 1U);
    EXPECT_FALSE(file_exists(room.own()));
    EXPECT_EQ(post("object", "hello"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(room.everything(), texts{room.shared()});
}

TEST(Place, IsTheUsersOwnAlsoWithoutRun)
{
    notification_room const room;
    ASSERT_EQ(::rmdir((room.root() + "/run").c_str()), 0);
    listener one("object");
    EXPECT_EQ(one.added(), 0);
    EXPECT_EQ(post("object", "hello"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
}

TEST(Place, StaysReachableWhenTheSharedOneComesLater)
{
    notification_room const room;
    notification_peer       poster(within(room));
    listener                before("object");
    room.share();
    listener after("object");
    EXPECT_EQ(notification_room::sockets(room.own()).size(), 1U);
    EXPECT_EQ(notification_room::sockets(room.shared()).size(), 1U);
    EXPECT_EQ(post("object", "from here"), 0);
    EXPECT_EQ(poster.post("object", "from another process").result, 0);
    for (listener* const one : {&before, &after}) {
        EXPECT_EQ(one->heard().wait_for(2), 2U);
        EXPECT_EQ(one->heard().all(), (texts{"from here", "from another process"}));
    }
    EXPECT_EQ(before.remove(), 0);
    EXPECT_EQ(post("object", "again"), 0);
    EXPECT_EQ(after.heard().wait_for(3), 3U);
    EXPECT_EQ(after.remove(), 0);
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
    EXPECT_TRUE(notification_room::sockets(room.shared()).empty());
}

TEST(Place, OfALongPathIsAsGood)
{
    for (bool const shared : {false, true}) {
        notification_room const room(3);
        ASSERT_GT(room.root().size(), sizeof sockaddr_un::sun_path);
        if (shared) {
            room.share();
        }
        std::string const where = shared ? room.shared() : room.own();
        notification_peer peer(within(room));
        listener          one("object");
        listener          two("object");
        EXPECT_EQ(one.added(), 0);
        EXPECT_EQ(peer.observe("object"), "0");
        EXPECT_EQ(notification_room::sockets(where).size(), 3U);
        EXPECT_EQ(post("object", "from here"), 0);
        EXPECT_EQ(peer.post("object", "from another process").result, 0);
        EXPECT_EQ(one.heard().wait_for(2), 2U);
        EXPECT_EQ(two.heard().wait_for(2), 2U);
        EXPECT_EQ(peer.wait_for(2), 2U);
        peer.signal(SIGKILL);
        EXPECT_EQ(post("object", "again"), 0);
        EXPECT_EQ(one.heard().wait_for(3), 3U);
        EXPECT_EQ(notification_room::sockets(where).size(), 2U) << "the dead one's is removed";
        EXPECT_EQ(one.remove(), 0);
        EXPECT_EQ(two.remove(), 0);
        EXPECT_TRUE(notification_room::sockets(where).empty());
    }
}

TEST(Place, HasItsModesWhateverTheUmask)
{
    for (mode_t const mask : {0000U, 0022U, 0077U, 0777U}) {
        notification_room const room;
        mode_t const            before = ::umask(mask);
        listener                own("object");
        ::umask(before);
        room.share();
        ::umask(mask);
        listener shared("object");
        ::umask(before);
        ASSERT_EQ(own.added(), 0) << mask;
        ASSERT_EQ(shared.added(), 0) << mask;
        EXPECT_EQ(mode_of(room.own()), 0700U) << mask;
        EXPECT_EQ(mode_of(room.own() + "/" + notification_room::sockets(room.own()).at(0)), 0600U);
        EXPECT_EQ(mode_of(room.shared() + "/" + notification_room::sockets(room.shared()).at(0)),
                  0666U);
    }
}

// What removes old files from /tmp passes over a directory that is locked.
TEST(Place, IsLockedWhileItIsInUse)
{
    notification_room const room;
    listener                one("object");
    listener                two("object");
    unique_fd const         directory(::open(room.own().c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(::flock(directory.get(), LOCK_EX | LOCK_NB), -1);
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(::flock(directory.get(), LOCK_EX | LOCK_NB), -1) << "another uses it";
    EXPECT_EQ(two.remove(), 0);
    EXPECT_EQ(::flock(directory.get(), LOCK_EX | LOCK_NB), 0);
    listener three("object");
    EXPECT_EQ(three.added(), 0) << "nobody who holds a lock keeps an observer waiting";
}

// ------------------------------------------------------------------ places that are not used

struct spoiled_place {
    char const*                                   reason;
    std::function<void(notification_room const&)> spoil;
};

void make_directory(std::string const& path, uid_t owner = ::geteuid())
{
    EXPECT_EQ(::mkdir(path.c_str(), 0700), 0) << path;
    EXPECT_EQ(::chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0) << path;
}

using room_of = notification_room const&;

void expect_refused(std::vector<spoiled_place> const& cases)
{
    for (auto const& c : cases) {
        notification_room const room;
        c.spoil(room);
        texts const    before      = room.everything();
        int const      descriptors = open_descriptors();
        listener const one("object");
        EXPECT_EQ(one.added(), -1) << c.reason;
        EXPECT_EQ(post("object", "hello"), 0) << c.reason;
        EXPECT_EQ(room.everything(), before) << c.reason;
        EXPECT_EQ(open_descriptors(), descriptors) << c.reason;
    }
}

TEST(Place, ThatIsNotOursIsRefused)
{
    expect_refused({
        {"a file in the place of the own", [](room_of room) { write_file(room.own(), "a file"); }},
        {"a link to a good directory in the place of the own",
         [](room_of room) {
             make_directory(room.root() + "/good");
             EXPECT_EQ(::symlink("../good", room.own().c_str()), 0);
         }},
        {"a link to nowhere in the place of the own",
         [](room_of room) { EXPECT_EQ(::symlink("nowhere", room.own().c_str()), 0); }},
        {"a file in the place of the shared one",
         [](room_of room) { write_file(room.shared(), "a file"); }},
        {"a link to a good directory in the place of the shared one",
         [](room_of room) {
             make_directory(room.root() + "/good");
             EXPECT_EQ(::symlink("../good", room.shared().c_str()), 0);
         }},
        {"a link to nowhere in the place of the shared one",
         [](room_of room) { EXPECT_EQ(::symlink("nowhere", room.shared().c_str()), 0); }},
        {"a file in the place of /run or /tmp",
         [](room_of room) {
             std::string const top = room.root() + (is_root() ? "/run" : "/tmp");
             EXPECT_EQ(::rmdir(top.c_str()), 0);
             write_file(top, "a file");
         }},
    });
}

TEST(Place, OfAUserIsNowhereWithoutTmp)
{
    notification_room const room;
    ASSERT_EQ(::rmdir((room.root() + "/tmp").c_str()), 0);
    notification_peer peer(within(room, ordinary_user()));
    EXPECT_EQ(peer.observe("object"), "-1");
    EXPECT_EQ(peer.post("object", "hello").result, 0);
    EXPECT_TRUE(room.everything().empty());
}

TEST(Place, ThatIsAnotherUsersIsRefused)
{
    SKIP_UNLESS_ROOT("a directory of another user's");
    expect_refused({
        {"another user's directory in the place of the own",
         [](room_of room) { make_directory(room.own(), one_user); }},
        {"a user's directory in the place of the shared one",
         [](room_of room) { make_directory(room.shared(), one_user); }},
    });
}

TEST(Place, ThatCannotBeWrittenIsRefused)
{
    uid_t const user = ordinary_user();
    struct {
        char const* reason;
        bool        shared;
    } const cases[] = {{"the own", false}, {"the shared one", true}};
    for (auto const& c : cases) {
        notification_room const room;
        std::string const       where = c.shared ? room.shared() : room.own(user);
        make_directory(where, c.shared ? ::geteuid() : user);
        ASSERT_EQ(::chmod(where.c_str(), 0555), 0);
        texts const       before = room.everything();
        notification_peer peer(within(room, user));
        EXPECT_EQ(peer.observe("object"), "-1") << c.reason;
        EXPECT_EQ(peer.post("object", "hello").result, 0) << c.reason;
        EXPECT_EQ(room.everything(), before) << c.reason;
    }
}

TEST(Place, IsNotLookedForBehindALink)
{
    notification_room const room;
    listener                one("object");
    std::string const       elsewhere = room.root() + "/tmp/elsewhere";
    ASSERT_EQ(::rename(room.own().c_str(), elsewhere.c_str()), 0);
    ASSERT_EQ(::symlink("elsewhere", room.own().c_str()), 0);
    EXPECT_EQ(post("object", "behind a link"), 0);
    ASSERT_EQ(::unlink(room.own().c_str()), 0);
    ASSERT_EQ(::rename(elsewhere.c_str(), room.own().c_str()), 0);
    EXPECT_EQ(post("object", "back again"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.heard().all(), texts{"back again"});
}

TEST(Place, HoldsSocketsAndNoLinksToThem)
{
    notification_room const room;
    listener                one("object");
    std::string const       file      = notification_room::sockets(room.own()).at(0);
    std::string const       path      = room.own() + "/" + file;
    std::string const       elsewhere = room.root() + "/tmp/" + file;
    ASSERT_EQ(::rename(path.c_str(), elsewhere.c_str()), 0);
    ASSERT_EQ(::symlink(elsewhere.c_str(), path.c_str()), 0);
    EXPECT_EQ(post("object", "through a link"), 0);
    ASSERT_EQ(::unlink(path.c_str()), 0);
    write_file(path, "a file of that name");
    EXPECT_EQ(post("object", "to a file"), 0);
    ASSERT_EQ(::unlink(path.c_str()), 0);
    ASSERT_EQ(::rename(elsewhere.c_str(), path.c_str()), 0);
    EXPECT_EQ(post("object", "to the socket"), 0);
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.heard().all(), texts{"to the socket"});
}

// A socket in a directory of sockets, an hour old; the next observer removes it.
struct leftover : named_case {
    leftover(char const* reason, char const* its_suffix) : named_case(reason), suffix(its_suffix) {}

    leftover& fresh()
    {
        age = 0;
        return *this;
    }
    leftover& a_file()
    {
        type = S_IFREG;
        return *this;
    }
    leftover& stays()
    {
        kept = true;
        return *this;
    }

    char const* suffix;
    mode_t      type = S_IFSOCK;
    int         age  = 3600;  // in seconds
    bool        kept = false;
};

// Of an observer that was killed before its socket got its name.
TEST(Place, LosesSocketsThatNeverGotTheirNames)
{
    notification_room const room;
    listener const          first("object");  // makes the directory
    std::string const       start = room.own() + "/00112233445566778-4711-8899aabbccddeeff";

    leftover const cases[] = {
        leftover("nobody will give it its name", ".new"),
        leftover("it may get its name yet", "0.new").fresh().stays(),
        leftover("not a socket", "1.new").a_file().stays(),
        leftover("it has its name", ".sock").stays(),
    };
    for (leftover const& c : cases) {
        std::string const path = start + c.suffix;
        ASSERT_EQ(::mknod(path.c_str(), c.type | 0600, 0), 0) << path;
        timespec const then     = {::time(nullptr) - c.age, 0};
        timespec const times[2] = {then, then};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    listener const next("object");
    EXPECT_EQ(next.added(), 0);
    for (leftover const& c : cases) {
        EXPECT_EQ(file_exists(start + c.suffix), c.kept) << c;
    }
}

// What an observer hears of a post while its directory has another name, and then has its own.
texts heard_from(std::string const& name)
{
    notification_room const room;
    listener                one("object");
    std::string const       renamed = room.root() + "/tmp/" + name;
    EXPECT_EQ(::rename(room.own().c_str(), renamed.c_str()), 0) << name;
    EXPECT_EQ(post("object", "there"), 0);
    EXPECT_EQ(::rename(renamed.c_str(), room.own().c_str()), 0) << name;
    EXPECT_EQ(post("object", "back"), 0);
    EXPECT_TRUE(one.heard().wait_for_last("back")) << name;
    return one.heard().all();
}

TEST(Place, HasANameThatIsWrittenInOneWay)
{
    struct {
        char const* name;
        char const* reason;
    } const cases[] = {
        {".zelieml-00", "a number is written in one way"},
        {".zelieml-+0", "a number is written in one way"},
        {".zelieml- 0", "a number is written in one way"},
        {".zelieml-4294967296", "no user has such a number"},
        {".zelieml-0x", "not a number"},
        {".zelieml-root", "not a number"},
        {".zelieml-", "no number"},
        {"zelieml-0", "another name"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(heard_from(c.name), texts{"back"}) << c.reason;
    }
}

TEST(Place, OfAnyUserIsRootsToLookInto)
{
    SKIP_UNLESS_ROOT("to look into another user's directory");
    EXPECT_EQ(heard_from(".zelieml-4713"), (texts{"there", "back"}));
}

// ------------------------------------------------------------------ users

TEST(Users, ReachTheirOwnObservers)
{
    notification_room const room;
    uid_t const             user = ordinary_user();
    notification_peer       observer(within(room, user));
    notification_peer       same(within(room, user));
    ASSERT_EQ(observer.observe("object"), "0");
    EXPECT_EQ(notification_room::sockets(room.own(user)).size(), 1U);
    EXPECT_EQ(mode_of(room.own(user)), 0700U);
    EXPECT_EQ(same.post("object", "the same user").result, 0);
    EXPECT_EQ(observer.wait_for(1), 1U);
    EXPECT_EQ(observer.values(), texts{"the same user"});
}

TEST(Users, DoNotReachEachOthersObserversButRootReachesAll)
{
    SKIP_UNLESS_ROOT("several users");
    notification_room const room;
    notification_peer       observer(within(room, one_user));
    notification_peer       stranger(within(room, another_user));
    ASSERT_EQ(observer.observe("object"), "0");
    EXPECT_EQ(stranger.post("object", "the stranger").result, 0);
    EXPECT_EQ(post("object", "root"), 0);
    EXPECT_EQ(observer.wait_for(1), 1U);
    EXPECT_EQ(observer.values(), texts{"root"});
}

TEST(Users, DoNotReachRootsOwnObserver)
{
    SKIP_UNLESS_ROOT("an observer of root's");
    notification_room const room;
    listener                here("object");
    notification_peer       other(within(room, one_user));
    EXPECT_EQ(other.post("object", "the other").result, 0);
    EXPECT_EQ(post("object", "root"), 0);
    EXPECT_TRUE(here.heard().wait_for_last("root"));
    EXPECT_EQ(here.heard().all(), texts{"root"});
}

TEST(Users, FindObserversInEveryOrderOfAppearance)
{
    notification_room const room;
    uid_t const             user = ordinary_user();
    notification_peer       before(within(room, user));
    notification_peer       after(within(room, user));
    notification_peer       poster(within(room, user));
    ASSERT_EQ(before.observe("object"), "0");
    room.share();
    ASSERT_EQ(after.observe("object"), "0");
    EXPECT_EQ(notification_room::sockets(room.own(user)).size(), 1U);
    EXPECT_EQ(notification_room::sockets(room.shared()).size(), 1U);
    EXPECT_EQ(poster.post("object", "the user").result, 0);
    EXPECT_EQ(post("object", "the one who runs the test"), 0);
    for (notification_peer* const observer : {&before, &after}) {
        EXPECT_EQ(observer->wait_for(2), 2U);
        EXPECT_EQ(observer->values(), (texts{"the user", "the one who runs the test"}));
    }
    EXPECT_EQ(after.remove(), "0");
    EXPECT_EQ(before.remove(), "0");
    EXPECT_TRUE(notification_room::sockets(room.own(user)).empty());
    EXPECT_TRUE(notification_room::sockets(room.shared()).empty());
}

TEST(Users, RemoveWhatTheirOwnLeftInTheSharedPlace)
{
    notification_room const room;
    room.share();
    notification_peer dead(within(room, ordinary_user()));
    ASSERT_EQ(dead.observe("object"), "0");
    dead.signal(SIGKILL);
    EXPECT_EQ(post("object", "hello"), 0);
    EXPECT_TRUE(notification_room::sockets(room.shared()).empty());
}

TEST(Users, CannotRemoveWhatAnotherLeftInTheSharedPlace)
{
    SKIP_UNLESS_ROOT("several users");
    notification_room const room;
    room.share();
    notification_peer dead(within(room, one_user));
    ASSERT_EQ(dead.observe("object"), "0");
    dead.signal(SIGKILL);
    notification_peer stranger(within(room, another_user));
    auto const        posted = stranger.post("object", "hello");
    EXPECT_EQ(posted.result, 0);
    EXPECT_LT(posted.ms, 400);
    EXPECT_EQ(notification_room::sockets(room.shared()).size(), 1U);
}

// ------------------------------------------------------------------ whom an observer believes

// Files of several users, in a folder that is open to all.
class owned_files
{
public:
    explicit owned_files(notification_room const& room) : folder_(room.root() + "/files")
    {
        EXPECT_EQ(::mkdir(folder_.c_str(), 0755), 0);
    }

    std::string file(std::string const& name, uid_t owner) const
    {
        write_file(path(name), "a message");
        give(name, owner);
        return path(name);
    }
    std::string link(std::string const& name, std::string const& to, uid_t owner) const
    {
        EXPECT_EQ(::symlink(to.c_str(), path(name).c_str()), 0);
        give(name, owner);
        return path(name);
    }
    std::string directory(std::string const& name, uid_t owner) const
    {
        EXPECT_EQ(::mkdir(path(name).c_str(), 0755), 0);
        give(name, owner);
        return path(name);
    }
    std::string fifo(std::string const& name, uid_t owner) const
    {
        EXPECT_EQ(::mkfifo(path(name).c_str(), 0644), 0);
        give(name, owner);
        return path(name);
    }
    std::string path(std::string const& name) const { return folder_ + "/" + name; }

private:
    void give(std::string const& name, uid_t owner) const
    {
        EXPECT_EQ(::lchown(path(name).c_str(), owner, static_cast<gid_t>(-1)), 0) << name;
    }

    std::string folder_;
};

TEST(Trust, IsInTheOwnUserWhateverTheFile)
{
    notification_room const room;
    room.share();
    owned_files const files(room);
    uid_t const       user = ordinary_user();
    notification_peer observer(within(room, user));
    notification_peer same(within(room, user));
    ASSERT_EQ(observer.observe("object"), "0");
    texts const paths = {files.file("own.sme", user),
                         files.file("test's.sme", ::geteuid()),
                         files.path("missing.sme"),
                         files.directory("directory.sme", user),
                         "",
                         "not a path"};
    for (std::string const& path : paths) {
        EXPECT_EQ(same.post("object", path).result, 0);
    }
    EXPECT_EQ(observer.wait_for(paths.size()), paths.size());
    texts wanted = paths;
    std::replace(wanted.begin(), wanted.end(), std::string(), std::string("(no value)"));
    EXPECT_EQ(observer.values(), wanted);
}

TEST(Trust, IsInRootWhateverTheFile)
{
    SKIP_UNLESS_ROOT("to post as root to another user");
    notification_room const room;
    room.share();
    owned_files const files(room);
    notification_peer observer(within(room, one_user));
    ASSERT_EQ(observer.observe("object"), "0");
    texts const paths = {files.file("own.sme", one_user), files.path("missing.sme")};
    for (std::string const& path : paths) {
        EXPECT_EQ(post("object", path), 0);
    }
    EXPECT_EQ(observer.wait_for(paths.size()), paths.size());
    EXPECT_EQ(observer.values(), paths);
}

TEST(Trust, IsInAStrangerWhoOwnsTheFile)
{
    SKIP_UNLESS_ROOT("a stranger");
    notification_room const room;
    room.share();
    owned_files const files(room);
    notification_peer observer(within(room, one_user));
    notification_peer stranger(within(room, another_user));
    ASSERT_EQ(observer.observe("object"), "0");
    std::string const own    = files.file("own.sme", another_user);
    std::string const hidden = files.directory("hidden", another_user);
    ASSERT_EQ(::chmod(hidden.c_str(), 0700), 0);
    struct {
        char const* reason;
        std::string path;
        bool        believed;
    } const cases[] = {
        {"a file of the sender's", own, true},
        {"a file of the observer's", files.file("observer's.sme", one_user), false},
        {"a file of root's", files.file("root's.sme", 0), false},
        {"a file of a third user's", files.file("third.sme", 4713), false},
        {"a link of the sender's to a file of the sender's",
         files.link("link.sme", own, another_user), false},
        {"a link of the sender's to a file of root's",
         files.link("link2.sme", files.path("root's.sme"), another_user), false},
        {"a link of root's to a file of the sender's", files.link("link3.sme", own, 0), false},
        {"a directory", files.directory("directory.sme", another_user), false},
        {"a fifo", files.fifo("fifo.sme", another_user), false},
        {"a device", "/dev/null", false},
        {"nothing", files.path("missing.sme"), false},
        {"a path through a file", own + "/below.sme", false},
        {"a file that the observer cannot see", files.file("hidden/own.sme", another_user), false},
        {"no path", "", false},
        {"a path that no file has", std::string(300, 'p'), false},
    };
    texts wanted;
    for (auto const& c : cases) {
        EXPECT_EQ(stranger.post("object", c.path).result, 0) << c.reason;
        if (c.believed) {
            wanted.push_back(c.path);
        }
        post("object", c.reason);  // root's comes after it in any case
        wanted.push_back(c.reason);
        EXPECT_EQ(observer.wait_for(wanted.size()), wanted.size()) << c.reason;
        EXPECT_EQ(observer.values(), wanted) << c.reason;
    }
}

// A directory on the way to a stranger's file: root's, with mode 0755, and not relied on.
struct way : named_case {
    // its_path  below the folder that is open to all
    way(char const* reason, char const* its_path) : named_case(reason), path(its_path) {}

    way& of(uid_t user)
    {
        owner = user;
        return *this;
    }
    way& open_as(mode_t permissions)
    {
        mode = permissions;
        return *this;
    }
    way& is_safe()
    {
        believed = true;
        return *this;
    }

    char const* path;
    uid_t       owner    = 0;
    mode_t      mode     = 0755;
    bool        believed = false;
};

// What is his own to change is nobody else's to rely on.
TEST(Trust, IsNotInAStrangersOwnDirectories)
{
    SKIP_UNLESS_ROOT("a stranger");
    way const directories[] = {
        way("root's, closed", "root's").is_safe(),
        way("root's, open and sticky", "sticky").open_as(01777).is_safe(),
        way("root's, open", "open").open_as(0777),
        way("root's, open to its group", "group").open_as(0775),
        way("the engine's user's, closed", "user's").of(one_user).is_safe(),
        way("the engine's user's, open and sticky", "user's sticky")
            .of(one_user)
            .open_as(01777)
            .is_safe(),
        way("the engine's user's, open", "user's open").of(one_user).open_as(0777),
        way("the sender's", "sender's").of(another_user),
        way("the sender's, sticky", "sender's sticky").of(another_user).open_as(01777),
        way("a third user's", "third").of(4713),
        way("root's in the sender's", "sender's/root's"),
        way("root's in an open one", "open/root's"),
        way("the engine's user's in a sticky one", "sticky/user's").of(one_user).is_safe(),
    };
    notification_room const room;
    room.share();
    owned_files const files(room);
    for (way const& d : directories) {
        files.directory(d.path, d.owner);
        ASSERT_EQ(::chmod(files.path(d.path).c_str(), d.mode), 0);
    }
    files.link("link", files.path("user's"), 0);
    files.link("sticky/link", files.path("user's"), another_user);
    struct named_file {
        std::string reason;
        std::string path;
        std::string delivered;  // empty: not believed
    };
    std::vector<named_file> cases = {
        {"through root's link", files.path("link/x.sme"), files.path("user's/x.sme")},
        {"through the sender's link, which is not on the resolved path",
         files.path("sticky/link/x.sme"), files.path("user's/x.sme")},
        {"dots and slashes", files.path("open/..//root's/./x.sme"), files.path("root's/x.sme")},
        {"a directory that is no directory", files.path("root's/x.sme/y.sme"), ""},
        {"a relative path", "x.sme", ""},
        {"the root directory", "/", ""},
        {"nothing in the root directory", "/zelieml-test-nothing.sme", ""},
    };
    for (way const& d : directories) {
        std::string const path = files.file(std::string(d.path) + "/x.sme", another_user);
        cases.push_back({d.name, path, d.believed ? path : ""});
    }

    notification_peer observer(within(room, one_user));
    notification_peer stranger(within(room, another_user));
    ASSERT_EQ(observer.observe("object"), "0");
    texts wanted;
    for (named_file const& c : cases) {
        EXPECT_EQ(stranger.post("object", c.path).result, 0) << c.reason;
        if (!c.delivered.empty()) {
            wanted.push_back(c.delivered);
        }
        post("object", c.reason);  // root's comes after it in any case
        wanted.push_back(c.reason);
        EXPECT_EQ(observer.wait_for(wanted.size()), wanted.size()) << c.reason;
        EXPECT_EQ(observer.values(), wanted) << c.reason;
    }
}

TEST(Trust, FollowsTheEffectiveUser)
{
    SKIP_UNLESS_ROOT("to change the effective user");
    notification_room const room;
    room.share();
    owned_files const files(room);
    std::string const own  = files.file("own.sme", another_user);
    std::string const mine = files.file("mine.sme", 0);
    notification_peer observer(within(room, one_user));
    ASSERT_EQ(observer.observe("object"), "0");
    ASSERT_EQ(::seteuid(another_user), 0);
    EXPECT_EQ(post("object", mine), 0);
    EXPECT_EQ(post("object", own), 0);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(post("object", "end"), 0);
    texts const wanted = {own, "end"};
    EXPECT_EQ(observer.wait_for(wanted.size()), wanted.size());
    EXPECT_EQ(observer.values(), wanted);
}

// What all trust rests on: nobody but root sends in another's name.
TEST(Trust, IsVouchedForByTheKernel)
{
    notification_room const room;
    room.share();
    listener          one("object");
    std::string const path = room.shared() + "/" + notification_room::sockets(room.shared()).at(0);
    sockaddr_un       address = {};
    address.sun_family        = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size());

    uid_t const self = ::geteuid();
    ASSERT_EQ(::seteuid(ordinary_user()), 0);
    unique_fd const socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address),
              0);
    union {
        cmsghdr head;
        char    bytes[CMSG_SPACE(sizeof(ucred))];
    } control               = {};
    char   byte             = 'z';
    iovec  data             = {&byte, 1};
    msghdr message          = {};
    message.msg_iov         = &data;
    message.msg_iovlen      = 1;
    message.msg_control     = control.bytes;
    message.msg_controllen  = sizeof control.bytes;
    control.head.cmsg_level = SOL_SOCKET;
    control.head.cmsg_type  = SCM_CREDENTIALS;
    control.head.cmsg_len   = CMSG_LEN(sizeof(ucred));
    ucred const forged      = {::getpid(), 4713, ::getegid()};
    std::memcpy(CMSG_DATA(&control.head), &forged, sizeof forged);
    EXPECT_EQ(::sendmsg(socket.get(), &message, 0), -1);
    EXPECT_EQ(errno, EPERM);
    ASSERT_EQ(::seteuid(self), 0);
}

}  // namespace
}  // namespace zelieml::test
