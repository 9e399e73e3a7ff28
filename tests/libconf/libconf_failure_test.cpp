// libconf_failure_test.cpp - the settings file when the system refuses a step
//
// The program is linked so that the library's calls of remove, rename, read, write, close, fchmod,
// fsync and fgetxattr come here first.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "libconf/libconf.h"
#include "libsendw/send_settings.h"
#include "tests/support/closed_standard.h"
#include "tests/support/files.h"
#include "tests/support/interruptions.h"
#include "tests/support/trace_recorder.h"

using zelieml::test::interrupted;  // reads, writes and syncs
using zelieml::test::interruptions;

namespace
{

// What is to fail, with EIO.
std::string failing_remove;
bool        failing_rename       = false;
bool        failing_read         = false;
bool        failing_fchmod       = false;
bool        failing_fsync        = false;
bool        failing_fgetxattr    = false;
bool        failing_close_at_end = false;  // of a descriptor that was written to
std::size_t most_at_once         = 0;      // bytes that a read or write moves at most, if not 0

off_t size_at_sync = -1;

bool used_standard = false;  // one of 0 to 2 was open during a read, a write or a removal

std::function<void()> when_one_goes;  // called after the first removal
std::function<void()> before_a_read;  // called before each one

void look_at_standard()
{
    for (int fd = 0; fd <= 2; ++fd) {
        used_standard = used_standard || ::fcntl(fd, F_GETFD) != -1;
    }
}

int fail()
{
    errno = EIO;
    return -1;
}

bool is_written_to(int fd)
{
    int const flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) == O_WRONLY;
}

}  // namespace

extern "C" {

int     __real_remove(char const* path);
int     __real_rename(char const* from, char const* to);
int     __real_close(int fd);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_write(int fd, void const* data, size_t size);
int     __real_fchmod(int fd, mode_t mode);
int     __real_fsync(int fd);
ssize_t __real_fgetxattr(int fd, char const* name, void* data, size_t size);

int __wrap_remove(char const* path)
{
    look_at_standard();
    int const result = failing_remove == path ? fail() : __real_remove(path);
    if (when_one_goes) {
        when_one_goes();
        when_one_goes = nullptr;
    }
    return result;
}

int __wrap_rename(char const* from, char const* to)
{
    return failing_rename ? fail() : __real_rename(from, to);
}

int __wrap_close(int fd)
{
    bool const fails = failing_close_at_end && is_written_to(fd);
    int const  real  = __real_close(fd);
    return fails ? fail() : real;
}

ssize_t __wrap_read(int fd, void* data, size_t size)
{
    look_at_standard();
    if (interrupted()) {
        return -1;
    }
    if (before_a_read) {
        before_a_read();
    }
    if (failing_read) {
        return fail();
    }
    return __real_read(fd, data, most_at_once != 0 && size > most_at_once ? most_at_once : size);
}

ssize_t __wrap_write(int fd, void const* data, size_t size)
{
    look_at_standard();
    if (interrupted()) {
        return -1;
    }
    return __real_write(fd, data, most_at_once != 0 && size > most_at_once ? most_at_once : size);
}

int __wrap_fchmod(int fd, mode_t mode)
{
    return failing_fchmod ? fail() : __real_fchmod(fd, mode);
}

int __wrap_fsync(int fd)
{
    if (interrupted()) {
        return -1;
    }
    struct stat info = {};
    size_at_sync     = ::fstat(fd, &info) == 0 ? info.st_size : -1;
    return failing_fsync ? fail() : __real_fsync(fd);
}

ssize_t __wrap_fgetxattr(int fd, char const* name, void* data, size_t size)
{
    return failing_fgetxattr ? fail() : __real_fgetxattr(fd, name, data, size);
}

}  // extern "C"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

class SettingsFailure : public testing::Test
{
protected:
    void SetUp() override
    {
        path = dir.file("cf");
        test::write_file(path, file);
        test::clear_traces();
    }

    void TearDown() override
    {
        failing_remove.clear();
        failing_rename       = false;
        failing_read         = false;
        failing_fchmod       = false;
        failing_fsync        = false;
        failing_fgetxattr    = false;
        failing_close_at_end = false;
        interruptions        = 0;
        most_at_once         = 0;
        when_one_goes        = nullptr;
        before_a_read        = nullptr;
    }

