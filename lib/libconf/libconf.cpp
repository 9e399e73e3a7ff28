// libconf.cpp - reading and rewriting the settings file
//
// Lines are read through a buffer on the stack and examined in place: reading the value of one key
// allocates nothing.

#include "libconf/libconf.h"
#include "libconf/settings_lines.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "liblog/trace.h"
#include "platform/access_list.h"
#include "support/no_cancellation.h"
#include "support/unique_fd.h"

namespace zelieml
{

// Moves the unread bytes to the front of the buffer and reads more behind them. So there is
// room for the NUL of a last line without LF.
bool line_reader::fill()
{
    std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;

    std::size_t const room  = sizeof buffer_ - end_;
    ssize_t           count = 0;
    do {
        count = ::read(fd_, buffer_ + end_, room);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        error_ = errno;
        return false;
    }
    left_ -= count;
    at_end_ = count == 0 || (left_ == 0 && static_cast<std::size_t>(count) < room);
    end_ += static_cast<std::size_t>(count);
    return true;
}

bool is_comment(char const* line)
{
    return line[0] == '#';
}

// Deliberate, see docs/ODDITIES.md.
bool is_line_of(char const* line, char const* key)
{
    return !is_comment(line) && std::strstr(line, key) != nullptr;
}

bool is_own_line_of(char const* line, char const* key)
{
    std::size_t const size = std::strlen(key);
    return std::strncmp(line, key, size) == 0 &&
           line[size + std::strspn(line + size, " \t")] == '=';
}

int get_val(char const* line, char* val, unsigned int* len)
{
    std::memset(val, 0, *len);
    char const* rest = std::strchr(line, '=');
    if (rest == nullptr) {
        return -1;  // without touching *len: deliberate, see docs/ODDITIES.md
    }
    do {
        ++rest;
    } while (*rest == ' ' || *rest == '\t');

    // The last character is taken for the CR: counted in the room needed, then dropped whatever it
    // is. Deliberate, see docs/ODDITIES.md.
    std::size_t const n = std::strlen(rest);
    if (*len == 0 || *len - 1 < n) {
        *len = 0;
        return -1;
    }
    std::size_t const length = n > 0 ? n - 1 : 0;
    std::memcpy(val, rest, length);
    *len = static_cast<unsigned int>(length);
    return 0;
}

unique_fd open_settings(char const* path)
{
    struct stat info = {};
    if (path == nullptr || ::stat(path, &info) != 0) {
        return unique_fd();
    }
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) {
        errno = EINVAL;
        return unique_fd();
    }
    return above_standard(unique_fd(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
}

namespace
{

constexpr mode_t private_mode    = 0600;
constexpr mode_t permission_bits = 0777;

constexpr std::size_t usual_line = 32;  // characters; only a hint

constexpr int most_leftovers = 10;  // deleted by one call, in case somebody puts them back

// A file being written. close() reports the errors of all calls.
class file_writer
{
public:
    explicit file_writer(unique_fd fd) : fd_(std::move(fd)) {}

    void put(char const* data, std::size_t size)
    {
        while (size > 0) {
            if (used_ == sizeof buffer_) {
                flush();
            }
            std::size_t const room = sizeof buffer_ - used_;
            std::size_t const part = size < room ? size : room;
            std::memcpy(buffer_ + used_, data, part);
            used_ += part;
            data += part;
            size -= part;
        }
    }

    void put(char const* text) { put(text, std::strlen(text)); }

    // Leaves the file on the disk. Returns false when anything failed since the first put(),
    // closing included.
    bool close()
    {
        flush();
        sync();
        return close_written(fd_.release()) && !failed_;
    }

private:
    void flush()
    {
        for (char const* data = buffer_; used_ > 0 && !failed_;) {
            ssize_t const count = ::write(fd_.get(), data, used_);
            if (count >= 0) {
                data += count;
                used_ -= static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                failed_ = true;
            }
        }
        used_ = 0;
    }

    void sync()
    {
        while (!failed_ && ::fsync(fd_.get()) != 0) {
            failed_ = errno != EINTR;
        }
    }

    unique_fd   fd_;
    bool        failed_ = false;
    std::size_t used_   = 0;
    char        buffer_[4096];
};

// The set of a string's characters, some of which share a bit. A string is contained only where its
// set is: this tells of most keys, faster than a search, that a line does not contain them.
std::uint64_t characters_of(std::string_view text)
{
    std::uint64_t set = 0;
    for (char const c : text) {
        set |= std::uint64_t{1} << (static_cast<unsigned char>(c) % 64);
    }
    return set;
}

// Whether key and val make a line that can be read back. Every line contains the empty key, which
// would replace them all.
bool is_settable(char const* key, char const* val)
{
    std::size_t const length = std::strlen(key) + std::strlen(" = ") + std::strlen(val) + 1;
    return length <= line_limit && *key != '\0' && !is_comment(key) &&
           std::strpbrk(key, "=\r\n") == nullptr && std::strpbrk(val, "\r\n") == nullptr;
}

// Makes a file that was not there, for its owner only. Neither a link under that name nor
// somebody's file is opened.
unique_fd make_file(char const* path)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    return above_standard(unique_fd(::open(path, flags, private_mode)));
}

bool is_file_at(char const* path, int fd)
{
    struct stat open  = {};
    struct stat named = {};
    return ::fstat(fd, &open) == 0 && ::lstat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

// Deletes a file that this call made, unless another has its name by now.
void remove_made(char const* path, int fd)
{
    if (is_file_at(path, fd)) {
        ::unlink(path);
    }
}

// The directory of a file, as a path.
std::string directory_of(std::string const& path)
{
    std::size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Changes only what differs: not every file system has owners and groups.
bool set_owner_and_group(int fd, uid_t owner, gid_t group)
{
    struct stat now = {};
    return ::fstat(fd, &now) == 0 &&
           ((now.st_uid == owner && now.st_gid == group) || ::fchown(fd, owner, group) == 0);
}

// Gives a new settings file its owner and rights. One that root makes in a user's directory is the
// user's, whose engine is to read it. The umask may have taken rights from the owner.
bool set_up_settings(int fd, std::string const& directory)
{
    struct stat place = {};
    struct stat made  = {};
    bool const  given = ::geteuid() != 0 || (::stat(directory.c_str(), &place) == 0 &&
                                            set_owner_and_group(fd, place.st_uid, place.st_gid));
    return given && ::fstat(fd, &made) == 0 &&
           ((made.st_mode & private_mode) == private_mode || ::fchmod(fd, private_mode) == 0);
}

int check_current_file(char const* path)
{
    if (::access(path, F_OK) == 0) {
        return 0;
    }
    std::string const directory = directory_of(path);  // may throw: before anything is made
    unique_fd const   made      = make_file(path);
    if (made ? set_up_settings(made.get(), directory) : ::access(path, F_OK) == 0) {
        return 0;  // or another writer was quicker
    }
    remove_made(path, made.get());
    trace_msg("error:ofstream(%s)");
    return -1;
}

// Deletes what an earlier call left or somebody put there; of a link itself, not its target.
// Returns false when it stays: it is a directory with files, or the directory does not allow it.
bool remove_leftover(char const* tmp_path)
{
    return std::remove(tmp_path) == 0 || errno == ENOENT;
}

// Makes a temporary file that is nobody else's: who holds an older one open does not see what is
// written to this one.
unique_fd make_tmp(char const* tmp_path)
{
    unique_fd tmp  = make_file(tmp_path);
    int       left = 0;
    while (!tmp && errno == EEXIST && left < most_leftovers && remove_leftover(tmp_path)) {
        ++left;
        tmp = make_file(tmp_path);
    }
    return tmp;
}

// Whether the settings were, or may have been, found through a link of somebody who is neither this
// user nor their owner. He may have let it lead into a folder that is closed to him, and put
// another file in its place since.
bool is_behind_foreign_link(char const* path, struct stat const& settings)
{
    struct stat named = {};
    if (::lstat(path, &named) != 0) {
        return true;
    }
    bool const is_itself = named.st_dev == settings.st_dev && named.st_ino == settings.st_ino;
    bool const is_known  = named.st_uid == settings.st_uid || named.st_uid == ::geteuid();
    return !is_itself && !(S_ISLNK(named.st_mode) && is_known);
}

// Gives the temporary file, while it is empty, the owner and the rights of the settings file. If
// the group or the access list cannot be kept, only the owner keeps rights: the members of the
// group are others now, and the list may have kept others out. Returns false when the owner cannot
// be kept or the rights cannot be set.
bool take_over_rights(int tmp, char const* path, int settings)
{
    struct stat wanted = {};
    struct stat made   = {};
    if (::fstat(settings, &wanted) != 0 || ::fstat(tmp, &made) != 0 ||
        (made.st_uid != wanted.st_uid && ::fchown(tmp, wanted.st_uid, made.st_gid) != 0)) {
        return false;
    }
    bool const group_is_kept =
        made.st_gid == wanted.st_gid || ::fchown(tmp, wanted.st_uid, wanted.st_gid) == 0;
    mode_t bits = wanted.st_mode & permission_bits;
    if (!group_is_kept || is_behind_foreign_link(path, wanted) ||
        !platform::copy_access_list(settings, tmp)) {
        bits &= S_IRWXU;
        if (!platform::remove_access_list(tmp)) {  // its directory may have handed one down
            return false;
        }
    }
    // Only when it changes something, since not every file system has permission bits.
    return ::fstat(tmp, &made) == 0 &&
           ((made.st_mode & permission_bits) == bits || ::fchmod(tmp, bits) == 0);
}

// Makes the temporary file. At no time may more users read the passwords than before.
unique_fd open_tmp(char const* tmp_path, char const* path, int settings)
{
    unique_fd tmp = make_tmp(tmp_path);
    if (tmp && !take_over_rights(tmp.get(), path, settings)) {
        remove_made(tmp_path, tmp.get());
        tmp.reset();
    }
    return tmp;
}

void write_kv(file_writer& out, char const* key, char const* val)
{
    out.put(key);
    out.put(" = ");
    out.put(val);
    out.put("\r\n");
}

void write_buf(file_writer& out, char const* line, std::size_t size)
{
    if (size == 0 || (size == 1 && line[0] == '\r')) {
        return;  // a rewrite drops empty lines
    }
    out.put(line, size);
    out.put("\n");
}

// Copies the settings with the new value, and closes the copy.
int put_tmp(int settings, file_writer& out, char const* key, char const* val)
{
    line_reader         in(settings);
    line_reader::result got  = in.next();
    bool                seen = false;
    for (; got == line_reader::result::line; got = in.next()) {
        if (is_line_of(in.text(), key)) {
            write_kv(out, key, val);
            seen = true;
        } else {
            write_buf(out, in.text(), in.size());
        }
    }
    if (got != line_reader::result::end) {
        return -1;
    }
    if (!seen) {
        write_kv(out, key, val);
    }
    return out.close() ? 0 : -1;
}

int remove_file(char const* path)
{
    struct stat named = {};  // a link's own: one that leads nowhere goes too
    if (::lstat(path, &named) == 0 && std::remove(path) != 0) {
        trace_msg("error:remove(%s)");
        return -1;
    }
    return 0;
}

// Puts the temporary file, open as tmp, in the place of the settings file. The ".bak" file is
// deleted and none is made: deliberate, see docs/ODDITIES.md.
int rename_tmp(char const* path, char const* tmp_path, int tmp)
{
    std::string const bak_path = std::string(path) + ".bak";
    if (remove_file(bak_path.c_str()) != 0) {
        return -1;
    }
    // Another writer may have renamed the temporary file to the settings file: removing that would
    // lose all settings.
    if (!is_file_at(tmp_path, tmp) || remove_file(path) != 0) {
        return -1;
    }
    if (std::rename(tmp_path, path) != 0) {
        trace_msg("error:rename(%s, %s)");
        return -1;
    }
    return 0;
}

// The settings file, asked for one key: it is read as far as the line of the key.
class settings_file
{
public:
    explicit settings_file(char const* path) : fd_(open_settings(path)), in_(fd_.get()) {}

    explicit operator bool() const { return static_cast<bool>(fd_); }

    // Valid until the next call.
    char const* find(char const* key)
    {
        while (in_.next() == line_reader::result::line) {
            if (is_line_of(in_.text(), key)) {
                return in_.text();
            }
        }
        return nullptr;
    }

private:
    unique_fd   fd_;
    line_reader in_;
};

// conf_get_string, from what open gives: a settings_file or conf_settings.
template <class Open>
int get_string(char const* key, char* val, unsigned int* len, bool has_path, Open open)
{
    trace_msg("conf_get_string key=%s");
    if (len == nullptr) {
        return -1;
    }
    if (key == nullptr || val == nullptr || !has_path) {
        *len = 0;
        return -1;
    }
    auto&& settings = open();
    if (!settings) {
        trace_msg("error:ifstream(%s)");
        *len = 0;
        return -1;
    }
    char const* const line = settings.find(key);
    if (line == nullptr) {
        trace_msg("conf_get_string key=%s not found");
        *len = 0;
        return -1;
    }
    return get_val(line, val, len);
}

}  // namespace

conf_settings::conf_settings(char const* path, std::initializer_list<char const*> keys)
    : path_(path)
{
    no_cancellation const shielded;
    unique_fd const       file = open_settings(path);
    struct stat           info = {};
    if (!file || ::fstat(file.get(), &info) != 0) {
        error_ = errno;
        return;
    }
    opened_ = true;
    keys_.reserve(keys.size());
    for (std::string_view const key : keys) {
        keys_.push_back({key, characters_of(key)});
    }
    lines_.reserve(usual_line * keys.size());
    line_reader in(file.get(), info.st_size);
    auto        got     = line_reader::result::line;
    bool        has_nul = false;
    while ((got = in.next()) == line_reader::result::line) {
        has_nul = has_nul || std::strlen(in.text()) < in.size();
        take(in.text());
    }
    error_ = in.error();
    whole_ = error_ == 0 && !in.is_short();
    if (has_nul || got == line_reader::result::overlong) {
        look_for_hidden(file.get(), info.st_size);
    }
}

void conf_settings::take(char const* line)
{
    if (is_comment(line)) {
        return;
    }
    std::string_view const text       = line;
    std::uint64_t const    characters = characters_of(text);
    std::size_t const      end        = lines_.size();
    bool                   is_kept    = false;
    for (asked_key& key : keys_) {
        if ((key.characters & ~characters) != 0 || text.find(key.name) == text.npos) {
            continue;
        }
        if (key.line == no_line) {
            key.line = end;
            is_kept  = true;
        } else {
            key.elsewhere = key.elsewhere || text != line_of(key);
        }
    }
    if (is_kept) {
        lines_.append(line, text.size() + 1);
    }
}

conf_settings::asked_key const* conf_settings::asked(char const* key) const
{
    std::string_view const name = key;
    for (asked_key const& asked : keys_) {
        if (asked.name == name) {
            return &asked;
        }
    }
    return nullptr;
}

char const* conf_settings::find(char const* key) const
{
    asked_key const* const known = asked(key);
    return known != nullptr && known->line != no_line ? line_of(*known) : nullptr;
}

int conf_get_string(char const* key, char* val, unsigned int* len, char const* path)
{
    no_cancellation const shielded;
    return get_string(key, val, len, path != nullptr, [&] { return settings_file(path); });
}

int conf_get_string(char const* key, char* val, unsigned int* len, conf_settings const& settings)
{
    return get_string(key, val, len, settings.has_path(),
                      [&]() -> conf_settings const& { return settings; });
}

int conf_set_string(char const* key, char const* val, char const* path)
{
    trace_msg("conf_set_string key=%s val=%s");
    if (key == nullptr || val == nullptr || path == nullptr) {
        return -1;
    }
    if (!is_settable(key, val)) {
        trace_msg("error:put_tmp");
        return -1;
    }
    no_cancellation const shielded;
    if (check_current_file(path) != 0) {
        return -1;
    }

    unique_fd settings = open_settings(path);
    if (!settings) {
        trace_msg("error:ifstream(%s)");
        return -1;
    }
    std::string const tmp_path = std::string(path) + ".tmp";
    unique_fd         tmp      = open_tmp(tmp_path.c_str(), path, settings.get());
    if (!tmp) {
        trace_msg("error:ofstream(%s)");
        return -1;
    }
    // Kept open until the renaming, so that is_file_at cannot mistake another file for this one.
    unique_fd const held(::fcntl(tmp.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    file_writer     out(std::move(tmp));
    if (put_tmp(settings.get(), out, key, val) != 0) {
        trace_msg("error:put_tmp");
        return -1;
    }
    settings.reset();

    if (rename_tmp(path, tmp_path.c_str(), held.get()) != 0) {
        trace_msg("error:rename_tmp");
        return -1;
    }
    return 0;
}

}  // namespace zelieml