    int set() { return conf_set_string("k", "new", path.c_str()); }

    void expect_reported(strings const& wanted) { EXPECT_EQ(test::trouble_traces(), wanted); }

    std::string const file = "a = b\r\nk = old\r\n";
    test::temp_dir    dir;
    std::string       path;
};

TEST_F(SettingsFailure, ToRemoveTheOldFileLeavesBoth)
{
    failing_remove = path;
    EXPECT_EQ(set(), -1);
    expect_reported({"error:remove(%s)", "error:rename_tmp"});
    EXPECT_EQ(test::read_file(path), file);
    EXPECT_EQ(test::read_file(path + ".tmp"), "a = b\r\nk = new\r\n");
}

TEST_F(SettingsFailure, ToRemoveTheBackupComesBeforeAnythingElseIsRemoved)
{
    test::write_file(path + ".bak", "x");
    failing_remove = path + ".bak";
    EXPECT_EQ(set(), -1);
    expect_reported({"error:remove(%s)", "error:rename_tmp"});
    EXPECT_EQ(test::read_file(path), file);
}

TEST_F(SettingsFailure, ToRenameLeavesTheTemporaryFileOnly)
{
    failing_rename = true;
    EXPECT_EQ(set(), -1);
    expect_reported({"error:rename(%s, %s)", "error:rename_tmp"});
    EXPECT_EQ(test::list_directory(dir.path()), strings{"cf.tmp"});
    EXPECT_EQ(test::read_file(path + ".tmp"), "a = b\r\nk = new\r\n");
}

// Another writer has put the temporary file in the settings' place, and may have begun a new one.
TEST_F(SettingsFailure, ToFindItsOwnTemporaryFileRemovesNothing)
{
    for (bool const begins_anew : {false, true}) {
        test::write_file(path, file);
        test::write_file(path + ".bak", "x");
        when_one_goes = [&] {
            __real_rename((path + ".tmp").c_str(), path.c_str());
            if (begins_anew) {
                test::write_file(path + ".tmp", "a = ");
            }
        };
        test::clear_traces();
        EXPECT_EQ(set(), -1) << begins_anew;
        expect_reported({"error:rename_tmp"});
        EXPECT_EQ(test::read_file(path), "a = b\r\nk = new\r\n") << begins_anew;
    }
}

// A link to its own file would become the settings.
TEST_F(SettingsFailure, ToFindAFileUnderTheTemporaryNameRemovesNothing)
{
    test::write_file(path + ".bak", "x");
    when_one_goes = [&] {
        __real_rename((path + ".tmp").c_str(), dir.file("moved").c_str());
        EXPECT_EQ(::symlink("moved", (path + ".tmp").c_str()), 0);
    };
    EXPECT_EQ(set(), -1);
    expect_reported({"error:rename_tmp"});
    EXPECT_EQ(test::read_file(path), file);
}

TEST_F(SettingsFailure, ToCloseTheTemporaryFileCountsAsNotWritten)
{
    failing_close_at_end = true;
    EXPECT_EQ(set(), -1);
    failing_close_at_end = false;
    expect_reported({"error:put_tmp"});
    EXPECT_EQ(test::read_file(path), file);
}

TEST_F(SettingsFailure, ToReachTheDiskCountsAsNotWritten)
{
    test::write_file(path + ".bak", "x");
    failing_fsync = true;
    EXPECT_EQ(set(), -1);
    expect_reported({"error:put_tmp"});
    EXPECT_EQ(test::read_file(path), file);
    EXPECT_EQ(test::read_file(path + ".bak"), "x") << "nothing is removed before";
    EXPECT_EQ(size_at_sync, 16) << "all that is written";
}

TEST_F(SettingsFailure, ToReadLeavesTheFile)
{
    failing_read = true;
    EXPECT_EQ(set(), -1);
    char         val[16];
    unsigned int len = sizeof val;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);
    len = sizeof val;
    EXPECT_EQ(conf_get_string("k", val, &len, conf_settings(path.c_str(), {"k"})), -1);
    failing_read = false;
    EXPECT_EQ(len, 0u);
    expect_reported({"error:put_tmp"});
    EXPECT_EQ(test::read_file(path), file);
}

// It may stand in the rest.
TEST_F(SettingsFailure, ToReadTheRestHidesWhatIsNotFound)
{
    test::write_file(path, "k = old\r\n" + std::string(5000, '\n'));
    int reads     = 0;
    before_a_read = [&] { failing_read = ++reads > 1; };
    conf_settings const settings(path.c_str(), {"k", "other"});
    EXPECT_STREQ(settings.find("k"), "k = old\r");
    EXPECT_EQ(settings.find("other"), nullptr);
    EXPECT_TRUE(settings.hides("other"));
}

// Reading goes on behind the NUL, and may succeed there.
TEST_F(SettingsFailure, ToReadTheRestOnceIsNotForgotten)
{
    test::write_file(path, "k = old\r\n" + std::string(1, '\0') + std::string(5000, '\n'));
    int reads     = 0;
    before_a_read = [&] { failing_read = ++reads == 2; };
    EXPECT_FALSE(conf_settings(path.c_str(), {"k"}).is_whole());
}

// Nobody knows what has gone.
TEST_F(SettingsFailure, ToReadAllOfAFileThatIsShortenedHidesWhatIsNotFound)
{
    for (int const last_read : {1, 2}) {
        test::write_file(path, "k = old\r\n" + std::string(5000, '\n') + "other = x\r\n");
        int reads     = 0;
        before_a_read = [&] {
            if (++reads == last_read) {
                EXPECT_EQ(::truncate(path.c_str(), 9), 0);
            }
        };
        conf_settings const settings(path.c_str(), {"k", "other"});
        EXPECT_STREQ(settings.find("k"), "k = old\r");
        EXPECT_EQ(settings.find("other"), nullptr);
        EXPECT_TRUE(settings.hides("other")) << last_read;
        EXPECT_EQ(get_smtp_tls(settings).fault,
                  "smtp_tls in " + path +
                      " is not known: the file cannot be read to its end, or changed meanwhile");
    }
}

TEST_F(SettingsFailure, ToReadAllOfAFileThatIsShortenedInAnOverlongLineHidesWhatIsNotFound)
{
    std::string const lines = "k = old\r\n" + std::string(5000, '\n') + std::string(2000, 'x');
    test::write_file(path, lines + "\r\nother = x\r\n");
    int reads     = 0;
    before_a_read = [&] {
        if (++reads == 2) {
            EXPECT_EQ(::truncate(path.c_str(), static_cast<off_t>(lines.size() - 900)), 0);
        }
    };
    conf_settings const settings(path.c_str(), {"k", "other"});
    EXPECT_STREQ(settings.find("k"), "k = old\r");
    EXPECT_TRUE(settings.hides("other"));
}

// As the library does it: what was opened stays as it is.
TEST_F(SettingsFailure, DoesNotComeOfAFileThatIsReplacedByAShorterOne)
{
    test::write_file(path, "k = old\r\n" + std::string(5000, '\n') + "other = x\r\n");
    before_a_read = [&] {
        test::write_file(path + ".new", "k = new\r\n");
        EXPECT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0);
    };
    conf_settings const settings(path.c_str(), {"k", "other"});
    EXPECT_STREQ(settings.find("k"), "k = old\r");
    EXPECT_FALSE(settings.hides("other"));
}

TEST_F(SettingsFailure, ToReadMuchAtOnceHidesNothing)
{
    for (std::size_t const most : std::initializer_list<std::size_t>{1, 2, 7, 15, 16}) {
        most_at_once = most;
        conf_settings const settings(path.c_str(), {"k", "other"});
        EXPECT_STREQ(settings.find("k"), "k = old\r");
        EXPECT_FALSE(settings.hides("other")) << most;
    }
}

// The end is where the size, of a moment before, says; otherwise it is looked for.
TEST_F(SettingsFailure, DoesNotComeOfAFileThatGrows)
{
    int reads     = 0;
    before_a_read = [&] { ++reads; };
    EXPECT_EQ(conf_settings(path.c_str(), {"k", "none"}).find("none"), nullptr);
    EXPECT_EQ(reads, 1);

    reads         = 0;
    before_a_read = [&] {
        if (++reads == 1) {
            test::write_file(path, file + "other = 1\r\n");
        }
    };
    EXPECT_STREQ(conf_settings(path.c_str(), {"k", "none", "other"}).find("other"), "other = 1\r");
    EXPECT_EQ(reads, 2);
}

TEST_F(SettingsFailure, ToSetThePermissionBitsWritesNothing)
{
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    failing_fchmod = true;
    EXPECT_EQ(set(), -1);
    expect_reported({"error:ofstream(%s)"});
    EXPECT_EQ(test::read_file(path), file);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"cf"})
        << "no password in a file of other bits";

    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(set(), 0) << "bits that are right already are not asked for";
}

TEST_F(SettingsFailure, ToCopyTheAccessListLeavesTheOwnersRights)
{
    ASSERT_EQ(::chmod(path.c_str(), 0664), 0);
    failing_fgetxattr = true;
    EXPECT_EQ(set(), 0);
    struct stat info = {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << "the list may have kept others out";
}

// A link of another user may have led to them until then.
TEST_F(SettingsFailure, ToFindTheSettingsUnderTheirNameLeavesTheOwnersRights)
{
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    test::write_file(path + ".tmp", "left");
    when_one_goes = [this] {
        EXPECT_EQ(::unlink(path.c_str()), 0);
        test::write_file(path, "k = other\r\n");
    };
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(test::read_file(path), "a = b\r\nk = new\r\n");
    struct stat info = {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(SettingsFailure, ToSetUpANewFileLeavesNone)
{
    ::unlink(path.c_str());
    mode_t const before = ::umask(0777);
    failing_fchmod      = true;
    EXPECT_EQ(set(), -1);
    ::umask(before);
    expect_reported({"error:ofstream(%s)"});
    EXPECT_EQ(test::list_directory(dir.path()), strings());
}

// What another thread of the host prints would come into the file.
TEST_F(SettingsFailure, DoesNotComeOfClosedStandardDescriptors)
{
    EXPECT_TRUE(test::keeps_clear_of_standard([this] {
        used_standard = false;
        char         val[16];
        unsigned int len = sizeof val;
        return conf_get_string("k", val, &len, path.c_str()) == 0 && set() == 0 &&
               ::unlink(path.c_str()) == 0 && set() == 0 && !used_standard;
    }));
}

TEST_F(SettingsFailure, DoesNotComeOfSignalsAndShortCounts)
{
    for (std::size_t const at_once : {std::size_t{1}, std::size_t{3}, std::size_t{1000}}) {
        test::write_file(path, file + "# " + std::string(900, 'x') + "\r\n");
        interruptions       = 5;
        most_at_once        = at_once;
        int const    result = set();
        char         val[16];
        unsigned int len = sizeof val;
        interruptions    = 1;
        EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), 0);
        most_at_once = 0;
        EXPECT_EQ(result, 0);
        EXPECT_STREQ(val, "new");
        EXPECT_EQ(test::read_file(path), "a = b\r\nk = new\r\n# " + std::string(900, 'x') + "\r\n");
    }
}

// Nobody can tell any more whether it was found through a link.
TEST_F(SettingsFailure, ToFindTheOldFileAgainKeepsOthersOut)
{
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    test::write_file(path + ".tmp", "left over");
    when_one_goes = [this] { ::unlink(path.c_str()); };
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(test::read_file(path), "a = b\r\nk = new\r\n");
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

// A line that is a character too long does not become one of the length that is allowed.
TEST_F(SettingsFailure, ComesOfAnOverlongLineInWhateverPiecesItIsRead)
{
    test::write_file(path, "k = " + std::string(1020, 'x') + "\n");
    for (std::size_t const at_once : {std::size_t{1}, std::size_t{1023}, std::size_t{1024}}) {
        char         val[2000];
        unsigned int len = sizeof val;
        most_at_once     = at_once;
        EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1) << at_once;
        most_at_once = 0;
    }
}

}  // namespace
}  // namespace zelieml
